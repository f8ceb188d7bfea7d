#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace korvel {

/// Tells a network problem, as an event and as a line of the log. Any thread.
void tellNetworkProblem(const std::string& problem, std::uint64_t dropped = 0);

/// The problems of sending: each is told once until it changes, so that a cable that is out does
/// not fill the log. Any thread.
class SendErrors {
 public:
  /// A datagram for `destination` did not leave, for the reason in `problem`. Told when it differs
  /// from the last one of this destination, counted otherwise.
  void failed(const std::string& destination, const std::string& problem);

  /// Whether any destination has a problem that is not over.
  [[nodiscard]] bool areThere() const { return areThere_; }

  /// A datagram left; tells that it works again, and how many were lost without a word meanwhile.
  void succeeded(const std::string& destination);

 private:
  struct State {
    std::string told;
    std::uint64_t untold = 0;  ///< datagrams lost since
  };

  std::mutex mutex_;
  std::map<std::string, State> states_;
  std::atomic<bool> areThere_{false};
};

}  // namespace korvel
