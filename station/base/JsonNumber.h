#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace korvel {

// The spellings of JSON numbers, which include NaN, Inf and Infinity here.

/// How many characters at the head of `text` are one number; 0 when it does not begin with one.
std::size_t numberLength(std::string_view text);

/// Whether a number is spelled without fraction and exponent, and is neither NaN nor infinite.
bool isWholeNumber(std::string_view spelling);

/// Whether two spellings name the same number exactly, of the same kind: "1" and "1.0" differ,
/// "1.0" and "10e-1" do not, nor do "Inf" and "Infinity", nor two NaN. Zero and negative zero
/// differ.
bool sameNumber(std::string_view a, std::string_view b);

/// The shortest spelling that reads back the same double; never that of a whole number.
std::string spellDouble(double value);

}  // namespace korvel
