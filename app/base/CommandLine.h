#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "station/base/Result.h"

namespace korvel {

/// Splits a line into words as a shell does. Blanks separate words; 'single quotes' keep everything
/// as it stands; "double quotes" keep everything but \" and \\; a backslash outside quotes takes
/// the next character as it stands; ~ at the beginning of a word, alone or before a /, is the
/// user's own folder; # at the beginning of a word starts a comment. A line without
/// words gives none. A quote that is never closed, and a backslash at the end, are eUsage errors
/// that name the column.
Result<std::vector<std::string>> splitCommandLine(std::string_view line);

/// The word as it must be typed for splitCommandLine to give it back: quoted where need be.
std::string quotedWord(std::string_view word);

}  // namespace korvel
