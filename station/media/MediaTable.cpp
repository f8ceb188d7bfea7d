#include "station/media/MediaTable.h"

#include "station/media/MediaPaths.h"

namespace korvel {

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
  const MediaFile known = found->second;
  erase(byCookie_, known.cookie, key);
  erase(byName_, mediaName(known.path), key);
  erase(proxies_, mediaKey(known.proxyOf), key);
  files_.erase(found);
}

void MediaTable::clear() { *this = MediaTable(); }

}  // namespace korvel
