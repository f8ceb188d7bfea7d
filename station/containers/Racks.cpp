#include "station/containers/Racks.h"

using namespace korvel;

namespace korvel {

namespace {

Racks* theRacks = nullptr;

}  // namespace

Racks::Racks() : CookieListManager("rack", "B", "racks") { theRacks = this; }

Racks::~Racks() {
  if (theRacks == this) theRacks = nullptr;
}

Racks* Racks::instance() { return theRacks; }

}  // namespace korvel

RackManager* RackManager::instance() { return Racks::instance(); }
