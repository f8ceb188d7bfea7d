#include "station/project/ObjectNames.h"

#include "station/base/Strings.h"
#include "station/wire/MessageType.h"

namespace korvel {

namespace {

constexpr std::size_t kLongestName = 1000;

bool hasControlCharacter(const std::string& name) {
  const LightweightString<wchar_t> wide = wideText(name);
  for (const wchar_t letter : wide.view()) {
    if (letter < 0x20 || (letter >= 0x7F && letter < 0xA0)) return true;
  }
  return false;
}

}  // namespace

Result<void> checkName(const std::string& what, const std::string& name) {
  if (name.empty()) return Error{ErrorCode::eUsage, "The " + what + " needs a name.", {}};
  if (name.size() > kLongestName) {
    return Error{ErrorCode::eUsage,
                 "The name of the " + what + " has " + std::to_string(name.size()) +
                     " bytes; at most " + std::to_string(kLongestName) + " are possible.",
                 {}};
  }
  if (hasControlCharacter(name)) {
    return Error{ErrorCode::eUsage,
                 "The name of the " + what + ", \"" + shownText(name) +
                     "\", holds control characters (shown as \"?\"); leave them out.",
                 {}};
  }
  return {};
}

bool travelsWhole(const std::string& text) {
  return text.find(kFieldSeparator) == std::string::npos;
}

}  // namespace korvel
