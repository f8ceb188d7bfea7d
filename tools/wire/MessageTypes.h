#pragma once

#include <optional>
#include <string>
#include <vector>

namespace korvel {

/// The type that a number or a name stands for: "2", "eEditSaved", "EditSaved" or "edit-saved".
/// Numbers may be any that the wire can carry.
std::optional<int> messageTypeOf(const std::string& text);

/// The names of the types 1 to 15 as they are typed: "edit-saved".
std::vector<std::string> messageTypeNames();

}  // namespace korvel
