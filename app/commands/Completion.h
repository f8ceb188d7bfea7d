#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "app/commands/Command.h"

namespace korvel {

/// What may stand in place of the last word of a line being typed: the next words of commands, or,
/// behind a whole command, the cookies and names (quoted where need be) of `objects`. In order,
/// each once.
std::vector<std::string> completions(std::string_view line, const CommandTable& table,
                                     const std::vector<std::string>& objects);

/// The last word of a line being typed, as it stands there, its opening quote included.
std::string_view lastWord(std::string_view line);

/// The longest text with which all candidates begin.
std::string commonBeginning(const std::vector<std::string>& candidates);

}  // namespace korvel
