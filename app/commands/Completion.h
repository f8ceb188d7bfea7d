#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "app/commands/Command.h"

namespace korvel {

/// Gives what an argument may be, by how the command's usage calls it: "E", "P", "USER".
using Candidates = std::function<std::vector<std::string>(const std::string& argument)>;

/// What may stand in place of the last word of a line being typed: the next words of commands, or,
/// behind a whole command, files for a FILE and else what `candidates` gives, quoted where need be.
/// In order, each once.
std::vector<std::string> completions(std::string_view line, const CommandTable& table,
                                     const Candidates& candidates);

/// The last word of a line being typed, as it stands there, its opening quote included.
std::string_view lastWord(std::string_view line);

/// The longest text with which all candidates begin.
std::string commonBeginning(const std::vector<std::string>& candidates);

}  // namespace korvel
