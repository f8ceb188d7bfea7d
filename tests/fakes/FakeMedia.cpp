#include "tests/fakes/FakeMedia.h"

#include "host/base/Text.h"
#include "tests/fakes/FakeHost.h"

using namespace korvel;

const NotifyMsgType SystemCache::fileAddedMsgType_ = 301;
const NotifyMsgType SystemCache::fileRemovedMsgType_ = 302;
const NotifyMsgType SystemCache::proxyAddedMsgType_ = 303;
const NotifyMsgType SystemCache::proxyRemovedMsgType_ = 304;

SystemCache& SystemCache::instance() { return FakeHost::current().media; }

namespace korvel {

void FakeMedia::addFile(const Cookie& cookie, const MaterialFilename& file, bool isProxy) {
  journal_.did("SystemCache::addFile", {cookie, file.getPath(), isProxy});
}

void FakeMedia::removeFile(const Cookie& cookie, bool isProxy, int what) {
  journal_.did("SystemCache::removeFile", {cookie, isProxy, what});
}

}  // namespace korvel

LightweightString<wchar_t> DiskManager::convertLocalToUNC(const MaterialFilename& file) {
  const std::string path = toUTF8(file.getPath()).str();
  for (const auto& [local, unc] : FakeHost::current().media.directories)
    if (path.rfind(local + "/", 0) == 0) return fromUTF8((unc + path.substr(local.size())).c_str());
  return file.getPath();
}

MaterialFilename DiskManager::convertUNCtoFsysFilename(const LightweightString<wchar_t>& unc) {
  const std::string path = toUTF8(unc).str();
  for (const auto& [local, network] : FakeHost::current().media.directories)
    if (path.rfind(network + "/", 0) == 0)
      return MaterialFilename(fromUTF8((local + path.substr(network.size())).c_str()));
  return MaterialFilename(unc);
}

void PlayFileCache::remove(const LightweightString<wchar_t>& osPath) {
  FakeHost::current().journal.did("PlayFileCache::remove", {osPath});
}

void Kv::FileReaderResource::clearRequestCache(const LightweightString<wchar_t>& osPath) {
  FakeHost::current().journal.did("FileReaderResource::clearRequestCache", {osPath});
}
