#include "station/base/HostParts.h"

namespace korvel {

HostParts& hostParts() {
  static HostParts parts;
  return parts;
}

}  // namespace korvel
