#include "host/media/DiskManager.h"

#include "station/base/Strings.h"
#include "station/media/MediaFiles.h"
#include "station/media/MediaPaths.h"

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
