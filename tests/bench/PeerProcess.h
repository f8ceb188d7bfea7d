#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace korvel {

/// A program that the measurements start, speak to line by line, and end. The process never
/// outlives the object.
class PeerProcess {
 public:
  using Clock = std::chrono::steady_clock;

  explicit PeerProcess(std::vector<std::string> words);
  PeerProcess(PeerProcess&& other) noexcept;
  PeerProcess(const PeerProcess&) = delete;
  PeerProcess& operator=(const PeerProcess&) = delete;
  ~PeerProcess();

  /// When the process was begun.
  [[nodiscard]] Clock::time_point started() const { return started_; }

  [[nodiscard]] pid_t pid() const { return pid_; }

  void write(const std::string& line) const;

  /// The next line of its output; nothing at its end, or when none came within the time.
  std::optional<std::string> readLine(std::chrono::milliseconds limit = std::chrono::seconds(20));

  /// Ends its input and waits for its end (it is killed after five seconds); whether its exit
  /// status was 0.
  bool finish();

 private:
  pid_t pid_ = -1;
  int input_ = -1;
  int output_ = -1;
  Clock::time_point started_;
  std::string pending_;
};

}  // namespace korvel
