#include "station/edit/EditActions.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>

#include "host/base/Log.h"
#include "host/project/iPermissionsManager.h"
#include "station/base/Events.h"
#include "station/base/HostParts.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/edit/Edits.h"
#include "station/edit/OtioDocument.h"
#include "station/edit/Timecode.h"
#include "station/keep/UndoList.h"
#include "station/os/SharedFiles.h"
#include "station/project/Names.h"
#include "station/project/ProjectFolder.h"
#include "station/project/Projects.h"

namespace korvel {

using EditActions::requireAllowed;

namespace {

std::string title(const Cookie& cookie) {
  const std::string name = openEdits().nameOf(cookie);
  return std::string(Edits::kindText(cookie)) + " " + inQuotes(name) +
         openEdits().namesakeMark(cookie, name);
}

LightweightString<wchar_t> localUser() {
  if (const auto* permissions = iPermissionsManager::instance()) {
    return permissions->getCurrentUser();
  }
  LightweightString<wchar_t> user = wideText(settings().host);
  Kv::toUpper(user);
  return user;
}

Error refusal(const Cookie& cookie) {
  const std::string owner = shownText(openEdits().ownerOf(cookie));
  std::string why = " belongs to " + owner + ", who can hand it over with \"edit give\".";
  if (owner.empty()) why = " has no owner; take it with \"edit give\" first.";
  // No station has one of these names, so the advice to ask the owner would lead nowhere.
  if (owner == "RENDER" || owner == "<NOBODY>") {
    why = " has the owner " + owner +
          ", which no station is; a station started with --set Administrator=1 can give it to one.";
  }
  return {ErrorCode::eRefused, "You may not change it: the " + title(cookie) + why, {}};
}

Error failed(const std::string& what, const Error& why) {
  return {why.code, what + ": " + why.message, why.path};
}

/// Keeps an object loaded for as long as this lives, so that later steps of an action find it
/// loaded and the share is read once.
class HeldEdit {
 public:
  explicit HeldEdit(const Cookie& cookie) : held_(openEdits().hold(cookie)) {}
  HeldEdit(const HeldEdit&) = delete;
  HeldEdit& operator=(const HeldEdit&) = delete;
  ~HeldEdit() {
    if (held_) openEdits().release(*held_);
  }
  [[nodiscard]] const Result<EditFile*>& held() const { return held_; }

