#include "station/containers/Racks.h"

namespace {

Racks* instance_ = nullptr;

}  // namespace

Racks::Racks() : CookieListManager("rack", "B", "racks") { instance_ = this; }

Racks::~Racks() {
  if (instance_ == this) instance_ = nullptr;
}

Racks* Racks::instance() { return instance_; }

RackManager* RackManager::instance() { return Racks::instance(); }
