#include "host/ui/ResourceStrings.h"

#include <array>

#include "host/base/Log.h"

namespace korvel {

namespace {

struct ResourceString {
  unsigned number;
  const wchar_t* text;
};

constexpr std::array kStrings{
    ResourceString{12027, L"Messages"},
    ResourceString{12028, L"To"},
};

}  // namespace

}  // namespace korvel

using namespace korvel;

LightweightString<wchar_t> resourceStrW(unsigned number) {
  for (const ResourceString& string : kStrings) {
    if (string.number == number) return string.text;
  }
  Log("The host has no text of the number %u\n", number);
  return {};
}
