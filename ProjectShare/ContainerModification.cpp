#include "ProjectShare/ContainerModification.h"

#include <cstdlib>
#include <string>

#include "host/base/Log.h"

ContainerModification::ContainerModification(const LightweightString<char>& text)
    : value_(static_cast<std::uint32_t>(std::strtol(text.c_str(), nullptr, 10))),
      valid_(value_ <= eDestroyed) {
  // Required: a fixed place, which readers of logs know; not this file and line.
  if (!valid_) assertionFailed("valid_", "ProjectShare/NetMessage line 31");
}

LightweightString<char> ContainerModification::asString() const {
  return LightweightString<char>(std::to_string(value_));
}
