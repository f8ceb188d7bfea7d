#pragma once

#include <string>
#include <vector>

#include "station/base/Json.h"
#include "station/wire/MessageFields.h"

namespace korvel {

/// The keys under which an event shows a message: type, type_name, project, cookie, target and data
/// always; source, modification and container where the message has them.
std::vector<JsonValue::Member> messageMembers(const MessageFields& message);

/// The keys under which an event shows a datagram's bytes: text_hex, of kMostHexBytes at most, and
/// text_bytes with the whole number where there are more.
std::vector<JsonValue::Member> datagramMembers(const std::string& wireText);

inline constexpr std::size_t kMostHexBytes = 2048;

}  // namespace korvel
