#include "station/edit/Edits.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <utility>

#include "host/base/Log.h"
#include "station/base/Events.h"
#include "station/base/Strings.h"
#include "station/edit/OtioDocument.h"
#include "station/os/FolderListing.h"
#include "station/os/SharedFiles.h"
#include "station/project/Names.h"
#include "station/project/ProjectFolder.h"

namespace korvel {

// Objects of a folder that is read come in their order, behind all that are there.
KnownEdit& EditIndex::put(const Cookie& cookie, EditSummary&& summary) {
  const bool isLast = edits_.empty() || edits_.rbegin()->first < cookie;
  KnownEdit* known = isLast ? nullptr : find(cookie);
  const bool isSameName = known && known->summary.name == summary.name &&
                          known->summary.problem.empty() == summary.problem.empty();
  if (known && !isSameName) removeName(cookie, known->summary.name);
  if (!isSameName) addName(cookie, summary);
  if (!known) {
    return edits_.try_emplace(edits_.end(), cookie, KnownEdit{std::move(summary)})->second;
  }
  if (known->isStale) clearStale(cookie);
  known->summary = std::move(summary);
  return *known;
}

EditIndex::Names& EditIndex::names() const {
  if (byName_) return *byName_;
  byName_.emplace(edits_.size());
  for (const auto& [cookie, known] : edits_) addName(cookie, known.summary);
  return *byName_;
}

void EditIndex::addName(const Cookie& cookie, const EditSummary& summary) const {
  if (byName_ && summary.problem.empty()) byName_->emplace(summary.name, cookie);
}

void EditIndex::remove(const Cookie& cookie) {
  const KnownEdit* const known = find(cookie);
  if (!known) return;
  removeName(cookie, known->summary.name);
  clearStale(cookie);
  found_ = nullptr;
  edits_.erase(cookie);
}

void EditIndex::removeName(const Cookie& cookie, const std::string& name) {
  if (!byName_) return;
  auto [at, end] = byName_->equal_range(name);
  for (; at != end; ++at) {
    if (at->second == cookie) {
      byName_->erase(at);
      return;
    }
  }
}

void EditIndex::clear() {
  found_ = nullptr;
  loaded_.clear();
  edits_.clear();
  byName_.reset();
  stale_.clear();
  forgotten_.clear();
}

KnownEdit* EditIndex::find(const Cookie& cookie) {
  if (found_ && found_->first == cookie) return &found_->second;
  const auto known = edits_.find(cookie);
  if (known == edits_.end()) return nullptr;
  found_ = &*known;
  return &known->second;
}

void EditIndex::setLoaded(KnownEdit& known, std::unique_ptr<EditFile> edit) {
  takeLoaded(known);
  known.loaded = std::move(edit);
  loaded_.insert(placeOf(*known.loaded), known.loaded.get());
}

std::unique_ptr<EditFile> EditIndex::takeLoaded(KnownEdit& known) {
  if (known.loaded) loaded_.erase(placeOf(*known.loaded));
  return std::move(known.loaded);
}

std::vector<EditFile*>::iterator EditIndex::placeOf(const EditFile& edit) {
  return std::ranges::lower_bound(loaded_, edit.getCookie(), std::less(), &EditFile::getCookie);
}

void EditIndex::findByName(const std::string& name, std::vector<NamedObject>& found) const {
  auto [at, end] = names().equal_range(name);
  for (; at != end; ++at) found.push_back({at->second, name});
}

void EditIndex::markStale(const Cookie& cookie) {
  KnownEdit* const known = find(cookie);
  if (known && !std::exchange(known->isStale, true)) stale_.insert(cookie);
}

bool EditIndex::isStale(const Cookie& cookie) {
  const KnownEdit* const known = find(cookie);
  return known && known->isStale;
}

bool EditIndex::clearStale(const Cookie& cookie) {
  KnownEdit* const known = find(cookie);
  if (!known || !std::exchange(known->isStale, false)) return false;
  stale_.erase(cookie);
  return true;
}

std::set<Cookie> EditIndex::takeStale() {
  for (const Cookie& each : stale_) find(each)->isStale = false;
  return std::exchange(stale_, {});
}

namespace {

/// A summary, and the state of the file that it was read from.
struct StampedSummary {
  FileStamp stamp;
  EditSummary summary;
};

Result<EditSummary> readListedSummary(const std::string& path) {
  const Result<std::string> bytes = readListed(path);
  if (!bytes) return bytes.error();
  return readEditSummary(*bytes);
}

Result<StampedSummary> readStampedSummary(const std::string& path) {
  const auto content = readStamped(path, kLargestFile);
  if (!content) return content.error();
  auto summary = readEditSummary(content->bytes);
  if (!summary) return summary.error();
  return StampedSummary{content->stamp, std::move(*summary)};
}

/// What the cache of an earlier run knows of the file.
std::optional<EditSummary> summaryInCache(const OpenProject& project, const std::string& name,
                                          const FileStamp& stamp) {
  const std::string_view* const text = project.cache ? project.cache->find(name, stamp) : nullptr;
  return text ? keptSummary(*text) : std::nullopt;
}

EditSummary summaryOf(const EditFile& edit) {
  SaveStamp saved = edit.document().stamp();
  return {edit.document().name(),
          utf8Text(edit.getOwner()),
          {},
          edit.content(),
          std::move(saved.by),
          std::move(saved.at),
          edit.knownExtent().value_or(EditExtent())};
}

JsonValue shownClip(const ClipInfo& clip) {
  JsonValue shown = JsonValue::object(
      {{"path", clip.path}, {"name", shownText(clip.name)}, {"schema", clip.schema}});
  if (!clip.hasRange) return shown;
  shown.set("start", clip.range.start);
  shown.set("end", clip.range.end);
  shown.set("rate", clip.rate);
  return shown;
}

JsonValue shownClips(const EditFile& edit) {
  JsonValue clips = JsonValue::array();
  for (const ClipInfo& clip : listClips(edit.document().json())) clips.append(shownClip(clip));
  return clips;
}

}  // namespace

Edits::Edits() = default;

Edits::~Edits() = default;

Cookie Edits::cookieOfFile(std::string_view name) {
  const Cookie cookie = cookieNamedBy(name, kEditEnding);
  const bool isEdit = cookie.getType() == CookieTypeEdit || cookie.getType() == CookieTypeShot;
  return isEdit ? cookie : Cookie();
}

const char* Edits::kindText(const Cookie& cookie) {
  return cookie.getType() == CookieTypeShot ? "log" : "edit";
}

void Edits::enter(const OpenProject& project, const std::vector<std::string>&) {
  folder_ = project.folder;
  shown_ = project.shown;
  std::vector<std::string> unread;
  for (const auto& [name, stamp] : project.listing->files) {
    const Cookie cookie = cookieOfFile(name);
    if (cookie.isNull()) continue;
    if (auto summary = summaryInCache(project, name, stamp)) {
      index_.put(cookie, std::move(*summary)).enteredAs = stamp.modified;
    } else {
      unread.push_back(name);
    }
  }
  for (const std::string& name : project.listing->others) {
    const Cookie cookie = cookieOfFile(name);
    if (!cookie.isNull()) enterOne(cookie, readListedSummary(folder_ + "/" + name));
  }
  enterUnread(project, unread);
}

void Edits::put(const Cookie& cookie, EditSummary summary, std::unique_ptr<EditFile> loaded) const {
  if (shown_ && !holds(cookie)) shown_->add(cookie.asString().str() + std::string(kEditEnding));
  const bool isReadable = summary.problem.empty();
  const std::string owner = summary.owner;
  const EditSummary* const listed = observers_.empty() ? nullptr : this->summary(cookie);
  const bool isReplaced = listed != nullptr;
  const EditSummary before = isReplaced ? *listed : EditSummary{};
  KnownEdit& known = index_.put(cookie, std::move(summary));
  if (loaded) index_.setLoaded(known, std::move(loaded));
  if (isReplaced) tellReplaced(cookie, before);
  // Away in the trash, or with the whole share, it may have got another owner.
  if (isReadable && index_.clearForgotten(cookie)) tellOwner(cookie, owner);
}

void Edits::tellReplaced(const Cookie& cookie, const EditSummary& before) const {
  const EditSummary now = *summary(cookie);
  const bool isReadable = before.problem.empty() && now.problem.empty();
  if (!isReadable || before.content == now.content) return;
  tellObservers([&](iEditObserver& each) { each.replaced(cookie, before, now); });
}

void Edits::enterUnread(const OpenProject& project, const std::vector<std::string>& names) {
  std::vector<Result<StampedSummary>> read(names.size(), Error());
  // Several at once: each read waits for a round trip to the share.
  inFlight(names.size(),
           [&](std::size_t each) { read[each] = readStampedSummary(folder_ + "/" + names[each]); });
  for (std::size_t each = 0; each < names.size(); ++each) {
    const Cookie cookie = cookieOfFile(names[each]);
    if (!read[each]) {
      enterOne(cookie, read[each].error());
      continue;
    }
    auto& [stamp, summary] = *read[each];
    // A file that was not at rest may change again within the same tick of the share's clock, with
    // the same stamp.
    if (project.cache && isAtRest(stamp, *project.listing)) {
      project.cache->put(names[each], stamp, keptText(summary));
    }
    index_.put(cookie, std::move(summary)).enteredAs = stamp.modified;
  }
}

void Edits::enterOne(const Cookie& cookie, Result<EditSummary> summary) {
  if (summary) {
    index_.put(cookie, std::move(*summary));
  } else {
    setAside(cookie, summary.error().message);
  }
}

void Edits::takeUpUnlisted(const std::vector<std::string>& files) {
  for (const std::string& file : files) {
    const Cookie cookie = cookieOfFile(file);
    if (cookie.isNull()) continue;
    // One that could not be read may be readable by now.
    const EditSummary* const known = summary(cookie);
    if (known && known->problem.empty()) continue;
    auto found = readListedSummary(folder_ + "/" + file);
    // Not reported: another station may be making the file, and the watch finds it again.
    if (!found) continue;
    const AuthorScope author(found->savedBy);
    const char* const how = known ? "refreshed" : "created";
    put(cookie, std::move(*found));
    tellChanged(kindText(cookie), cookie, how);
  }
}

void Edits::leave() {
  for (const EditFile* const edit : index_.loaded()) {
    if (!observer_ && edit->hasLocalChanges()) {
      LogBoth("The %s \"%s\" had changes that were not saved; they are dropped.\n",
              edit->kindText(), shownText(nameOf(edit->getCookie())));
    }
  }
  while (!index_.loaded().empty()) unload(index_.loaded().front()->getCookie());
  index_.clear();
  shown_.reset();
  folder_.clear();
}

void Edits::setAside(const Cookie& cookie, const std::string& problem) const {
  const EditSummary* const known = summary(cookie);
  // A broken file is found again by every look; each problem is reported once.
  if (known && known->problem == problem) return;
  LogBoth("The file of %s %s cannot be read and is left as it is: %s\n", kindText(cookie),
          cookie.asString(), problem);
  put(cookie, EditSummary{known ? known->name : std::string(), {}, problem});
}

void Edits::indexFile(const Cookie& cookie) const {
  const auto bytes = readFresh(pathFor(cookie));
  if (!bytes && bytes.error().code == ErrorCode::eNotFound) {
    index_.remove(cookie);
    return index_.markForgotten(cookie);
  }
  auto summary = bytes ? readEditSummary(*bytes) : Result<EditSummary>(bytes.error());
  if (!summary) return setAside(cookie, summary.error().message);
  put(cookie, std::move(*summary));
}

void Edits::indexStale() const {
  for (const Cookie& cookie : index_.takeStale()) {
    if (!loaded(cookie)) indexFile(cookie);
  }
}

void Edits::findByName(const std::string& name, std::vector<NamedObject>& found) const {
  indexStale();
  index_.findByName(name, found);
}

bool Edits::holds(const Cookie& cookie) const { return summary(cookie) != nullptr; }

void Edits::listObjects(std::vector<NamedObject>& objects) const {
  indexStale();
  for (const auto& [cookie, known] : index_.all()) objects.push_back({cookie, known.summary.name});
}

JsonValue Edits::line(const Cookie& cookie, const KnownEdit& known) const {
  const EditSummary& summary = known.summary;
  const EditFile* const edit = known.loaded.get();
  JsonValue shown = JsonValue::object({{"cookie", cookie.asString().str()},
                                       {"name", shownText(summary.name)},
                                       {"kind", kindText(cookie)},
                                       {"owner", shownText(summary.owner)},
                                       {"open", edit && edit->isUserOpen},
                                       {"dirty", edit && !edit->isAsSaved()}});
  if (edit && edit->isChangedElsewhere()) shown.set("changed_elsewhere", true);
  if (edit && edit->fileState() == EditFile::FileState::eGone) shown.set("deleted", true);
  if (!summary.problem.empty()) shown.set("problem", summary.problem);
  const auto missing = missing_ ? missing_(cookie) : std::vector<std::string>();
  if (!missing.empty()) shown.set("missing_from", shownText(joined(missing, ", ")));
  return shown;
}

std::string Edits::missingText(const Cookie& cookie) const {
  std::string text;
  for (const std::string& each : missing_ ? missing_(cookie) : std::vector<std::string>()) {
    const std::string user = shownText(each);
    text += (text.empty() ? "" : " ") + ("Unsaved changes of " + user) +
            "'s are missing here until " + user + " saves.";
  }
  return text;
}

JsonValue Edits::list() const {
  indexStale();
  JsonValue all = JsonValue::array();
  for (const auto& [cookie, known] : index_.all()) all.append(line(cookie, known));
  return all;
}

JsonValue Edits::listed(const Cookie& cookie) const {
  indexStale();
  const KnownEdit* const known = index_.find(cookie);
  return known ? line(cookie, *known) : JsonValue();
}

JsonValue Edits::state() const {
  indexStale();
  JsonValue all = JsonValue::array();
  for (const auto& [cookie, known] : index_.all()) {
    JsonValue shown = line(cookie, known);
    const EditFile* const edit = known.loaded.get();
    if (edit && edit->isUserOpen) shown.set("clips", shownClips(*edit));
    all.append(std::move(shown));
  }
  return all;
}

EditExtent Edits::extent(const Cookie& cookie) const {
  if (const EditFile* const edit = loaded(cookie)) return edit->extent();
  const EditSummary* const known = summary(cookie);
  return known ? known->extent : EditExtent();
}

Result<JsonValue> Edits::show(const Cookie& cookie) {
  const auto edit = hold(cookie);
  if (!edit) return edit.error();
  JsonValue shown = line(cookie, *index_.find(cookie));
  shown.set("clips", shownClips(**edit));
  release(*edit);
  return shown;
}

void Edits::listOpen(std::vector<Cookie>& open, std::vector<Cookie>& unsaved) const {
  for (const EditFile* const edit : index_.loaded()) {
    if (edit->isUserOpen) open.push_back(edit->getCookie());
    if (edit->hasLocalChanges()) unsaved.push_back(edit->getCookie());
  }
}

EditFile* Edits::loaded(const Cookie& cookie) const {
  const KnownEdit* const known = index_.find(cookie);
  return known ? known->loaded.get() : nullptr;
}

Result<EditFile*> Edits::hold(const Cookie& cookie) {
  if (EditFile* edit = loaded(cookie)) {
    holdAgain(*edit);
    return edit;
  }
  return load(cookie);
}

Result<EditFile*> Edits::load(const Cookie& cookie) {
  const bool isKind = cookie.getType() == CookieTypeEdit || cookie.getType() == CookieTypeShot;
  if (!isProjectOpen() || !isKind) {
    return Error{
        ErrorCode::eNotFound, "The open project has no edit " + cookie.asString().str() + ".", {}};
  }
  const std::string path = pathFor(cookie);
  const auto bytes = readFresh(path);
  if (!bytes) return bytes.error();
  auto document = OtioDocument::parse(*bytes);
  if (!document) {
    setAside(cookie, document.error().message);
    return Error{ErrorCode::eBadContent,
                 "The file of " + std::string(kindText(cookie)) + " " + cookie.asString().str() +
                     " cannot be read and is left as it is: " + document.error().message,
                 path};
  }
  return takeUp(cookie, std::move(*document), *bytes);
}

EditFile* Edits::takeUp(const Cookie& cookie, OtioDocument document, std::string_view bytes) {
  const bool isNew = !holds(cookie);
  auto taken = std::make_unique<EditFile>(cookie, pathFor(cookie), std::move(document));
  EditFile* const edit = taken.get();
  holdAgain(*edit);
  if (!edit->isEdit()) edit->setLogOwner(ownerOf(cookie));
  edit->noteContent(bytes);
  put(cookie, summaryOf(*edit), std::move(taken));
  const AuthorScope author(edit->document().stamp().by);
  if (isNew) tellChanged(kindText(cookie), cookie, "created");
  return edit;
}

void Edits::release(EditFile* edit) {
  if (--edit->holders > 0) return;
  KnownEdit* const known = index_.find(edit->getCookie());
  if (!known || known->loaded.get() != edit) {
    // Unloaded while something still held it: this was the last hold.
    std::erase_if(gone_, [edit](const auto& each) { return each.get() == edit; });
  } else if (!edit->isUserOpen && !edit->holdsUnwritten()) {
    static_cast<void>(edit->extent());  // what is listed without the document is known whole
    noteLoaded(*edit);
    index_.takeLoaded(*known);
  }
}

void Edits::unload(const Cookie& cookie) {
  KnownEdit* const known = index_.find(cookie);
  if (!known || !known->loaded) return;
  if (observer_ && known->loaded->hasLocalChanges()) observer_->dropping(*known->loaded);
  known->loaded->markRemoved();
  auto edit = index_.takeLoaded(*known);
  if (edit->holders > 0) gone_.push_back(std::move(edit));
}

std::vector<NamedObject> Edits::unsaved() const {
  std::vector<NamedObject> found;
  for (const EditFile* const edit : index_.loaded()) {
    const Cookie cookie = edit->getCookie();
    if (edit->hasLocalChanges()) found.push_back({cookie, nameOf(cookie)});
  }
  return found;
}

Result<void> Edits::open(const Cookie& cookie) {
  const auto edit = hold(cookie);
  if (!edit) return edit.error();
  (*edit)->isUserOpen = true;
  release(*edit);
  return {};
}

Result<void> Edits::close(const Cookie& cookie) {
  EditFile* edit = loaded(cookie);
  if (!edit) return {};
  if (edit->hasLocalChanges()) {
    return Error{ErrorCode::eRefused,
                 "The " + std::string(kindText(cookie)) + " " + inQuotes(nameOf(cookie)) +
                     " has unsaved changes; save them with \"edit save\", or drop them with \"edit "
                     "revert\".",
                 {}};
  }
  if (edit->fileState() == EditFile::FileState::eGone) {
    letGo(cookie);
    return {};
  }
  unload(cookie);
  // It may have shown unsaved changes of other stations. The lists show what the file holds again.
  index_.markStale(cookie);
  return {};
}

void Edits::refresh(const Cookie& cookie) {
  if (!isProjectOpen()) return;
  lookLater(cookie);
  if (const EditFile* edit = loaded(cookie)) {
    noteLoaded(*edit);
  } else if (holds(cookie) || existsFresh(pathFor(cookie))) {
    indexFile(cookie);
  } else {
    return;
  }
  tellChanged(kindText(cookie), cookie, "refreshed");
}

void Edits::noteLoaded(const EditFile& edit) { put(edit.getCookie(), summaryOf(edit)); }

void Edits::noteOwner(const Cookie& cookie, const std::string& owner) {
  const EditSummary* const known = this->summary(cookie);
  if (!known) return;
  EditSummary summary = *known;
  summary.owner = owner;
  index_.put(cookie, std::move(summary));
  if (EditFile* edit = loaded(cookie); edit && !edit->isEdit()) edit->setLogOwner(owner);
}

void Edits::letGo(const Cookie& cookie) {
  // First: the observer must not keep changes that the user dropped or has elsewhere.
  if (EditFile* const edit = loaded(cookie)) edit->setDirty(false);
  forget(cookie);
  tellChanged(kindText(cookie), cookie, "destroyed");
}

void Edits::takeUpFile(const Cookie& cookie) {
  const bool isNew = !holds(cookie);
  if (EditFile* const edit = loaded(cookie)) {
    edit->takeFileAgain();
  } else {
    indexFile(cookie);
  }
  if (isNew) tellChanged(kindText(cookie), cookie, "created");
}

void Edits::forget(const Cookie& cookie) {
  const EditSummary* const last = observers_.empty() ? nullptr : summary(cookie);
  if (last) tellObservers([&](iEditObserver& each) { each.forgetting(cookie, *last); });
  unload(cookie);
  index_.remove(cookie);
  index_.markForgotten(cookie);
}

std::string Edits::pathFor(const Cookie& cookie) const {
  return folder_ + "/" + cookie.asString().str() + std::string(kEditEnding);
}

std::string Edits::nameOf(const Cookie& cookie) const {
  const EditSummary* const known = summary(cookie);
  return known ? known->name : std::string();
}

std::string Edits::ownerOf(const Cookie& cookie) const {
  const EditSummary* const known = summary(cookie);
  return known ? known->owner : std::string();
}

std::string Edits::namesakeMark(const Cookie& cookie, const std::string& name) const {
  std::vector<NamedObject> called;
  findByName(name, called);
  const std::string own = cookie.asString().str();
  std::vector<std::string> cookies{own};
  for (const NamedObject& each : called) {
    if (!(each.cookie == cookie)) cookies.push_back(each.cookie.asString().str());
  }
  if (cookies.size() == 1) return {};
  return " (" + own.substr(0, tellingLength(std::move(cookies))) + ")";
}

}  // namespace korvel
