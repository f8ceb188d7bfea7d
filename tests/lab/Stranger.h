#pragma once

#include <atomic>
#include <memory>
#include <thread>

#include "tests/lab/Facility.h"

namespace korvel {

/// A foreign program on a network that floods the stations' port with what is no message, from its
/// construction on: random bytes, cut and overlong texts, messages of unknown types and of a
/// project that nobody has open, empty datagrams and the largest.
class Stranger {
 public:
  /// On a machine that joins `network`; about `rate` datagrams a second.
  Stranger(Facility& facility, Network& network, int rate);
  Stranger(const Stranger&) = delete;
  Stranger& operator=(const Stranger&) = delete;
  ~Stranger();

  /// Stops, and says how many datagrams left.
  std::size_t stop();

 private:
  void flood(int rate);

  Space space_{"STRANGER"};
  std::unique_ptr<Cable> cable_;
  int socket_ = -1;
  std::atomic<bool> isOver_{false};
  std::size_t sent_ = 0;
  std::thread thread_;
};

}  // namespace korvel
