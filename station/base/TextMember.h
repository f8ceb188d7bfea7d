#pragma once

#include <string>

#include "station/base/Json.h"

namespace korvel {

/// Bytes as lower-case hexadecimal digits, two a byte.
std::string hexText(const std::string& bytes);

/// The bytes that hexText() wrote; digits that are none end them.
std::string bytesOfHex(const std::string& hex);

/// A key with a text, or the key with "_hex" appended and the bytes in hexadecimal where the text
/// is not UTF-8.
JsonValue::Member textMember(const std::string& key, const std::string& text);

}  // namespace korvel
