#include "station/media/MediaCache.h"

#include <functional>
#include <optional>
#include <utility>

#include "host/base/Log.h"
#include "station/base/Events.h"
#include "station/base/HostParts.h"
#include "station/base/Strings.h"
#include "station/media/MediaFiles.h"
#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"
#include "station/project/DelayedReread.h"
#include "station/project/Names.h"
#include "station/project/Projects.h"
#include "station/project/Records.h"

using namespace korvel;

const NotifyMsgType SystemCache::fileAddedMsgType_ = 1;
const NotifyMsgType SystemCache::fileRemovedMsgType_ = 2;
const NotifyMsgType SystemCache::proxyAddedMsgType_ = 3;
const NotifyMsgType SystemCache::proxyRemovedMsgType_ = 4;

namespace korvel {

namespace {

constexpr const char* kMaterialKind = "V";
constexpr const char* kFile = "file";
constexpr const char* kProxyOf = "proxyOf";

/// How long a user who adds a file waits for its mount, as for one that is made when it is asked.
constexpr MediaLooks::Limit kTimeToAdd(5000);

MediaFile fileAt(const std::string& path, const std::string& proxyOf) {
  return {materialCookie(path), path, networkForm(path), proxyOf};
}

void warnOfCutPath(const MediaFile& file) {
  if (travelsWhole(file.network)) return;
  LogBoth(
      "The path %s holds a character whose encoding has the byte that separates the fields of a "
      "message, so other stations receive it cut. Rename the file, or its folder, to share it.\n",
      inQuotes(file.network));
}

Error alreadyKnown(const std::string& path) {
  return {ErrorCode::eExists, inQuotes(path) + " is in the project already.", path};
}

Error notThere(const std::string& path, const std::string& why) {
  return {ErrorCode::eNotFound,
          "There is no readable file " + inQuotes(path) + " (" + why +
              "), so it was not added. Check its path.",
          path};
}

Error noAnswer(const std::string& path) {
  return {ErrorCode::eSystem,
          inQuotes(path) +
              " does not answer, so it was not added. See whether its folder is mounted "
              "and its server runs.",
          path};
}

Error unknownMedia(const std::string& text) {
  return {ErrorCode::eNotFound,
          inQuotes(text) + " is no media file of the open project (\"media list\" shows them)",
          {}};
}

JsonValue shown(const MediaFile& file) {
  return JsonValue::object({{"cookie", utf8Text(file.cookie.asString())},
                            {"name", mediaName(file.path)},
                            {"file", file.path},
                            {"network", file.network},
                            {"proxy_of", file.proxyOf}});
}

JsonValue looked(const MediaFile& file, const std::optional<MediaLook>& seen) {
  JsonValue value = shown(file);
  if (!seen) value.set("looked_at", false);
  const MediaLook look = seen.value_or(MediaLook{});
  value.set("online", look.isOnline);
  value.set("size", static_cast<unsigned long>(look.size));
  value.set("format", look.format);
  return value;
}

/// All files, each followed by its proxies.
JsonValue listed(const MediaTable& table, const std::function<JsonValue(const MediaFile&)>& one) {
  JsonValue all = JsonValue::array();
  for (const MediaFile& file : table.mains()) {
    all.append(one(file));
    for (const MediaFile& proxy : table.proxiesOf(file)) all.append(one(proxy));
  }
  return all;
}

}  // namespace

MediaCache::MediaCache() = default;

MediaCache::~MediaCache() = default;

}  // namespace korvel

SystemCache& SystemCache::instance() {
  if (hostParts().media) return *hostParts().media;
  // For a program without a station: the host's interface returns a reference, never null.
  static MediaCache withoutStation;
  return withoutStation;
}

