#include "station/containers/Bins.h"

#include "station/base/HostParts.h"
#include "station/base/Strings.h"
#include "station/project/ProjectFolder.h"
#include "station/project/Records.h"

using namespace korvel;

namespace korvel {

Bins::Bins() : CookieListManager("bin", "GM", "bins") {}

Bins::~Bins() = default;

}  // namespace korvel

BinManager* BinManager::instance() { return hostParts().bins; }

LightweightString<wchar_t> getFileNameForLogGroup(const Cookie& cookie,
                                                  const LightweightString<wchar_t>& /*name*/,
                                                  const Cookie& project) {
  if (!project.isNull()) return wideText(recordPath(projectFolder(project), cookie));
  const Bins* const bins = hostParts().bins;
  return bins ? wideText(bins->fileOf(cookie)) : LightweightString<wchar_t>();
}
