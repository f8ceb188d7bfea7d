#pragma once

#include <optional>
#include <string>
#include <vector>

#include "station/base/Json.h"

namespace korvel {

/// The message type for a number or a name: "2", "eEditSaved", "EditSaved" or "edit-saved". Any
/// number that the wire can carry is taken.
std::optional<int> messageTypeOf(const std::string& text);

/// The names of all types as users type them: "edit-saved".
std::vector<std::string> messageTypeNames();

/// The error for a text that names no type; suggests the nearest one.
std::string noSuchMessageType(const std::string& text);

/// Describes a datagram as one object: type, type_name, project, cookie, data, target, source,
/// container, modification, valid, warnings, and "seal" where it is sealed. The texts are the
/// fields as they stand on the wire.
JsonValue describeMessage(const std::string& datagram);

/// How stations read a datagram that breaks the format, a sentence for each fault.
std::vector<std::string> warningsAbout(const std::string& wireText);

}  // namespace korvel
