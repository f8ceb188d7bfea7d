#pragma once

#include <optional>
#include <string>
#include <vector>

namespace korvel {

/// The type that a number or a name stands for: "2", "eEditSaved", "EditSaved" or "edit-saved".
/// Numbers may be any that the wire can carry.
std::optional<int> messageTypeOf(const std::string& text);

/// The names of all types as they are typed: "edit-saved".
std::vector<std::string> messageTypeNames();

/// What is said of a text that is no type: which it may have meant.
std::string noSuchMessageType(const std::string& text);

}  // namespace korvel
