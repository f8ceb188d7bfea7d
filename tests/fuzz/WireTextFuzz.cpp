#include "ProjectShare/NetMessage.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/support/WireFields.h"

namespace korvel {

// Any text can be read, logged and written; what was read from a text that stations write reads
// back from what they write of it.

namespace {

/// Types that do not read back: none, unknown ones, and transfers, which are read as they are not
/// written.
bool readsBack(const NetMessage& message) {
  return message.type >= NetMessage::eEditModification &&
         message.type <= NetMessage::eFilterModification &&
         message.type != NetMessage::eBinTransfer && message.type != NetMessage::eClipTransfer;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  NetMessage message{LightweightString<char>(inputText(data, size))};
  message.log("Received");
  const LightweightString<char> text = message.asString();
  if (!readsBack(message)) return 0;
  message.source.clear();  // a writer puts its own user there: nobody, here
  mustBeEqual("record", summary(NetMessage(text)), summary(message));
  return 0;
}

}  // namespace korvel
