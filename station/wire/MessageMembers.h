#pragma once

#include <string>
#include <vector>

#include "station/base/Json.h"

namespace korvel {

/// The keys under which an event shows a datagram: type, type_name, project, cookie, target, data
/// and text_hex always; source, modification and container where the message has them.
std::vector<JsonValue::Member> messageMembers(const std::string& wireText);

}  // namespace korvel
