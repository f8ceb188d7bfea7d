#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "station/base/Result.h"
#include "station/base/StationSettings.h"
#include "tools/capture/HeardMessage.h"

namespace korvel {

/// The messages that were not heard, by why.
struct MissedMessages {
  std::uint64_t bySystem = 0;  ///< the system's buffer was full
  std::uint64_t byQueue = 0;   ///< what reads the output, or the disk, was too slow

  [[nodiscard]] std::uint64_t total() const { return bySystem + byQueue; }
};

/// Messages on their way from the thread that hears them to the one that shows them, and what went
/// wrong on that way. Bounded. Any thread.
class CaptureQueue {
 public:
  /// How many bytes wait at most.
  static constexpr std::size_t kMaxWaiting = 64u << 20;

  /// Adds a message; where there is no room, it is missed.
  void add(HeardMessage message);

  /// How many the system has dropped so far.
  void systemDropped(std::uint64_t total) { bySystem_ = total; }

  /// Nothing more is heard, for this reason.
  void fail(std::string problem);

  /// Takes all that waits, after waiting for some as long as the limit; wake() ends the wait.
  std::vector<HeardMessage> take(std::chrono::milliseconds limit);

  void wake();

  [[nodiscard]] MissedMessages missed() const { return {bySystem_, byQueue_}; }

  /// Why nothing more is heard; empty while all is well.
  [[nodiscard]] std::string problem() const;

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<HeardMessage> waiting_;
  std::size_t bytes_ = 0;
  std::string problem_;
  bool isWoken_ = false;
  std::atomic<std::uint64_t> bySystem_{0};
  std::atomic<std::uint64_t> byQueue_{0};
};

/// Hears the messages of a network on a thread of its own until it is destroyed.
class iCaptureSource {
 public:
  virtual ~iCaptureSource() = default;

  /// How it hears, for people: "port 27015, beside the stations of this machine".
  [[nodiscard]] virtual std::string manner() const = 0;

  /// Takes what came until now, counts what the system dropped, and hears no more.
  virtual void finish() = 0;
};

/// Where to hear, and how.
struct Hearing {
  int port = kDefaultPort;
  std::string listen =
      "0.0.0.0";              ///< all, a multicast or broadcast address, or one of this machine
  bool onlyCaptures = false;  ///< capture packets even where the port could be shared
};

/// Shares the stations' port. Where another program holds it without sharing, captures the packets
/// instead. The ear hands what it hears to `queue`, which must outlive it.
Result<std::unique_ptr<iCaptureSource>> openEar(const Hearing& hearing, CaptureQueue& queue);

/// Shares the stations' port, and takes nothing from them. A multicast address is joined; an
/// address of this machine stands for the network that it is in.
Result<std::unique_ptr<iCaptureSource>> sharePort(const Hearing& hearing, CaptureQueue& queue);

/// Captures the packets of all networks, which takes the right to do so.
Result<std::unique_ptr<iCaptureSource>> capturePackets(const Hearing& hearing, CaptureQueue& queue);

/// What a command hears, and when it ends by itself.
struct ListenRequest {
  Hearing hearing;
  FilterWords filter;
  std::uint64_t count = 0;  ///< messages after which it ends; 0 for never
  double seconds = 0;       ///< time after which it ends; 0 for never
};

/// Declares what monitor and record have in common: which messages, where, and until when.
void declareListening(CommandOptions& options, ListenRequest& request);

/// How both hear, for the end of their help.
inline constexpr const char* kBesideStations =
    "Shares the port with the stations of this machine and takes nothing from them: a datagram to\n"
    "this machine alone goes to one program, a station where there is one, and is not heard here\n"
    "without --capture. Where another program holds the port, packets are captured.\n";

/// Takes what is heard. One thread.
class iHeardSink {
 public:
  virtual ~iHeardSink() = default;

  /// Hearing begins, in this manner. A failure ends it at once.
  virtual Result<void> begin(const std::string& manner) = 0;

  /// A message that is meant. A failure ends the hearing.
  virtual Result<void> take(const HeardMessage& message, const MessageFields& fields) = 0;

  /// A copy of a message that came already over another network.
  virtual Result<void> takeCopy(const HeardMessage& message) = 0;

  /// What was there is taken; a few times a second at least. False ends the hearing.
  virtual bool pause(const MissedMessages& missed) = 0;
};

/// Hears messages until the request's end, SIGINT, SIGTERM, SIGHUP or the sink ends it. How many
/// were meant; the failure says what went wrong (eUsage and eNoRights before anything was heard).
/// Once a process: it takes those signals for the whole program.
Result<std::uint64_t> listen(const ListenRequest& request, iHeardSink& sink);

/// Now, in nanoseconds since 1970, UTC.
std::int64_t wallClock();

}  // namespace korvel
