#include "station/containers/Racks.h"

#include "station/base/HostParts.h"

using namespace korvel;

namespace korvel {

Racks::Racks() : CookieListManager("rack", "B", "racks") {}

Racks::~Racks() = default;

}  // namespace korvel

RackManager* RackManager::instance() { return hostParts().racks; }
