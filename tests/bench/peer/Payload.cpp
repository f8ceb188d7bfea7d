#include "tests/bench/peer/Payload.h"

#include <charconv>
#include <cstdio>

namespace korvel {

namespace {

constexpr std::size_t kDigits = 8;

std::uint32_t hexAtEnd(std::string_view text) {
  if (text.size() < kDigits) return 0;
  std::uint32_t number = 0;
  std::from_chars(text.data() + text.size() - kDigits, text.data() + text.size(), number, 16);
  return number;
}

}  // namespace

std::string benchEdit(std::uint32_t number) {
  char text[40];
  std::snprintf(text, sizeof text, "E9a0000000000000000000001%08x", number);
  return text;
}

std::string benchTrim(std::uint32_t number) {
  return "1;" + std::to_string(number) + ";" + std::to_string(number + 1) + ";0%2F" +
         std::to_string(number % kBenchClips) + ";";
}

std::string payloadOf(std::uint32_t number) {
  std::string text = "d\xAC";
  text += "2\xAC";
  return text + kBenchProject + '\xAC' + benchEdit(number) + '\xAC';
}

std::uint32_t numberOf(std::string_view payload) {
  if (!payload.empty()) payload.remove_suffix(1);
  return hexAtEnd(payload);
}

std::uint32_t numberOfEdit(std::string_view cookie) { return hexAtEnd(cookie); }

}  // namespace korvel
