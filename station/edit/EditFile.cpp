#include "station/edit/EditFile.h"

#include "host/base/Log.h"
#include "host/project/iPermissionsManager.h"
#include "station/base/Events.h"
#include "station/base/Strings.h"
#include "station/edit/Edits.h"
#include "station/edit/OtioClips.h"
#include "station/os/SharedFiles.h"
#include "station/project/ObjectNames.h"
#include "station/project/ProjectListeners.h"

namespace korvel {

namespace {

/// Stands for a file that is gone, where a content is noted.
constexpr std::size_t kNoFile = 0;

Result<OtioDocument> parsed(const Result<std::string>& bytes) {
  if (!bytes) return bytes.error();
  return OtioDocument::parse(*bytes);
}

}  // namespace

EditFile::EditFile(const Cookie& cookie, const std::string& path, OtioDocument document)
    : cookie_(cookie), path_(path), document_(std::move(document)) {}

int EditFile::getLogType() const {
  if (cookie_.getType() == CookieTypeEdit) return kEditLogType;
  const int stored = document_.logType(kShotLogType);
  return stored == kEditLogType ? kShotLogType : stored;
}

LightweightString<wchar_t> EditFile::getOwner() const {
  return wideText(isEdit() ? document_.setting(kOwnerKey) : logOwner_);
}

void EditFile::setChangeDescription(EditModificationType type, bool announce) {
  description_ = announce ? type : eModNone;
}

bool EditFile::reOpen(const LightweightString<wchar_t>& path) {
  if (isInStock_) Edits::instance()->lookLater(cookie_);
  return replaceBy(readFresh(utf8Text(path)));
}

bool EditFile::replaceBy(const Result<std::string>& bytes) {
  auto document = parsed(bytes);
  if (!document) {
    LogBoth("The %s \"%s\" was saved elsewhere but cannot be read again; it stays as it was: %s\n",
            kindText(), shownText(document_.name()), document.error().message);
    return false;
  }
  if (hasLocalChanges_) {
    LogBoth("Another station saved the %s \"%s\"; your unsaved changes to it are dropped.\n",
            kindText(), shownText(document_.name()));
  }
  document_ = std::move(*document);
  noteContent(*bytes);
  configuration_.unwritten.clear();
  pending_.clear();
  dirty_ = hasLocalChanges_ = celCuesOn_ = false;
  changedElsewhere_.reset();
  if (isInStock_) Edits::instance()->noteLoaded(*this);
  return true;
}

void EditFile::readLate() {
  const auto bytes = readFresh(path_);
  if (!bytes || isContent(*bytes)) return;
  const bool cuesWereShown = celCuesOn_;
  if (!reOpen(wideText(path_))) return;
  celCuesOn_ = cuesWereShown;
  tellReplaced();
}

bool EditFile::catchUp(const std::string& bytes) {
  if (isContent(bytes)) {
    changedElsewhere_.reset();
    return false;
  }
  if (holdsUnsaved()) {
    return noteElsewhere(contentHash(bytes), "was saved by another station");
  }
  const bool cuesWereShown = celCuesOn_;
  if (!replaceBy(bytes)) return false;
  celCuesOn_ = cuesWereShown;
  tellReplaced();
  return true;
}

bool EditFile::keepWithoutFile() {
  return noteElsewhere(kNoFile, "was deleted by another station");
}

bool EditFile::noteElsewhere(std::size_t content, const char* what) {
  if (changedElsewhere_ == content) return false;
  changedElsewhere_ = content;
  LogBoth("The %s \"%s\" %s while you have unsaved changes to it. They are kept.\n", kindText(),
          shownText(document_.name()), what);
  events().changed(kindText(), cookie_, "refreshed", currentOrigin());
  return true;
}

void EditFile::tellReplaced() {
  auto* const permissions = iPermissionsManager::instance();
  if (permissions && isEdit()) {
    permissions->setOwner(cookie_, getOwner(), iPermissionsManager::eEdit, false);
  }
  issueChangeNotification(EditModification(eModContentsChanged));
}

void EditFile::issueChangeNotification(const EditModification& modification) {
  const bool isWhole = modification.type_ == eModContentsChanged;
  events().changed(kindText(), cookie_, isWhole ? "reloaded" : "modified", currentOrigin());
}

void EditFile::setDirty(bool dirty) {
  const bool becameDirty = dirty && !dirty_;
  dirty_ = dirty;
  hasLocalChanges_ = dirty;
  if (becameDirty) {
    ProjectListeners::instance().tell([this](auto& each) { each.handleLogDirtied(cookie_); });
  }
}

Result<void> EditFile::change(const EditModification& modification) {
  if (auto applied = apply(modification); !applied) return applied;
  setDirty(true);
  pending_.push_back(modification);
  return {};
}

Result<void> EditFile::changeRemotely(const EditModification& modification) {
  if (auto applied = apply(modification); !applied) return applied;
  dirty_ = true;
  return {};
}

Result<void> EditFile::apply(const EditModification& modification) {
  if (modification.type_ == eModTrim) {
    return trimClip(document_.json(), modification.subject_.str(),
                    {modification.range_.start, modification.range_.end});
  }
  if (modification.type_ != eModRename) {
    return Error{ErrorCode::eUsage, "It is no change that this station understands.", {}};
  }
  if (auto checked = checkName(kindText(), modification.value_.str()); !checked) return checked;
  document_.rename(modification.value_.str());
  return {};
}

void EditFile::announce() {
  std::vector<EditModification> recorded;
  recorded.swap(pending_);
  for (const EditModification& modification : recorded) tell(modification);
  announceDescription();
}

void EditFile::announceDescription() {
  if (description_ == eModNone) return;
  const EditModification described(description_);
  description_ = eModNone;
  tell(described);
}

// A created object has been told of as such when it was first loaded.
void EditFile::tell(const EditModification& modification) {
  if (modification.type_ != eModCreated) {
    const bool isOwner = modification.type_ == eModOwnerChanged;
    events().changed(isOwner ? "permissions" : kindText(), cookie_, "modified", currentOrigin());
  }
  ProjectListeners::instance().tell(
      [&](auto& each) { each.handleLogModification(cookie_, modification); });
}

Result<void> EditFile::save() {
  const std::string text = document_.text();
  if (auto written = writeAtomically(path_, text); !written) return written;
  noteContent(text);
  changedElsewhere_.reset();
  configuration_.unwritten.clear();
  dirty_ = hasLocalChanges_ = false;
  return {};
}

Result<void> EditFile::flushConfiguration() {
  if (configuration_.unwritten.empty()) return {};
  const auto bytes = readFresh(path_);
  auto stored = parsed(bytes);
  if (!stored) return stored.error();
  bool differs = false;
  for (const std::string& key : configuration_.unwritten) {
    const std::string value = document_.setting(key);
    if (stored->setting(key) == value) continue;
    stored->setSetting(key, value);
    differs = true;
  }
  if (differs) {
    const std::string text = stored->text();
    if (auto written = writeAtomically(path_, text); !written) return written;
    if (isContent(*bytes)) noteContent(text);  // else it was saved elsewhere, and is yet to be read
  }
  configuration_.unwritten.clear();
  return {};
}

void EditFile::Configuration::set(const LightweightString<char>& key,
                                  const LightweightString<char>& value) {
  document_.setSetting(key.str(), value.str());
  unwritten.insert(key.str());
}

LightweightString<char> EditFile::Configuration::get(const LightweightString<char>& key) const {
  return hostText(document_.setting(key.str()));
}

}  // namespace korvel
