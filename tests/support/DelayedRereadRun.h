#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "station/base/Events.h"
#include "station/base/HostThread.h"
#include "station/project/DelayedReread.h"

namespace korvel {

/// Late looks of a test, soon after the message, and the host thread on which they are made.
class DelayedRereadRun {
 public:
  /// Makes the looks that were arranged: all that are due when one arranged now has been made
  /// twice.
  void finish() {
    int made = 0;
    {
      const RemoteChangeScope remote;
      DelayedReread::arrange("~ the last of all", [&made] { ++made; });
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (made < 2 && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      thread.runPending();
    }
    EXPECT_EQ(made, 2);
  }

  HostThread thread;
  DelayedReread looks{thread, {std::chrono::milliseconds(1), std::chrono::milliseconds(4)}};
};

}  // namespace korvel
