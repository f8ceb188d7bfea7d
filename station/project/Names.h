#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "station/base/Result.h"

namespace korvel {

// The names of rooms as file names: every byte that a file name cannot carry everywhere is written
// as "%" and two upper-case hex digits (control characters, "/ \ : * ? " < > | %", a dot at the
// head, a dot or blank at the end). Two names never give the same file name.

/// Escapes any text in this way, and reads it back; empty for a text that was not escaped so.
std::string escapedForFile(const std::string& text);
std::string unescapedFromFile(const std::string& escaped);

/// The file name, without an ending; the refusal says what is wrong with the name.
Result<std::string> roomFileName(const std::string& name);

/// The name that a file name stands for; empty when it stands for none.
std::string roomNameOf(const std::string& fileName);

/// Whether a user may call something (`what`: "project", "edit") by this name: any text of 1 to
/// 1000 bytes without control characters. Slashes and leading dots are allowed, since names stand
/// inside files and are never file names. The refusal says what is wrong with it.
Result<void> checkName(const std::string& what, const std::string& name);

/// Whether the wire can carry the text whole: it holds no byte 0xAC, which separates the fields of
/// a message.
bool travelsWhole(const std::string& text);

/// How many letters of each of these cookies tell it from the others, eight at least: what people
/// read and type.
std::size_t tellingLength(std::vector<std::string> cookies);

}  // namespace korvel
