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

/// Numbers of missed messages, by cause.
struct MissedMessages {
  std::uint64_t bySystem = 0;  ///< the system's buffer was full
  std::uint64_t byQueue = 0;   ///< the reader of the output, or the disk, was too slow

  [[nodiscard]] std::uint64_t total() const { return bySystem + byQueue; }
};

/// Bounded queue from the capture thread to the output; counts the messages that it drops, and
/// keeps the reason why the capture failed. Any thread.
class CaptureQueue {
 public:
  /// Bytes that may wait.
  static constexpr std::size_t kMaxWaiting = 64u << 20;

  /// Adds a message. Never blocks: without room, the message is dropped and counted as missed.
  void add(HeardMessage message);

  /// Sets the number of messages that the system has dropped since the start.
  void systemDropped(std::uint64_t total) { bySystem_ = total; }

  /// Reports that the capture has failed: no more messages come.
  void fail(std::string problem);

  /// Takes all waiting messages. Without any, waits for the first as long as the limit; wake() and
  /// fail() end the wait.
  std::vector<HeardMessage> take(std::chrono::milliseconds limit);

  void wake();

  [[nodiscard]] MissedMessages missed() const { return {bySystem_, byQueue_}; }

  /// The reason given to fail(); empty while the capture runs.
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

/// Receives the messages of a network on a thread of its own until it is destroyed.
class iCaptureSource {
 public:
  virtual ~iCaptureSource() = default;

  /// How it receives, for people: "port 27015, beside the stations of this machine".
  [[nodiscard]] virtual std::string manner() const = 0;

  /// Takes the messages that came until now, counts those that the system dropped, and ends.
  virtual void finish() = 0;
};

/// Where and how to receive.
struct Hearing {
  int port = kDefaultPort;
  std::string listen =
      "0.0.0.0";              ///< all, a multicast or broadcast address, or one of this machine
  bool onlyCaptures = false;  ///< capture packets even where the port could be shared
};

/// Shares the stations' port. Where another program holds it without sharing, captures the packets
/// instead. Messages go to `queue`, which must outlive the source.
Result<std::unique_ptr<iCaptureSource>> openEar(const Hearing& hearing, CaptureQueue& queue);

/// Shares the stations' port without taking datagrams from a station. A multicast address is
/// joined. An address of this machine stands for the network that it is in.
Result<std::unique_ptr<iCaptureSource>> sharePort(const Hearing& hearing, CaptureQueue& queue);

/// Captures the packets of all networks. Needs the right to capture.
Result<std::unique_ptr<iCaptureSource>> capturePackets(const Hearing& hearing, CaptureQueue& queue);

/// The messages that a command receives, and its end.
struct ListenRequest {
  Hearing hearing;
  FilterWords filter;
  std::uint64_t count = 0;  ///< messages after which it ends; 0 for never
  double seconds = 0;       ///< time after which it ends; 0 for never
};

/// Declares the options that monitor and record have in common: filter, place and end.
void declareListening(CommandOptions& options, ListenRequest& request);

/// The end of the help of both.
inline constexpr const char* kBesideStations =
    "Shares the port with the stations of this machine and takes nothing from them: a datagram to\n"
    "this machine alone goes to one program, a station where there is one, and is not heard here\n"
    "without --capture. Where another program holds the port, packets are captured.\n";

/// Takes messages as they arrive. One thread.
class iHeardSink {
 public:
  virtual ~iHeardSink() = default;

  /// The capture begins, in this manner. A failure ends it at once.
  virtual Result<void> begin(const std::string& manner) = 0;

  /// A message that passed the filter. A failure ends the capture.
  virtual Result<void> take(const HeardMessage& message, const MessageFields& fields) = 0;

  /// A copy of a message that has already come over another network.
  virtual Result<void> takeCopy(const HeardMessage& message) = 0;

  /// Called when no message waits, a few times a second at least. False ends the capture.
  virtual bool pause(const MissedMessages& missed) = 0;
};

/// Receives messages until the request's limit, SIGINT, SIGTERM, SIGHUP or the sink ends it.
/// Returns the number of messages that passed the filter. The failure is eUsage or eNoRights before
/// anything was received. Call it once in a process: it takes those signals for the whole program.
Result<std::uint64_t> listen(const ListenRequest& request, iHeardSink& sink);

/// Now, in nanoseconds since 1970, UTC.
std::int64_t wallClock();

}  // namespace korvel
