#include "station/containers/ContainerPart.h"

#include <memory>
#include <utility>

#include "host/base/Log.h"
#include "host/containers/ContainerManager.h"
#include "station/base/Events.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/keep/UndoList.h"
#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"
#include "station/project/DelayedReread.h"
#include "station/project/Names.h"
#include "station/project/Records.h"

namespace korvel {

namespace {

constexpr std::uint32_t kRewritten =
    ContainerManagerBase::eChanged | ContainerManagerBase::eFileWritten;

/// A late look finds what other stations know already, so listeners show it and announce nothing.
constexpr std::uint32_t kFoundLate = ContainerManagerBase::eDisplayed;

}  // namespace

void ContainerPart::enter(const OpenProject& project, const std::vector<std::string>& files) {
  leave();
  folder_ = project.folder;
  readRecords(project, files, kind_.letters,
              [this](const Cookie& cookie, JsonValue&& record) -> Result<void> {
                const Result<void> sound = check(cookie, record);
                if (sound) show(cookie, std::move(record));
                return sound;
              });
  // After the records: the watch knows those from the listing, and needs only later ones noted.
  shown_ = project.shown;
}

void ContainerPart::takeUpUnlisted(const std::vector<std::string>& files) {
  for (const std::string& file : files) {
    const Cookie cookie = recordCookie(file, kind_.letters);
    if (cookie.isNull() || find(cookie)) continue;
    Result<JsonValue> record = read(cookie);
    if (record) take(cookie, std::move(*record), kFoundLate);
  }
}

void ContainerPart::leave() {
  folder_.clear();
  shown_.reset();
  containers_.clear();
  byName_.clear();
}

void ContainerPart::findByName(const std::string& name, std::vector<NamedObject>& found) const {
  const auto named = byName_.find(name);
  if (named == byName_.end()) return;
  for (const Cookie& cookie : named->second) found.push_back({cookie, name});
}

void ContainerPart::listObjects(std::vector<NamedObject>& objects) const {
  for (const auto& [cookie, container] : containers_) objects.push_back({cookie, container.name});
}

JsonValue ContainerPart::state() const {
  JsonValue all = JsonValue::array();
  for (const auto& [cookie, container] : containers_) all.append(shown(container));
  return all;
}

const Container* ContainerPart::find(const Cookie& cookie) const {
  const auto found = containers_.find(cookie);
  return found == containers_.end() ? nullptr : &found->second;
}

JsonValue ContainerPart::shown(const Container& container) const {
  return JsonValue::object({{"cookie", utf8Text(container.cookie.asString())},
                            {"name", container.name},
                            {kind_.content, container.record[kind_.content]}});
}

Result<Cookie> ContainerPart::create(const std::string& name, JsonValue content) {
  if (const Result<void> isNew = requireNew(name); !isNew) return isNew.error();
  JsonValue record = JsonValue::object({{"name", name}, {kind_.content, std::move(content)}});
  // No lock: no other station can know this cookie yet.
  const Cookie cookie = Cookie::create(kind_.letters.front());
  const Result<void> written = writeAtomically(fileOf(cookie), writeJsonIndented(record) + "\n");
  if (!written) return written.error();
  show(cookie, std::move(record));
  tell(cookie, "created", kRewritten);
  noteMade(cookie);
  return cookie;
}

Error ContainerPart::tooLargeToWrite(const Cookie& cookie) const {
  return {ErrorCode::eRefused,
          "The " + wordsFor(cookie) + " would take more than " +
              std::to_string(kLargestRecord >> 20) +
              " MiB on the share, and no station reads so large a file; divide it.",
          fileOf(cookie)};
}

Result<void> ContainerPart::change(const Cookie& cookie, const Change& change) {
  if (const Result<void> known = requireKnown(cookie); !known) return known;
  const ObjectLock lock(fileOf(cookie));
  if (!lock.taken()) return lock.taken();
  Result<JsonValue> record = read(cookie);
  if (!record) return record.error();
  // Applied to the record in the file, not to the one that is shown, which may be older.
  const Result<bool> changed = change(*record);
  if (!changed) return changed.error();
  if (!*changed) {
    // The change was in the file already, made by another station: what is shown follows the file.
    if (!(find(cookie)->record == *record))
      take(cookie, std::move(*record), ContainerManagerBase::eChanged);
    return {};
  }
  const std::string text = writeJsonIndented(*record) + "\n";
  if (text.size() > kLargestRecord) return tooLargeToWrite(cookie);
  const Result<void> written = writeAtomically(fileOf(cookie), text);
  if (!written) return written;
  show(cookie, std::move(*record));
  tell(cookie, "modified", kRewritten);
  return {};
}

Result<void> ContainerPart::discard(const Cookie& cookie) {
  const std::string words = "deletion of " + wordsFor(cookie);
  const auto trashed = discardNow(cookie);
  if (!trashed) return trashed.error();
  if (!*trashed) return {};
  const auto kept = std::make_shared<Trashed>(**trashed);
  recordStep({words, [this, kept] { return takeBack(TrashFolder::asItIsNow(*kept)); },
              [this, kept, cookie] { return discardInto(cookie, *kept); }});
  return {};
}

Result<std::optional<Trashed>> ContainerPart::discardNow(const Cookie& cookie) {
  if (const Result<void> known = requireKnown(cookie); !known) return known.error();
  auto trashed = moveToTrash(cookie);
  if (!trashed) return trashed;
  events().audit("deleted", auditedObject(kind_.word, cookie, find(cookie)->name));
  drop(cookie);
  tell(cookie, "destroyed", ContainerManagerBase::eDestroyed);
  return trashed;
}

Result<void> ContainerPart::discardInto(const Cookie& cookie, Trashed& trashed) {
  auto discarded = discardNow(cookie);
  if (!discarded) return discarded.error();
  if (*discarded) trashed = std::move(**discarded);
  return {};
}

Result<void> ContainerPart::requireUnchanged(const Cookie& cookie, const JsonValue& record) const {
  if (const Result<void> known = requireKnown(cookie); !known) return known;
  const auto now = read(cookie);
  if (!now) return now.error();
  if (*now == record) return {};
  return Error{ErrorCode::eChanged,
               "The " + wordsFor(cookie) + " was changed since, here or by another station.",
               fileOf(cookie)};
}

/// Undoing the making of a container moves it to the trash; doing it again takes it back from
/// there.
void ContainerPart::noteMade(const Cookie& cookie) {
  const auto trashed = std::make_shared<Trashed>();
  recordStep({"making of " + wordsFor(cookie),
              [this, cookie, trashed, record = find(cookie)->record]() -> Result<void> {
                if (auto same = requireUnchanged(cookie, record); !same) return same;
                return discardInto(cookie, *trashed);
              },
              [this, trashed] { return takeBack(TrashFolder::asItIsNow(*trashed)); }});
}

std::string ContainerPart::wordsFor(const Cookie& cookie) const {
  const Container* const known = find(cookie);
  return kind_.word + " " + (known ? known->name : lastDropped_);
}

Result<void> ContainerPart::takeBack(const Trashed& trashed) {
  const Cookie cookie(trashed.object.c_str(), false);
  const ObjectLock lock(fileOf(cookie));
  if (!lock.taken()) return lock.taken();
  if (auto moved = TrashFolder::giveBack(trashed, fileOf(cookie)); !moved) return moved;
  Result<JsonValue> record = read(cookie);
  const std::string name = record ? (*record)["name"].asString() : std::string();
  events().audit("restored", auditedObject(kind_.word, cookie, name));
  if (!record) {
    // A success all the same: the file is back in its place.
    LogBoth("The %s %s was taken back from the trash, but cannot be shown: %s\n", kind_.word,
            cookie.asString(), record.error().message);
    return {};
  }
  warnOfNamesakes(name);
  show(cookie, std::move(*record));
  tell(cookie, "created", kRewritten);
  return {};
}

void ContainerPart::warnOfNamesakes(const std::string& name) const {
  if (!byName_.contains(name)) return;
  LogBoth("There are two of the name %s now; name a %s by its cookie.\n", inQuotes(name),
          kind_.word);
}

// A message may be forged, lost or early, so it is not believed: the station that destroys a
// container removes its file itself. While the file is there, the container stays.
void ContainerPart::forget(const Cookie& cookie) {
  if (!find(cookie)) return;
  if (currentOrigin() != Origin::eLocal) {
    if (dropIfGone(cookie, ContainerManagerBase::eDestroyed)) return;
    DelayedReread::arrange(fileOf(cookie), [this, cookie] {
      if (!dropIfGone(cookie, kFoundLate)) readLate(cookie);
    });
    return readLate(cookie);
  }
  if (existsFresh(fileOf(cookie))) {
    const auto removed = moveToTrash(cookie);
    if (!removed) LogBoth("%s\n", removed.error().message);
  }
  drop(cookie);
  tell(cookie, "destroyed", ContainerManagerBase::eDestroyed);
}

bool ContainerPart::dropIfGone(const Cookie& cookie, std::uint32_t flags) {
  if (!find(cookie) || !isGoneFrom(folder_, fileOf(cookie))) return false;
  drop(cookie);
  tell(cookie, "destroyed", flags);
  return true;
}

void ContainerPart::readAgain(const Cookie& cookie) {
  if (folder_.empty()) return;
  DelayedReread::arrange(fileOf(cookie), [this, cookie] { readLate(cookie); });
  Result<JsonValue> record = read(cookie);
  if (record) {
    take(cookie, std::move(*record), ContainerManagerBase::eChanged);
  } else {
    LogBoth("The %s %s is shown as it was: %s\n", kind_.word, cookie.asString(),
            record.error().message);
  }
}

void ContainerPart::readLate(const Cookie& cookie) {
  if (folder_.empty()) return;
  Result<JsonValue> record = read(cookie);
  const Container* const known = find(cookie);
  if (record && !(known && known->record == *record)) take(cookie, std::move(*record), kFoundLate);
}

std::size_t ContainerPart::catchUp(const FoundFiles& files) {
  std::size_t told = 0;
  for (const FoundFile& file : files) {
    const Cookie cookie = recordCookie(file.name, kind_.letters);
    if (!cookie.isNull() && catchUpOne(cookie, file)) ++told;
  }
  return told;
}

bool ContainerPart::catchUpOne(const Cookie& cookie, const FoundFile& file) {
  const Container* const known = find(cookie);
  if (file.isGone) {
    problems_.erase(cookie);
    if (!known || !file.isCurrent()) return false;
    drop(cookie);
    tell(cookie, "destroyed", kFoundLate);
    return true;
  }
  Result<JsonValue> record = parseRecord(file.bytes, file.path);
  const Result<void> sound = record ? check(cookie, *record) : Result<void>(record.error());
  if (!sound) {
    std::string& logged = problems_[cookie];
    // The watch finds a broken file again after each change: each problem is reported once.
    if (logged != sound.error().message) LogBoth("%s\n", sound.error().message);
    logged = sound.error().message;
    return false;
  }
  problems_.erase(cookie);
  // A finding that is older than what this station wrote since must not bring the old content back.
  if ((known && known->record == *record) || !file.isCurrent()) return false;
  take(cookie, std::move(*record), kFoundLate);
  return true;
}

void ContainerPart::readAllAgain() {
  DelayedReread::arrange(kind_.key, [this] { compareWithFolder(kFoundLate, kFoundLate); });
  compareWithFolder(ContainerManagerBase::eChanged, ContainerManagerBase::eDestroyed);
}

void ContainerPart::compareWithFolder(std::uint32_t changed, std::uint32_t destroyed) {
  if (folder_.empty()) return;
  const Result<std::vector<std::string>> files = listFresh(folder_);
  if (!files) return LogBoth("%s\n", files.error().message);
  std::set<Cookie> present;
  for (const std::string& file : *files) present.insert(recordCookie(file, kind_.letters));
  readRecords(folder_, *files, kind_.letters, [&](const Cookie& cookie, JsonValue&& record) {
    const Result<void> sound = check(cookie, record);
    const Container* const known = find(cookie);
    if (sound && !(known && known->record == record)) take(cookie, std::move(record), changed);
    return sound;
  });
  dropMissing(present, destroyed);
}

void ContainerPart::dropMissing(const std::set<Cookie>& present, std::uint32_t flags) {
  std::vector<Cookie> gone;
  for (const auto& [cookie, container] : containers_) {
    if (!present.contains(cookie)) gone.push_back(cookie);
  }
  // In a second loop, since drop() changes the map.
  for (const Cookie& cookie : gone) {
    drop(cookie);
    tell(cookie, "destroyed", flags);
  }
}

std::string ContainerPart::fileOf(const Cookie& cookie) const {
  return folder_.empty() ? std::string() : recordPath(folder_, cookie);
}

Result<JsonValue> ContainerPart::read(const Cookie& cookie) const {
  Result<JsonValue> record = readRecord(fileOf(cookie));
  if (!record) return record;
  const Result<void> sound = check(cookie, *record);
  if (!sound) return sound.error();
  return record;
}

Result<void> ContainerPart::check(const Cookie& cookie, const JsonValue& record) const {
  const std::string problem =
      !record["name"].isString() ? "it has no \"name\"" : contentProblem(record[kind_.content]);
  if (problem.empty()) return {};
  const std::string file = fileOf(cookie);
  return Error{ErrorCode::eBadContent,
               inQuotes(file) + " is no " + kind_.word + ": " + problem +
                   ". It is left as it is; repair it or move it away.",
               file};
}

Result<void> ContainerPart::requireKnown(const Cookie& cookie) const {
  if (find(cookie)) return {};
  return Error{ErrorCode::eNotFound,
               "There is no " + kind_.word + " " + utf8Text(cookie.asString()) +
                   " in the open project; \"" + kind_.word + " list\" shows what there is.",
               {}};
}

Result<void> ContainerPart::requireNew(const std::string& name) const {
  if (folder_.empty()) {
    return Error{ErrorCode::eNoProject, "No project is open; open one with \"project enter\".", {}};
  }
  if (const Result<void> sound = checkName(kind_.word, name); !sound) return sound;
  if (!byName_.contains(name)) return {};
  return Error{ErrorCode::eExists,
               "There is a " + kind_.word + " " + inQuotes(name) + " already (" +
                   utf8Text(byName_.at(name).begin()->asString()) + "); choose another name.",
               {}};
}

Result<std::optional<Trashed>> ContainerPart::moveToTrash(const Cookie& cookie) const {
  const ObjectLock lock(fileOf(cookie));
  if (!lock.taken()) return lock.taken().error();
  auto moved = TrashFolder(folder_).take(fileOf(cookie), settings().user);
  if (moved) return std::optional<Trashed>(std::move(*moved));
  // Another station removed it first: what the user wanted is so, with nothing to undo.
  if (!isGoneFrom(folder_, fileOf(cookie))) return moved.error();
  return std::optional<Trashed>();
}

void ContainerPart::show(const Cookie& cookie, JsonValue record) {
  // The watch has not listed this file yet: noted, so that it notices when the file goes.
  if (shown_ && !find(cookie)) shown_->add(nameOf(recordPath({}, cookie)));
  drop(cookie);
  const std::string name = record["name"].asString();
  byName_[name].insert(cookie);
  containers_[cookie] = Container{cookie, name, std::move(record)};
}

void ContainerPart::drop(const Cookie& cookie) {
  const auto known = containers_.find(cookie);
  if (known == containers_.end()) return;
  lastDropped_ = known->second.name;
  const auto named = byName_.find(known->second.name);
  named->second.erase(cookie);
  if (named->second.empty()) byName_.erase(named);
  containers_.erase(known);
}

void ContainerPart::take(const Cookie& cookie, JsonValue record, std::uint32_t flags) {
  const bool isKnown = find(cookie) != nullptr;
  show(cookie, std::move(record));
  tell(cookie, isKnown ? "reloaded" : "created", flags);
}

void ContainerPart::tell(const Cookie& cookie, const std::string& how, std::uint32_t flags) {
  const Container* const known = find(cookie);
  tellChanged(kind_.word, cookie, how, known ? known->name : std::string());
  notify(cookie, flags);
}

}  // namespace korvel
