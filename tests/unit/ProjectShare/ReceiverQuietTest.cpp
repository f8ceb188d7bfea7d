#include <gtest/gtest.h>

#include "ProjectShare/Receiver.h"
#include "tests/fakes/FakeHost.h"
#include "tests/support/WireFields.h"

using namespace korvel;

// A program of its own: whether incoming messages are logged is read once a process, and here it is
// not wanted.

namespace {

using ProjectSharing::Receiver;

TEST(ReceiverQuiet, IncomingMessagesAreNotLoggedUnlessTheConfigurationAsksForItFirst) {
  FakeHost host;
  const Kv::Ptr<Receiver> receiver(new Receiver);
  host.network.deliver("xyz");  // no message: nothing is read yet
  host.network.deliver(wire("d|3|P0001|E0001|"));
  host.configure("log_incoming_net_messages", "1");
  host.network.deliver(wire("d|3|P0001|E0001|"));
  EXPECT_EQ(host.logLines, std::vector<std::string>{});
}

}  // namespace
