#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/bench/PeerProcess.h"
#include "tests/bench/peer/Board.h"

namespace korvel {

/// One way in which messages get from process to process.
struct Transport {
  std::string name;
  std::string program;  ///< the path of its peer's program
  std::string kind{};   ///< of peer, where that program is several
};

/// A sender and its receivers, each a process of its own, that all use one transport. They idle
/// between measurements.
class PeerGroup {
 public:
  /// `folder` is the peers' shared one; the group's own page lies in it.
  PeerGroup(Transport transport, std::string folder, int port);

  [[nodiscard]] const std::string& name() const { return transport_.name; }

  /// Starts receivers until there are so many, and waits until each hears the sender; false when
  /// that did not come about.
  bool growTo(std::size_t receivers);

  /// The seconds that each of `count` messages took to each receiver, one message every
  /// `interval` seconds; nothing when one was lost.
  std::optional<std::vector<double>> latencies(std::uint32_t count, double interval);

  /// Messages a second, from the first that is sent to the last that the last receiver takes, of
  /// `count` sent as fast as none is lost; nothing when some were lost at every pace tried.
  std::optional<double> rate(std::uint32_t count);

 private:
  struct Burst {
    std::uint32_t lost;
    double perSecond;  ///< what the slowest receiver took
  };

  bool start();
  std::optional<Burst> send(std::uint32_t count, double interval);
  [[nodiscard]] std::uint32_t fewestReceived() const;
  void waitForArrivals(std::uint32_t count) const;

  Transport transport_;
  std::string folder_;
  int port_;
  std::string boardFile_;
  SharedBoard board_;
  std::vector<std::unique_ptr<PeerProcess>> peers_;  ///< the first sends
  double interval_ = 0;  ///< the shortest between messages at which none was lost
};

}  // namespace korvel
