#include "station/containers/Bins.h"

#include "station/base/Strings.h"
#include "station/project/ProjectFolder.h"
#include "station/project/Records.h"

using namespace korvel;

namespace korvel {

namespace {

Bins* theBins = nullptr;

}  // namespace

Bins::Bins() : CookieListManager("bin", "GM", "bins") { theBins = this; }

Bins::~Bins() {
  if (theBins == this) theBins = nullptr;
}

Bins* Bins::instance() { return theBins; }

}  // namespace korvel

BinManager* BinManager::instance() { return Bins::instance(); }

LightweightString<wchar_t> getFileNameForLogGroup(const Cookie& cookie,
                                                  const LightweightString<wchar_t>& /*name*/,
                                                  const Cookie& project) {
  if (!project.isNull()) return wideText(recordPath(projectFolder(project), cookie));
  const Bins* const bins = Bins::instance();
  return bins ? wideText(bins->fileOf(cookie)) : LightweightString<wchar_t>();
}
