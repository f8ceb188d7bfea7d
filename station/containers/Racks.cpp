#include "station/containers/Racks.h"

namespace {

Racks* theRacks = nullptr;

}  // namespace

Racks::Racks() : CookieListManager("rack", "B", "racks") { theRacks = this; }

Racks::~Racks() {
  if (theRacks == this) theRacks = nullptr;
}

Racks* Racks::instance() { return theRacks; }

RackManager* RackManager::instance() { return Racks::instance(); }
