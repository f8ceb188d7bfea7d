#pragma once

#include <optional>
#include <string>
#include <vector>

#include "station/base/Json.h"

namespace korvel {

/// The type that a number or a name stands for: "2", "eEditSaved", "EditSaved" or "edit-saved".
/// Numbers may be any that the wire can carry.
std::optional<int> messageTypeOf(const std::string& text);

/// The names of all types as they are typed: "edit-saved".
std::vector<std::string> messageTypeNames();

/// What is said of a text that is no type: which it may have meant.
std::string noSuchMessageType(const std::string& text);

/// What a datagram says, as one object: type, type_name, project, cookie, data, target, source,
/// container, modification, valid, warnings, and where it is sealed "seal". The texts are the
/// fields as they stand on the wire.
JsonValue describeMessage(const std::string& datagram);

/// What stations make of a datagram that is not what it should be, a sentence each.
std::vector<std::string> warningsAbout(const std::string& wireText);

}  // namespace korvel