namespace korvel {

Result<Cookie> MediaCache::addMedia(const std::string& path) { return add(path, {}); }

Result<Cookie> MediaCache::addProxy(const std::string& path, const std::string& proxy) {
  const MediaFile* const main = table_.find(networkForm(path));
  if (!main) {
    Error unknown = unknownMedia(path);
    unknown.message += ".";
    return unknown;
  }
  const Cookie material = main->cookie;
  const Result<Cookie> added = add(proxy, main->network);
  return added ? material : added;
}

Result<Cookie> MediaCache::add(const std::string& path, const std::string& proxyOf) {
  if (folder_.empty()) {
    return Error{ErrorCode::eNoProject, "No project is open; open one with \"project enter\".", {}};
  }
  if (knows(path)) return alreadyKnown(path);
  const auto look = looks_.lookNow(path, rootOf(path), kTimeToAdd);
  if (!look) return noAnswer(path);
  if (!look->isOnline) return notThere(path, look->problem);
  const MediaFile file = fileAt(path, proxyOf);
  JsonValue record = JsonValue::object({{"name", mediaName(path)}, {kFile, file.network}});
  if (!proxyOf.empty()) record.set(kProxyOf, proxyOf);
  const Result<void> written = writeAtomically(recordOf(file), writeJsonIndented(record) + "\n");
  if (!written) return written.error();
  warnOfCutPath(file);
  show(file);
  return file.cookie;
}

Result<std::vector<MediaFile>> MediaCache::removeMedia(const std::string& text) {
  const Result<MediaFile> file = meant(text);
  if (!file) return file.error();
  std::vector<MediaFile> removed = table_.proxiesOf(*file);
  for (const MediaFile& proxy : removed) {
    if (const Result<void> gone = discard(proxy); !gone) return gone.error();
  }
  if (const Result<void> gone = discard(*file); !gone) return gone.error();
  removed.insert(removed.begin(), *file);
  return removed;
}

Result<MediaFile> MediaCache::meant(const std::string& text) const {
  if (const MediaFile* const byPath = table_.find(networkForm(text))) return *byPath;
  if (const MediaFile* const byNetwork = table_.find(text)) return *byNetwork;
  std::vector<MediaFile> files = table_.withName(text);
  if (files.empty()) {
    std::vector<NamedObject> all;
    listObjects(all);
    const Result<Cookie> cookie = resolveBegun(text, all, unknownMedia(text));
    if (!cookie) return cookie.error();
    files = table_.withCookie(*cookie);
  }
  if (files.size() == 1) return files.front();
  std::string candidates;
  for (const MediaFile& file : files) candidates += "\n  " + shownText(file.path);
  return Error{ErrorCode::eUsage,
               inQuotes(text) + " may mean several files; give one's path:" + candidates,
               {}};
}

Result<void> MediaCache::discard(const MediaFile& file) {
  if (!folder_.empty()) {
    if (const Result<void> removed = removeFileAt(recordOf(file)); !removed) return removed;
  }
  drop(file);
  return {};
}

bool MediaCache::knows(const std::string& path) const { return table_.find(networkForm(path)); }

JsonValue MediaCache::look() {
  for (const MediaFile& file : table_.all()) askFor(file);
  looks_.await(MediaLooks::kPatience);
  return listed(table_,
                [this](const MediaFile& file) { return looked(file, looks_.at(file.path)); });
}

JsonValue MediaCache::state() const { return listed(table_, shown); }

void MediaCache::addFile(const Cookie& cookie, const MaterialFilename& file, bool isProxy) {
  MediaFile added = fileAt(utf8Text(file.getOsPath()), {});
  added.cookie = cookie;
  if (table_.find(added.network)) return;
  const bool isRemote = currentOrigin() == Origin::eRemote;
  const bool isRecorded = !isRemote || hasRecord(added);
  // Only files that messages alone name are limited: a stranger can invent them without end.
  if (!isRecorded && !hasRoomForHearsay()) return;
  added.isHearsay = !isRecorded && !isOfOurs(added.path);
  added.proxyOf = recordedProxyOf(added);
  const std::vector<MediaFile> material = table_.withCookie(cookie);
  if (isProxy && added.proxyOf.empty() && !material.empty()) {
    added.proxyOf = material.front().network;
  }
  // Another station's message may name a path on a mount that hangs: the host thread does not look.
  if (!isRemote && !existsFresh(added.path)) {
    LogBoth("The media file %s is not there, and is shown as offline.\n", inQuotes(added.path));
  }
  show(added);
  askFor(added);
}

bool MediaCache::isOfOurs(const std::string& path) const {
  return !mediaDirectoryOf(path).empty() || liesBelow(path, folder_);
}

/// The folder whose files are looked at one after the other: most likely they are on one mount.
std::string MediaCache::rootOf(const std::string& path) const {
  if (std::string directory = mediaDirectoryOf(path); !directory.empty()) return directory;
  if (liesBelow(path, folder_)) return folder_;
  const std::size_t second = path.find('/', 1);
  return path.substr(0, second == path.npos ? second : path.find('/', second + 1));
}

void MediaCache::askFor(const MediaFile& file) {
  if (!file.isHearsay) looks_.ask(file.path, rootOf(file.path));
}

// The station that removed a file has removed its record, so a file with a record stays whatever a
// message says. It is looked at once more a little later, since a share may still show the record.
void MediaCache::removeFile(const Cookie& cookie, bool isProxy, int what) {
  for (const MediaFile& file : unrecorded(cookie, isProxy, what)) drop(file);
  DelayedReread::arrange("media " + utf8Text(cookie.asString()), [this, cookie, isProxy, what] {
    for (const MediaFile& file : unrecorded(cookie, isProxy, what)) dropLate(file);
  });
}

std::vector<MediaFile> MediaCache::unrecorded(const Cookie& cookie, bool isProxy, int what) const {
  std::vector<MediaFile> files = table_.withCookie(cookie);
  if (isProxy) std::erase_if(files, [this](const MediaFile& file) { return !table_.mainOf(file); });
  std::vector<MediaFile> gone;
  for (const MediaFile& file : withoutRecord(std::move(files))) {
    if (what & eRemoveProxies) {
      for (MediaFile& proxy : withoutRecord(table_.proxiesOf(file))) gone.push_back(proxy);
    }
    if (what & eRemoveEntry) gone.push_back(file);
  }
  return gone;
}

Kv::Ptr<Kv::Guard> MediaCache::registerInternal(
    const Kv::Ptr<CallbackInvoker<NotifyMsg>>& invoker) {
  return listeners_.add(invoker);
}

void MediaCache::enter(const OpenProject& project, const std::vector<std::string>& files) {
  folder_ = project.folder;
  readRecords(project, files, kMaterialKind,
              [this](const Cookie& record, JsonValue&& content) { return take(record, content); });
  shown_ = project.shown;
}

Result<void> MediaCache::take(const Cookie& record, const JsonValue& content) {
  const Result<MediaFile> file = understand(record, content);
  if (!file) return file.error();
  table_.insert(*file);
  return {};
}

Result<MediaFile> MediaCache::understand(const Cookie& record, const JsonValue& content) const {
  const std::string& network = content[kFile].asString();
  if (Cookie(mediaKey(network).c_str(), true) == record && !network.empty()) {
    return MediaFile{materialCookie(localForm(network)), localForm(network), network,
                     content[kProxyOf].asString()};
  }
  const std::string path = recordPath(folder_, record);
  return Error{ErrorCode::eBadContent,
               inQuotes(path) +
                   " is no record of a media file: its \"file\" is not the one that it is named "
                   "after. It is left as it is; repair it or move it away.",
               path};
}

std::size_t MediaCache::catchUp(const FoundFiles& files) {
  std::size_t told = 0;
  for (const FoundFile& file : files) {
    const Cookie record = recordCookie(file.name, kMaterialKind);
    if (!record.isNull() && catchUpOne(record, file)) ++told;
  }
  return told;
}

bool MediaCache::catchUpOne(const Cookie& record, const FoundFile& file) {
  if (file.isGone) return file.isCurrent() && catchUpGone(record);
  const Result<JsonValue> content = parseRecord(file.bytes, file.path);
  const Result<MediaFile> media =
      content ? understand(record, *content) : Result<MediaFile>(content.error());
  if (!media) {
    std::string& logged = problems_[record];
    if (logged != media.error().message) LogBoth("%s\n", media.error().message);
    logged = media.error().message;
    return false;
  }
  problems_.erase(record);
  const MediaFile* const known = table_.find(media->network);
  // A finding that is older than what this station did since must not undo it.
  if (!file.isCurrent()) return false;
  const bool isShown = known && known->proxyOf == media->proxyOf;
  // Its record came after the message: it is no hearsay any more.
  if (isShown && known->isHearsay) table_.insert(*media);
  if (!isShown) show(*media);
  askFor(*media);
  return !isShown;
}

bool MediaCache::catchUpGone(const Cookie& record) {
  problems_.erase(record);
  for (const MediaFile& each : table_.all()) {
    if (!(Cookie(mediaKey(each.network).c_str(), true) == record)) continue;
    drop(each);
    return true;
  }
  return false;
}

void MediaCache::leave() {
  toldFull_ = false;
  looks_.forgetAll();
  folder_.clear();
  table_.clear();
  shown_.reset();
}

void MediaCache::findByName(const std::string& name, std::vector<NamedObject>& found) const {
  for (const MediaFile& file : table_.withName(name)) found.push_back({file.cookie, name});
}

bool MediaCache::holds(const Cookie& cookie) const { return !table_.withCookie(cookie).empty(); }

void MediaCache::listObjects(std::vector<NamedObject>& objects) const {
  for (const MediaFile& file : table_.mains()) {
    objects.push_back({file.cookie, mediaName(file.path)});
    // Proxies first: where that fails the file stays, with the proxies that are left.
    for (const MediaFile& proxy : table_.proxiesOf(file)) {
      objects.push_back({proxy.cookie, mediaName(proxy.path)});
    }
  }
}

std::string MediaCache::recordOf(const MediaFile& file) const {
  return recordPath(folder_, Cookie(mediaKey(file.network).c_str(), true));
}

std::string MediaCache::recordedProxyOf(const MediaFile& file) const {
  if (folder_.empty()) return {};
  const Result<JsonValue> record = readRecord(recordOf(file));
  return record ? (*record)[kProxyOf].asString() : std::string();
}

bool MediaCache::hasRecord(const MediaFile& file) const {
  return !folder_.empty() && existsFresh(recordOf(file));
}

bool MediaCache::hasRoomForHearsay() {
  if (table_.size() < kMostHearsay) return true;
  if (!std::exchange(toldFull_, true)) {
    LogBoth(
        "Messages name more than %d media files that no project records; further ones are not "
        "listed.\n",
        static_cast<int>(kMostHearsay));
  }
  return false;
}

std::vector<MediaFile> MediaCache::withoutRecord(std::vector<MediaFile> files) const {
  std::erase_if(files, [this](const MediaFile& file) {
    return !folder_.empty() && !isGoneFrom(folder_, recordOf(file));
  });
  return files;
}

void MediaCache::show(const MediaFile& file) {
  // The watch has not listed this record yet: noted, so that it notices when the record goes.
  if (shown_ && !file.isHearsay) shown_->add(nameOf(recordOf(file)));
  table_.insert(file);
  tell(file, fileAddedMsgType_, proxyAddedMsgType_, "added");
}

void MediaCache::drop(const MediaFile& file) {
  // A copy: the reference may be into the table, which takeOut() changes.
  const MediaFile told = file;
  if (!takeOut(file)) return;
  tell(told, fileRemovedMsgType_, proxyRemovedMsgType_, "removed");
}

// Other stations know it already. Listeners would announce it again, so they are not told.
void MediaCache::dropLate(const MediaFile& file) {
  const Cookie cookie = file.cookie;
  const std::string name = nameOf(file.path);
  if (takeOut(file)) tellChanged("media", cookie, "removed", name);
}

bool MediaCache::takeOut(const MediaFile& file) {
  if (!table_.find(file.network)) return false;
  // An open descriptor would keep the removed file's space on the share.
  MediaFiles::instance().close(file.path);
  MediaFiles::instance().dropHead(file.path);
  looks_.forget(file.path);
  table_.remove(MediaFile(file));
  return true;
}

void MediaCache::tell(const MediaFile& file, NotifyMsgType asMain, NotifyMsgType asProxy,
                      const std::string& how) {
  const MediaFile* const main = table_.mainOf(file);
  const MediaFile& material = main ? *main : file;
  FsysDirectoryEntry entry(material.cookie, MaterialFilename(wideText(material.path)));
  if (main) entry.addProxyFile(MaterialFilename(wideText(file.path)));
  for (const MediaFile& proxy : table_.proxiesOf(material)) {
    if (proxy.network != file.network) entry.addProxyFile(MaterialFilename(wideText(proxy.path)));
  }
  tellChanged("media", material.cookie, how, nameOf(file.path));
  // Listeners announce changes. A change found in the folder was announced by its station.
  if (currentOrigin() != Origin::eFolder) listeners_.notify(main ? asProxy : asMain, &entry);
}

}  // namespace korvel