 private:
  Result<EditFile*> held_;
};

int logTypeOf(char kind) {
  return kind == CookieTypeEdit ? Edit::kEditLogType : EditFile::kShotLogType;
}

/// Whether the clip has material for the whole range, as far as anything tells.
Result<void> requireMaterial(const JsonValue& timeline, const std::string& path,
                             const ClipRange& range) {
  constexpr double kTolerance = 1e-6;
  const ClipInfo material = availableMaterial(timeline, path);
  const bool isInside = range.start >= material.range.start - kTolerance &&
                        range.end <= material.range.end + kTolerance;
  if (!material.hasRange || isInside) return {};
  const Timecode timecode(clipAt(timeline, path)->rate);
  return Error{ErrorCode::eRefused,
               "The clip has material from " + timecode.textAt(material.range.start) + " to " +
                   timecode.textAt(material.range.end) + " only.",
               {}};
}

Result<EditModification> describeTrim(const JsonValue& timeline, const std::string& clip,
                                      const std::string& start, const std::string& end) {
  const auto path = findClip(timeline, clip);
  if (!path) return path.error();
  const auto now = clipAt(timeline, *path);
  if (!now) return now.error();
  const Timecode timecode(now->rate);
  const auto from = timecode.read(start, now->range.start);
  if (!from) return from.error();
  const auto to = timecode.read(end, now->range.end);
  if (!to) return to.error();
  EditModification trim(eModTrim);
  trim.range_.start = *from;
  trim.range_.end = *to;
  trim.subject_ = hostText(*path);
  if (auto checked = requireMaterial(timeline, *path, {*from, *to}); !checked && *to > *from) {
    return checked.error();
  }
  return trim;
}

bool hasNoOwner(const Cookie& cookie) {
  return cookie.getType() == CookieTypeEdit && openEdits().ownerOf(cookie).empty();
}

/// A log's owner is kept in memory and announced; an edit's is stored by the permissions manager,
/// which describes the change.
void announceLogOwner(const Cookie& cookie, const std::string& owner) {
  openEdits().noteOwner(cookie, owner);
  EditPtr log;
  log.i_open(cookie, 0);
  if (log) log->setChangeDescription(eModOwnerChanged, true);
}

}  // namespace

Result<void> EditActions::requireAllowed(const Cookie& cookie, EditModificationType kind) {
  const auto* permissions = iPermissionsManager::instance();
  if (!permissions || permissions->isModificationAllowed(cookie, kind)) return {};
  return refusal(cookie);
}

Result<void> EditActions::modify(const Cookie& cookie, const EditModification& modification,
                                 const char* description) {
  if (auto allowed = requireAllowed(cookie, modification.type_); !allowed) return allowed;
  EditPtr edit;
  edit.i_open(cookie, 0);
  // Announced when the modifier goes out of scope, after the change was made.
  const EditModifier modifier(edit, description);
  if (!modifier) return Error{ErrorCode::eNotFound, "The " + title(cookie) + " is gone.", {}};
  EditFile& file = *openEdits().loaded(cookie);
  if (auto changed = file.change(modification); !changed) return changed;
  openEdits().noteLoaded(file);
  return {};
}

std::string EditActions::titleOf(const Cookie& cookie) { return title(cookie); }

Result<Cookie> EditActions::store(OtioDocument document, char kind) {
  const Cookie cookie = Cookie::create(kind);
  // Only an edit stores its owner; a log's is kept in memory.
  if (kind == CookieTypeEdit) document.setSetting(EditFile::kOwnerKey, utf8Text(localUser()));
  document.setStamp({1, settings().user, timeForRecord()});
  const std::string text = document.text();
  if (auto written = writeAtomically(openEdits().pathFor(cookie), text); !written) {
    return failed("The " + std::string(Edits::kindText(cookie)) + " was not made", written.error());
  }
  EditFile* const edit = openEdits().takeUp(cookie, std::move(document), text);
  ProjectListeners::instance().tell([&](auto& each) { each.handleLogStorage(cookie, true); });
  openEdits().release(edit);
  return cookie;
}

Result<Cookie> EditActions::create(const std::string& name, char kind) {
  if (auto open = hostParts().projects->requireOpen(); !open) return open.error();
  const char* what = kind == CookieTypeEdit ? "edit" : "log";
  if (auto checked = checkName(what, name); !checked) return checked.error();
  OtioDocument document = OtioDocument::blank(name);
  document.adopt(logTypeOf(kind), name);
  return store(std::move(document), kind);
}

namespace {

/// What an import makes of a file.
Result<OtioDocument> documentToImport(const std::string& path) {
  const auto bytes = readFresh(path);
  if (!bytes && bytes.error().code == ErrorCode::eBadContent) {
    return Error{ErrorCode::eBadContent,
                 "Nothing was imported: " + inQuotes(path) +
                     " is no plain file. Name an OpenTimelineIO file (.otio).",
                 path};
  }
  if (!bytes) return failed("Nothing was imported", bytes.error());
  auto document = OtioDocument::parse(*bytes);
  if (!document) return failed(inQuotes(path) + " was not imported", document.error());
  document->adopt(Edit::kEditLogType, std::filesystem::path(path).stem().string());
  return document;
}

}  // namespace

Result<std::string> EditActions::nameInFile(const std::string& path) {
  const auto document = documentToImport(path);
  return document ? Result<std::string>(document->name()) : document.error();
}

Result<Cookie> EditActions::import(const std::string& path) {
  if (auto open = hostParts().projects->requireOpen(); !open) return open.error();
  auto document = documentToImport(path);
  if (!document) return document.error();
  return store(std::move(*document), CookieTypeEdit);
}

Result<void> EditActions::exportTo(const Cookie& cookie, const std::string& path,
                                   Replacing replacing) {
  if (replacing == Replacing::eRefuse && existsFresh(path)) {
    return Error{ErrorCode::eExists,
                 "The " + title(cookie) + " was not exported: " + inQuotes(path) +
                     " is there already; --force replaces it.",
                 path};
  }
  const auto edit = openEdits().hold(cookie);
  if (!edit) return edit.error();
  auto written = writeAtomically(path, (*edit)->document().exportedText());
  openEdits().release(*edit);
  if (!written) return failed("The " + title(cookie) + " was not exported", written.error());
  return {};
}

Result<void> EditActions::trim(const Cookie& cookie, const std::string& clip,
                               const std::string& start, const std::string& end) {
  const HeldEdit edit(cookie);
  if (!edit.held()) return failed("The " + title(cookie) + " was not trimmed", edit.held().error());
  const auto trim = describeTrim((*edit.held())->document().json(), clip, start, end);
  if (auto allowed = requireAllowed(cookie, eModTrim); !allowed) return allowed;
  // After the rules: a user who may not change the edit is told that, not what is wrong with his
  // times.
  if (!trim) return trim.error();
  const auto before = clipAt((*edit.held())->document().json(), trim->subject_.str());
  if (auto trimmed = modify(cookie, *trim, "Trim"); !trimmed) return trimmed;
  if (before) EditSteps::noteTrim(cookie, *before);
  return {};
}

Result<void> EditActions::rename(const Cookie& cookie, const std::string& name) {
  const HeldEdit edit(cookie);
  if (!edit.held()) return failed("The " + title(cookie) + " was not renamed", edit.held().error());
  const std::string before = (*edit.held())->document().name();
  EditModification rename(eModRename);
  rename.value_ = hostText(name);
  if (auto renamed = modify(cookie, rename, "Rename"); !renamed) return renamed;
  EditSteps::noteRename(cookie, before);
  return {};
}

Result<void> EditActions::requireMayGive(const Cookie& cookie) {
  return hasNoOwner(cookie) ? Result<void>() : requireAllowed(cookie, eModOwnerChanged);
}

namespace {

/// Whether an edit's new owner can be written. Asked first, since the plug-in announces an owner
/// before it is stored.
Result<void> requireWritable(const Cookie& cookie) {
  const std::string path = openEdits().pathFor(cookie);
  const auto bytes = readFresh(path);
  if (!bytes) return failed("The owner stays as it is", bytes.error());
  const auto checked = checkReplaceable(path, bytes->size());
  if (!checked) return failed("The owner stays as it is", checked.error());
  return {};
}

}  // namespace

namespace {

/// Whether the plug-in's rules give the name a meaning of its own: no user may change what belongs
/// to a render job, and every user may change what belongs to the other.
bool isReserved(const LightweightString<wchar_t>& owner) {
  return owner == LightweightString<wchar_t>(L"RENDER") || owner == iPermissionsManager::kNoOwner;
}

Result<void> requireRecipient(const LightweightString<wchar_t>& owner, EditActions::Recipient who) {
  const std::string name = utf8Text(owner);
  if (!travelsWhole(name)) {
    return Error{ErrorCode::eUsage,
                 "Nothing can be given to " + inQuotes(name) +
                     ": a letter of the name holds the byte that separates the fields of messages, "
                     "so other stations would see it cut. Rename that workstation.",
                 {}};
  }
  if (who == EditActions::Recipient::eAnybody) return {};
  const auto& known = iPermissionsManager::instance()->getUserList();
  const bool isKnown = who == EditActions::Recipient::ePresent ||
                       std::find(known.begin(), known.end(), owner) != known.end();
  if (isKnown && !isReserved(owner)) return {};
  return Error{ErrorCode::eRefused,
               inQuotes(name) +
                   (isReserved(owner) ? " is a reserved word, not a user"
                                      : " is in no user list (\"users\" shows it)") +
                   ", so perhaps no one could change it afterwards. Nothing was given; with "
                   "\"--force\" it is.",
               {}};
}

/// Unsaved changes would be lost: the new owner does not have them, and the old one may not save
/// them any more.
Result<void> saveBeforeGiving(EditFile& edit) {
  if (!edit.hasLocalChanges()) return {};
  if (auto saved = EditActions::save(edit.getCookie()); !saved) {
    return failed("The owner stays as it is, since unsaved changes must be saved first",
                  saved.error());
  }
  LogBoth("The %s was saved before it was given away.\n", title(edit.getCookie()));
  return {};
}

/// Records and announces the owner of a held object, under its lock and only if that is still right
/// then: another station may have saved or given it meanwhile.
Result<void> giveHeld(EditFile& edit, const LightweightString<wchar_t>& owner,
                      const EditActions::Check& isStillRight) {
  const Cookie cookie = edit.getCookie();
  const bool isEdit = cookie.getType() == CookieTypeEdit;
  const auto lock = edit.lockFile();
  if (!lock) return failed("The owner stays as it is", lock.error());
  // The owner that the file names decides: a message about a new one may have been lost.
  edit.takeStoredOwner();
  const std::string before = utf8Text(edit.getOwner());
  if (auto right = isStillRight(); !right) return right;
  iPermissionsManager::instance()->setOwner(
      cookie, owner, isEdit ? iPermissionsManager::eEdit : iPermissionsManager::eShot, true);
  if (auto stored = edit.flushConfiguration(); !stored) {
    return failed("The new owner of the " + title(cookie) +
                      " was announced but cannot be written; its file names the old one",
                  stored.error());
  }
  if (!isEdit) announceLogOwner(cookie, utf8Text(owner));
  events().audit("owner", {{"cookie", cookie.asString().str()},
                           textMember("name", openEdits().nameOf(cookie)),
                           textMember("from", before),
                           textMember("to", utf8Text(owner))});
  return {};
}

}  // namespace

namespace {

/// Whether an object belongs to this user already. Its file is asked before that is claimed: a
/// message about a new owner may have been lost.
bool belongsTo(EditFile& edit, const std::string& owner) {
  if (openEdits().ownerOf(edit.getCookie()) != owner) return false;
  edit.takeStoredOwner();
  return openEdits().ownerOf(edit.getCookie()) == owner;
}

}  // namespace

Result<EditActions::Given> EditActions::give(const Cookie& cookie, const std::string& user,
                                             Recipient who) {
  if (auto checked = checkName("owner", user); !checked) return checked.error();
  if (auto allowed = requireMayGive(cookie); !allowed) return allowed.error();
  if (!iPermissionsManager::instance()) {
    return Error{ErrorCode::eRefused, "No plug-in keeps owners here.", {}};
  }
  const std::string owner = upperCased(user);
  if (auto known = requireRecipient(wideText(owner), who); !known) return known.error();
  const std::string before = openEdits().ownerOf(cookie);
  {
    const HeldEdit edit(cookie);
    if (!edit.held()) return failed("The owner stays as it is", edit.held().error());
    if (belongsTo(**edit.held(), owner)) return Given::eBefore;
    if (auto saved = saveBeforeGiving(**edit.held()); !saved) return saved.error();
  }
  const auto given = putOwner(cookie, owner, [&cookie] { return requireMayGive(cookie); });
  if (!given) return given.error();
  EditSteps::noteGift(cookie, before);
  return Given::eNow;
}

Result<void> EditActions::putOwner(const Cookie& cookie, const std::string& owner,
                                   const Check& isStillRight) {
  const HeldEdit edit(cookie);
  if (!edit.held()) return failed("The owner stays as it is", edit.held().error());
  if (cookie.getType() == CookieTypeEdit) {
    if (auto writable = requireWritable(cookie); !writable) return writable;
  }
  return giveHeld(**edit.held(), wideText(owner), isStillRight);
}

bool EditActions::isAllowed(const Cookie& cookie) {
  const auto* permissions = iPermissionsManager::instance();
  return !permissions || permissions->isModificationAllowed(cookie, eModContentsChanged);
}

namespace {

Error changedSince(const std::string& what) {
  Error problem;
  problem.code = ErrorCode::eChanged;
  problem.message = what;
  problem.message += " was changed since, here or by another station.";
  return problem;
}

bool isSameRange(const ClipRange& a, const ClipRange& b) {
  constexpr double kTolerance = 1e-6;
  return std::abs(a.start - b.start) < kTolerance && std::abs(a.end - b.end) < kTolerance;
}

/// The document of an object as it is shown now.
Result<OtioDocument> shownDocumentOf(const Cookie& cookie) {
  const auto edit = openEdits().hold(cookie);
  if (!edit) return edit.error();
  OtioDocument document = (*edit)->document();
  openEdits().release(*edit);
  return document;
}

/// Makes a change that undoing, or doing again, is made of.
Result<void> changeBack(const Cookie& cookie, const EditModification& change, const char* words) {
  auto changed = EditActions::modify(cookie, change, words);
  EditFile* const edit = changed ? openEdits().loaded(cookie) : nullptr;
  if (edit) edit->noteUndone();
  return changed;
}

Result<void> trimBack(const Cookie& cookie, const std::string& path, const ClipRange& from,
                      const ClipRange& to) {
  const auto document = shownDocumentOf(cookie);
  if (!document) return document.error();
  const auto clip = clipAt(document->json(), path);
  if (!clip || !isSameRange(clip->range, from)) return changedSince("The clip");
  EditModification trim(eModTrim);
  trim.range_.start = to.start;
  trim.range_.end = to.end;
  trim.subject_ = hostText(path);
  return changeBack(cookie, trim, "Trim");
}

Result<void> renameBack(const Cookie& cookie, const std::string& from, const std::string& to) {
  const auto document = shownDocumentOf(cookie);
  if (!document) return document.error();
  if (document->name() != from) return changedSince("The name");
  EditModification rename(eModRename);
  rename.value_ = hostText(to);
  return changeBack(cookie, rename, "Rename");
}

/// A hash of what the file of an object holds.
Result<std::size_t> storedContent(const Cookie& cookie) {
  const auto bytes = readFresh(openEdits().pathFor(cookie));
  if (!bytes) return bytes.error();
  return contentHash(*bytes);
}

struct Gift {
  Cookie cookie;
  std::string before;
  std::string after;
  std::size_t content = 0;  ///< of its file after it was given
};

/// By putOwner() rather than give(): after the gift the rules allow this user nothing any more. The
/// file must be as it was given.
Result<void> takeGiftBack(const Gift& gift) {
  return EditActions::putOwner(gift.cookie, gift.before, [&gift]() -> Result<void> {
    const auto content = storedContent(gift.cookie);
    if (!content) return content.error();
    const bool isAsGiven =
        *content == gift.content && openEdits().ownerOf(gift.cookie) == gift.after;
    if (isAsGiven) return {};
    return changedSince("The " + EditActions::titleOf(gift.cookie));
  });
}

Result<void> giveAgain(Gift& gift) {
  const auto given = EditActions::putOwner(gift.cookie, gift.after, [&gift]() -> Result<void> {
    if (openEdits().ownerOf(gift.cookie) == gift.before) {
      return EditActions::requireMayGive(gift.cookie);
    }
    return changedSince("The " + EditActions::titleOf(gift.cookie));
  });
  if (const auto content = storedContent(gift.cookie); given && content) gift.content = *content;
  return given;
}

/// A version that was saved as the newest, and what the file held before.
struct Restoration {
  Cookie cookie;
  OtioDocument before;
  OtioDocument after;
  std::size_t content = 0;  ///< of its file as it was left
};

/// Saves one of the two as the newest version; the file must be as it was left.
Result<void> saveAgain(Restoration& step, const OtioDocument& document) {
  const auto content = storedContent(step.cookie);
  if (!content) return content.error();
  if (*content != step.content) return changedSince("The " + EditActions::titleOf(step.cookie));
  if (auto saved = EditActions::saveAsNewest(step.cookie, document); !saved) return saved;
  if (const auto now = storedContent(step.cookie)) step.content = *now;
  return {};
}

std::string markedName(const Cookie& cookie, const std::string& name) {
  return name + openEdits().namesakeMark(cookie, name);
}

}  // namespace

void EditSteps::noteTrim(const Cookie& cookie, const ClipInfo& before) {
  const auto document = shownDocumentOf(cookie);
  const auto clip = document ? clipAt(document->json(), before.path) : document.error();
  if (!clip) return;
  const std::string name = before.name.empty() ? before.path : before.name;
  recordStep(
      {"trim of " + name + " in " + markedName(cookie, document->name()),
       [=, after = clip->range] { return trimBack(cookie, before.path, after, before.range); },
       [=, after = clip->range] { return trimBack(cookie, before.path, before.range, after); }});
}

void EditSteps::noteRename(const Cookie& cookie, const std::string& before) {
  const std::string after = openEdits().nameOf(cookie);
  recordStep({"rename of " + markedName(cookie, before) + " to " + markedName(cookie, after),
              [=] { return renameBack(cookie, after, before); },
              [=] { return renameBack(cookie, before, after); }});
}

void EditSteps::noteGift(const Cookie& cookie, const std::string& before) {
  const auto content = storedContent(cookie);
  if (!content) return;
  const auto gift =
      std::make_shared<Gift>(Gift{cookie, before, openEdits().ownerOf(cookie), *content});
  recordStep({"gift of " + markedName(cookie, openEdits().nameOf(cookie)) + " to " + gift->after,
              [gift] { return takeGiftBack(*gift); }, [gift] { return giveAgain(*gift); }});
}

void EditSteps::noteRestore(const Cookie& cookie, const OtioDocument& before,
                            const OtioDocument& after, const std::string& version) {
  const auto content = storedContent(cookie);
  if (!content) return;
  const auto step = std::make_shared<Restoration>(Restoration{cookie, before, after, *content});
  recordStep({"return of " + markedName(cookie, after.name()) + " to version " + version,
              [step] { return saveAgain(*step, step->before); },
              [step] { return saveAgain(*step, step->after); }});
}

void EditSteps::noteDeletion(const std::vector<Trashed>& trashed, const std::string& name) {
  const std::size_t count = trashed.size();
  const auto kept = std::make_shared<std::vector<Trashed>>(trashed);
  const auto takeBack = [kept]() -> Result<void> {
    for (const Trashed& each : *kept) {
      if (auto taken = EditActions::takeBack(TrashFolder::asItIsNow(each)); !taken) return taken;
    }
    return {};
  };
  const auto removeAgain = [kept]() -> Result<void> {
    std::vector<Cookie> cookies;
    for (const Trashed& each : *kept) {
      cookies.emplace_back(each.object.c_str(), false);
      auto allowed = EditActions::requireAllowed(cookies.back(), eModContentsChanged);
      if (!allowed) return allowed;
    }
    return EditActions::moveToTrash(cookies, *kept);
  };
  const std::string what = count == 1
                               ? markedName(Cookie(trashed.front().object.c_str(), false), name)
                               : std::to_string(count) + " edits";
  recordStep({"deletion of " + what, takeBack, removeAgain});
}

}  // namespace korvel
