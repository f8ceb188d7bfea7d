#pragma once

#include <string>
#include <vector>

#include "station/base/Json.h"

namespace korvel {

/// What a datagram says, as one object: type, type_name, project, cookie, data, target, source,
/// container, modification, valid, warnings. The texts are the fields as they stand on the wire.
JsonValue describeMessage(const std::string& wireText);

/// What stations make of a datagram that is not what it should be, a sentence each.
std::vector<std::string> warningsAbout(const std::string& wireText);

}  // namespace korvel
