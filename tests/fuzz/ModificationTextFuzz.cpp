#include "host/edit/EditModification.h"
#include "tests/fuzz/Fuzz.h"

namespace korvel {

// Whatever a modification was read from, its text form reads back and stays within ASCII.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const EditModification read{LightweightString<char>(inputText(data, size))};
  const LightweightString<char> text = read.asString();
  for (const char byte : text.view()) {
    if (byte < 0x21 || byte > 0x7E) mustBeEqual("text form", text.view(), "ASCII");
  }
  const EditModification again(text);
  mustBeEqual("text form", again.asString().view(), text.view());
  mustBeEqual("subject", again.subject_.view(), read.subject_.view());
  mustBeEqual("value", again.value_.view(), read.value_.view());
  return 0;
}

}  // namespace korvel
