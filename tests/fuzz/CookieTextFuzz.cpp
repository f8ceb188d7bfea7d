#include "host/base/Cookie.h"
#include "tests/fuzz/Fuzz.h"

namespace korvel {

// A cookie's text form is the only text that gives the cookie, and any text names some cookie.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(inputText(data, size));
  const Cookie read(text.c_str(), false);
  if (!read.isNull()) mustBeEqual("text form", read.asString(false).view(), text.c_str());
  const std::string named = Cookie(text.c_str(), true).asString(false).str();
  mustBeEqual("named cookie", Cookie(named.c_str(), false).asString(false).view(), named);
  if (named.empty()) mustBeEqual("a name's cookie", "null", text);
  return 0;
}

}  // namespace korvel
