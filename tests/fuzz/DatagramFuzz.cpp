#include "ProjectShare/Broadcaster.h"
#include "ProjectShare/Receiver.h"
#include "tests/fakes/FakeHost.h"
#include "tests/fuzz/Fuzz.h"

namespace korvel {

// Any datagram can be received, and none makes a station send one. The record is read as in
// WireTextFuzz; here it is applied.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FakeHost host;
  host.edits.add(Cookie("E0001", false));
  host.edits.openHere = {"E0001"};
  host.files.put("/projects/P0001/E0001.otio", "");
  const Kv::Ptr<ProjectSharing::Broadcaster> broadcaster(new ProjectSharing::Broadcaster);
  const Kv::Ptr<ProjectSharing::Receiver> receiver(new ProjectSharing::Receiver);
  host.network.deliver(inputText(data, size));
  mustBeEqual("sent", std::to_string(host.network.sent.size()), "0");
  for (const std::string& line : host.logLines) {
    if (line.rfind("both: Project Share: ", 0) == 0) mustBeEqual("exception", line, "none");
  }
  return 0;
}

}  // namespace korvel
