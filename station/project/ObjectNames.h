#pragma once

#include <string>

#include "station/base/Result.h"

namespace korvel {

/// Whether a user may call something (`what`: "project", "edit") by this name: any text of 1 to
/// 1 000 bytes without control characters, slashes and leading dots included, since names stand
/// inside files and never name one. The refusal says what is wrong with it.
Result<void> checkName(const std::string& what, const std::string& name);

/// Whether the wire can carry the text whole: it holds no byte 0xAC, which separates the fields of
/// a message.
bool travelsWhole(const std::string& text);

}  // namespace korvel
