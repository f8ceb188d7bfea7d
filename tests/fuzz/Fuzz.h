#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "station/base/Log.h"

/// One input; called by libFuzzer or by the replay.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace korvel {

/// The input as text; assertion reports, which a target expects by the thousand, are not printed.
inline std::string_view inputText(const std::uint8_t* data, std::size_t size) {
  static const bool isQuiet = [] {
    setDiagnosticStream(std::fopen("/dev/null", "w"));
    return true;
  }();
  static_cast<void>(isQuiet);
  return {reinterpret_cast<const char*>(data), size};
}

/// Ends the program unless both texts are the same.
inline void mustBeEqual(const char* what, std::string_view one, std::string_view other) {
  if (one == other) return;
  std::fprintf(stderr, "%s: \"%s\" is not \"%s\"\n", what, std::string(one).c_str(),
               std::string(other).c_str());
  std::abort();
}

}  // namespace korvel
