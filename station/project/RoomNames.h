#pragma once

#include <string>

#include "station/base/Result.h"

namespace korvel {

// The names of rooms as file names: every byte that a file name cannot carry everywhere is written
// as "%" and two upper-case hex digits (control characters, "/ \ : * ? " < > | %", a dot at the
// head, a dot or blank at the end). Two names never give the same file name.

/// Any text so written, and what was so written; empty where a text cannot have been.
std::string escapedForFile(const std::string& text);
std::string unescapedFromFile(const std::string& escaped);

/// The file name, without an ending; the refusal says what is wrong with the name.
Result<std::string> roomFileName(const std::string& name);

/// The name that a file name stands for; empty when it stands for none.
std::string roomNameOf(const std::string& fileName);

}  // namespace korvel
