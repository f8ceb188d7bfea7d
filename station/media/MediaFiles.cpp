#include "station/media/MediaFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string_view>

#include "host/media/DiskManager.h"
#include "host/os/Files.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"

namespace korvel {

namespace {

constexpr std::size_t kHeadSize = 64;

struct Signature {
  std::size_t at;
  std::string_view bytes;
  const char* format;
};

constexpr Signature kSignatures[] = {
    {4, "ftyp", "QuickTime or MP4"},
    {4, "moov", "QuickTime"},
    {4, "mdat", "QuickTime"},
    {0, "\x06\x0E\x2B\x34", "MXF"},
    {8, "AVI ", "AVI"},
    {8, "WAVE", "Wave"},
    {0, "\x1A\x45\xDF\xA3", "Matroska"},
    {0, "FORM", "AIFF"},
    {0, "SDPX", "DPX"},
    {0, "XPDS", "DPX"},
};

std::string formatOf(std::string_view head) {
  for (const Signature& signature : kSignatures) {
    if (head.size() < signature.at) continue;
    if (head.substr(signature.at).starts_with(signature.bytes)) return signature.format;
  }
  return {};
}

}  // namespace

MediaFiles& MediaFiles::instance() {
  static MediaFiles files;
  return files;
}

MediaFiles::~MediaFiles() {
  for (const auto& [path, descriptor] : open_) ::close(descriptor);
}

MediaLook MediaFiles::look(const std::string& path) {
  Stamp stamp;
  const auto kept = heads_.find(path);
  errno = 0;
  const bool isThere = stampAt(path, stamp);
  // The descriptor still leads to the file that was there before.
  if (!isThere || (kept != heads_.end() && !(kept->second.stamp == stamp))) {
    close(path);
    dropHead(path);
  }
  const int descriptor = isThere ? descriptorFor(path) : -1;
  const int problem = errno;
  if (descriptor < 0)
    return {false, 0, problem == 0 ? "no plain file" : std::strerror(problem), {}};
  return {true, stamp.size, {}, formatOf(headOf(path, stamp, descriptor))};
}

void MediaFiles::close(const std::string& path) {
  const auto found = open_.find(path);
  if (found == open_.end()) return;
  ::close(found->second);
  open_.erase(found);
  std::erase(order_, path);
}

void MediaFiles::dropHead(const std::string& path) { heads_.erase(path); }

bool MediaFiles::stampAt(const std::string& path, Stamp& stamp) {
  struct stat found {};
  if (::stat(path.c_str(), &found) != 0 || !S_ISREG(found.st_mode)) return false;
  constexpr std::int64_t kNanoseconds = 1'000'000'000;
  stamp = {found.st_dev, found.st_ino, static_cast<std::uint64_t>(found.st_size),
           found.st_mtim.tv_sec * kNanoseconds + found.st_mtim.tv_nsec};
  return true;
}

int MediaFiles::descriptorFor(const std::string& path) {
  if (const auto found = open_.find(path); found != open_.end()) return found->second;
  // O_NONBLOCK: a pipe could have taken the file's place since it was looked at.
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return descriptor;
  if (open_.size() >= kMaxOpen) close(std::string(order_.front()));
  open_.emplace(path, descriptor);
  order_.push_back(path);
  return descriptor;
}

const std::string& MediaFiles::headOf(const std::string& path, const Stamp& stamp, int descriptor) {
  const auto kept = heads_.find(path);
  if (kept != heads_.end()) return kept->second.bytes;
  std::string bytes(kHeadSize, '\0');
  const ssize_t count = ::pread(descriptor, bytes.data(), bytes.size(), 0);
  bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  return heads_.insert_or_assign(path, Head{stamp, bytes}).first->second.bytes;
}

namespace {

bool hasBackslashes(const std::string& path) { return path.starts_with("\\\\"); }

bool climbs(const std::string& path) { return (path + '/').find("/../") != std::string::npos; }

/// A directory without separators at its end, so that "/media" and "/media/" are one; the root is
/// the empty text.
std::string stemOf(std::string directory) {
  const char* const separators = hasBackslashes(directory) ? "/\\" : "/";
  directory.resize(directory.find_last_not_of(separators) + 1);
  return directory;
}

/// What follows the directory in the path, with the slash before it; nothing when the path does not
/// lie below it.
std::optional<std::string> below(const std::string& path, const std::string& directory) {
  const std::string stem = stemOf(directory);
  if (directory.empty() || !path.starts_with(stem + '/') || climbs(path)) return std::nullopt;
  return path.substr(stem.size());
}

/// The media directory that the path lies below by its text `side`, the longest one; `rest` is what
/// follows it.
const MediaDirectory* longestMatch(const std::string& path, std::string MediaDirectory::*side,
                                   std::string& rest) {
  const MediaDirectory* longest = nullptr;
  for (const MediaDirectory& directory : settings().media) {
    const std::optional<std::string> tail = below(path, mediaKey(directory.*side));
    if (!tail || (longest && tail->size() >= rest.size())) continue;
    longest = &directory;
    rest = *tail;
  }
  return longest;
}

}  // namespace

std::string mediaKey(const std::string& path) {
  std::string key = path;
  if (hasBackslashes(path)) std::replace(key.begin(), key.end(), '\\', '/');
  return key;
}

Cookie materialCookie(const std::string& localPath) {
  // Required as it is, with the cut before the directories are stripped: other stations make the
  // same cookie so.
  const std::string cut = localPath.substr(0, localPath.find('.'));
  return Cookie(utf8Text(stripPath(wideText(cut))).c_str(), true);
}

std::string networkForm(const std::string& localPath) {
  std::string rest;
  const MediaDirectory* const directory = longestMatch(localPath, &MediaDirectory::local, rest);
  if (!directory) return localPath;
  // The network form of a share that is written with backslashes has them throughout.
  if (hasBackslashes(directory->unc)) std::replace(rest.begin(), rest.end(), '/', '\\');
  return stemOf(directory->unc) + rest;
}

std::string localForm(const std::string& networkPath) {
  std::string rest;
  const MediaDirectory* const directory =
      longestMatch(mediaKey(networkPath), &MediaDirectory::unc, rest);
  return directory ? stemOf(directory->local) + rest : networkPath;
}

namespace {

template <typename Key>
void erase(std::map<Key, std::set<std::string>>& index, const Key& key, const std::string& file) {
  const auto found = index.find(key);
  if (found == index.end()) return;
  found->second.erase(file);
  if (found->second.empty()) index.erase(found);
}

}  // namespace

std::string mediaName(const std::string& path) {
  const std::string key = mediaKey(path);
  return key.substr(key.rfind('/') + 1);
}

const MediaFile* MediaTable::find(const std::string& network) const {
  const auto found = files_.find(mediaKey(network));
  return found == files_.end() ? nullptr : &found->second;
}

const MediaFile* MediaTable::mainOf(const MediaFile& file) const {
  return file.proxyOf.empty() ? nullptr : find(file.proxyOf);
}

template <typename Key>
std::vector<MediaFile> MediaTable::lookUp(const Index<Key>& index, const Key& key) const {
  std::vector<MediaFile> files;
  const auto found = index.find(key);
  if (found == index.end()) return files;
  for (const std::string& file : found->second) files.push_back(files_.at(file));
  return files;
}

std::vector<MediaFile> MediaTable::withCookie(const Cookie& cookie) const {
  return lookUp(byCookie_, cookie);
}

std::vector<MediaFile> MediaTable::withName(const std::string& name) const {
  return lookUp(byName_, name);
}

std::vector<MediaFile> MediaTable::proxiesOf(const MediaFile& file) const {
  return lookUp(proxies_, mediaKey(file.network));
}

std::vector<MediaFile> MediaTable::mains() const {
  std::vector<MediaFile> files;
  for (const auto& [key, file] : files_) {
    if (!mainOf(file)) files.push_back(file);
  }
  return files;
}

std::vector<MediaFile> MediaTable::all() const {
  std::vector<MediaFile> files;
  for (const auto& [key, file] : files_) files.push_back(file);
  return files;
}

void MediaTable::insert(const MediaFile& file) {
  remove(file);
  const std::string key = mediaKey(file.network);
  files_[key] = file;
  byCookie_[file.cookie].insert(key);
  byName_[mediaName(file.path)].insert(key);
  if (!file.proxyOf.empty()) proxies_[mediaKey(file.proxyOf)].insert(key);
}

void MediaTable::remove(const MediaFile& file) {
  const std::string key = mediaKey(file.network);
  const auto found = files_.find(key);
  if (found == files_.end()) return;
  // By what the table knows: the caller's `file` may have another name or main file.
  const MediaFile known = found->second;
  erase(byCookie_, known.cookie, key);
  erase(byName_, mediaName(known.path), key);
  erase(proxies_, mediaKey(known.proxyOf), key);
  files_.erase(found);
}

void MediaTable::clear() { *this = MediaTable(); }

}  // namespace korvel

using namespace korvel;

LightweightString<wchar_t> DiskManager::convertLocalToUNC(const MaterialFilename& file) {
  return wideText(networkForm(utf8Text(file.getOsPath())));
}

MaterialFilename DiskManager::convertUNCtoFsysFilename(const LightweightString<wchar_t>& unc) {
  return MaterialFilename(wideText(localForm(utf8Text(unc))));
}

void PlayFileCache::remove(const LightweightString<wchar_t>& osPath) {
  MediaFiles::instance().close(utf8Text(osPath));
}

void Kv::FileReaderResource::clearRequestCache(const LightweightString<wchar_t>& osPath) {
  MediaFiles::instance().dropHead(utf8Text(osPath));
}
