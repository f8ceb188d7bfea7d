#include "station/base/Strings.h"
#include "station/edit/EditSummary.h"
#include "station/edit/OtioDocument.h"
#include "tests/fuzz/Fuzz.h"

namespace korvel {

// An edit's file from elsewhere: what can be opened is listed too, its export gives back what it
// was, and every clip with a frame rate can be trimmed.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes = inputText(data, size);
  const auto summary = readEditSummary(std::string(bytes));
  auto document = OtioDocument::parse(bytes);
  if (!document) return 0;
  mustBeEqual("summary", summary ? "read" : summary.error().message, "read");
  const JsonValue before = document->json();
  document->adopt(2, "fuzz");
  document->setSetting("OWNER", "ANNA");
  const auto again = OtioDocument::parse(document->text());
  mustBeEqual("owner", again ? again->setting("OWNER") : again.error().message, "ANNA");
  const auto exported = parseJson(again->exportedText());
  mustBeEqual("export", exported && *exported == before ? "same" : "other", "same");
  for (const ClipInfo& clip : listClips(document->json())) {
    const bool isTrimmed = static_cast<bool>(trimClip(document->json(), clip.path, {0, 1}));
    mustBeEqual("trim", isTrimmed ? "trimmed" : "refused", clip.rate > 0 ? "trimmed" : "refused");
  }
  return 0;
}

}  // namespace korvel
