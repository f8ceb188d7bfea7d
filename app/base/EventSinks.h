#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "station/base/Events.h"
#include "station/base/Json.h"
#include "station/base/Log.h"
#include "station/base/PipeWriter.h"
#include "station/base/Result.h"
#include "station/seal/AuditLog.h"
#include "station/wire/MessageTable.h"

namespace korvel {

/// Something that happened, as event files show it. One thread at a time.
struct StationEvent {
  std::string name;  ///< "sent", "reply"
  JsonValue value;   ///< an object: "event", "time" and the event's own keys

  /// What line() gives, once it was asked for.
  mutable std::string written{};

  /// The bytes of the datagram that it is about; empty where it is about none. They are turned into
  /// hexadecimal only for a sink that asks.
  std::string datagram{};

  /// The value as one line of JSON, without its end. Made for the first sink that asks.
  [[nodiscard]] const std::string& line() const;

  /// The line with the datagram's own keys.
  [[nodiscard]] std::string wholeLine() const;
};

/// Takes a station's events in the order in which they happen, one at a time, on any thread.
class iEventSink {
 public:
  virtual ~iEventSink() = default;
  virtual void take(const StationEvent& event) = 0;

  /// Whether it does anything with events of this name, always the same. An event that no sink
  /// takes is not made.
  [[nodiscard]] virtual bool takes([[maybe_unused]] std::string_view name) const { return true; }
};

/// Writes each event as one line to a file, a pipe or standard output, at once. What cannot be
/// written (a full disk, a reader that is gone) is told once; then nothing more is written. Calls
/// come one at a time. A file is rotated, and readable by its user alone.
///
/// The station never waits for the reader of a pipe. When the reader stops, up to
/// PipeWriter::kMaxWaiting bytes of events are kept. Further events are dropped: a message says so
/// at once, and a `log` event marks the gap.
class EventFile : public iEventSink {
 public:
  /// Called with a problem, in a sentence. Any thread.
  using Tell = std::function<void(const std::string&)>;

  explicit EventFile(Tell tell) : tell_(std::move(tell)) {}
  EventFile(const EventFile&) = delete;
  EventFile& operator=(const EventFile&) = delete;
  ~EventFile() override;

  /// Opens `path`, emptying a file that is there; "-" is standard output.
  Result<void> open(const std::string& path);

  void take(const StationEvent& event) override;

 private:
  [[nodiscard]] std::string logLine(const std::string& text) const;
  [[nodiscard]] std::string missingLine() const;
  void stopFor(const StationEvent& event);
  void queue(const StationEvent& event);
  void leaveOut(const StationEvent& event);
  void tellBroken(int problem) const;
  void close();

  Tell tell_;
  std::string path_;
  std::unique_ptr<RotatingFile> file_;
  std::unique_ptr<PipeWriter> pipe_;  ///< in the file's stead where somebody reads
  std::uint64_t leftOut_ = 0;         ///< events that no line tells of yet
  JsonValue leftOutTime_;             ///< the time of the last of them
};

/// Keeps what somebody may have to account for in an audit log, and nothing else: `audit` events,
/// with the time, this station's user and its host. What cannot be written is told, once until it
/// can be again. Calls come one at a time.
class AuditFile : public iEventSink {
 public:
  explicit AuditFile(EventFile::Tell tell) : tell_(std::move(tell)) {}

  /// Begins with a record of the station's start. Failure: the log cannot be written.
  Result<void> open(const std::string& path);

  void take(const StationEvent& event) override;
  [[nodiscard]] bool takes(std::string_view name) const override { return name == "audit"; }

 private:
  Result<void> append(const JsonValue& event);

  EventFile::Tell tell_;
  std::optional<AuditLog> log_;
  bool isTold_ = false;
};

/// Wakes the console's thread: for changes that other threads make, and for the end of the program.
/// Any thread.
class Waiter {
 public:
  using Clock = std::chrono::steady_clock;

  Waiter();
  Waiter(const Waiter&) = delete;
  Waiter& operator=(const Waiter&) = delete;
  ~Waiter();

  /// Makes a change under the lock and wakes who waits.
  template <typename Change>
  void change(const Change& make) {
    {
      const std::lock_guard lock(mutex_);
      make();
    }
    changed_.notify_all();
  }

  /// Waits until the condition, asked under the lock, holds; false at the deadline, and at once
  /// when the program is to end.
  template <typename Condition>
  bool await(Clock::time_point deadline, const Condition& condition) {
    std::unique_lock lock(mutex_);
    bool holds = false;
    changed_.wait_until(lock, deadline, [&] { return (holds = condition()) || ending_; });
    return holds;
  }

  /// Asks everything that waits to end.
  void end();

  [[nodiscard]] bool isEnding() const;

  /// A descriptor that is readable once end() was called, to poll beside others.
  [[nodiscard]] int descriptor() const { return descriptor_; }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool ending_ = false;
  int descriptor_ = -1;
};

/// The event that a `wait` command waits for.
struct EventPattern {
  std::string event;  ///< its name

  /// Keys, and the texts that will do for each: a text as it stands, all else as JSON writes it.
  std::vector<std::pair<std::string, std::set<std::string>>> keys;

  [[nodiscard]] bool matches(const JsonValue& value) const;
};

/// The latest events that no `wait` has taken yet, oldest first. Bounded in count and bytes: the
/// oldest are dropped.
class EventHistory : public iEventSink {
 public:
  static constexpr std::size_t kMaxEvents = 20'000;
  static constexpr std::size_t kMaxBytes = 8u << 20;

  explicit EventHistory(Waiter& waiter) : waiter_(waiter) {}

  void take(const StationEvent& event) override;

  /// The oldest event that matches; it will not be found again. Waits for it until the deadline;
  /// nothing when none came, or when the program is to end. Any thread.
  std::optional<JsonValue> await(const EventPattern& pattern, Waiter::Clock::time_point deadline);

 private:
  struct Kept {
    StationEvent event;  ///< without its value, which the line holds
    [[nodiscard]] std::size_t bytes() const { return event.written.size() + event.datagram.size(); }
  };

  std::optional<JsonValue> takeMatch(const EventPattern& pattern, std::size_t& seen);
  void forgetOldest();

  Waiter& waiter_;  ///< its lock guards all below
  std::deque<Kept> kept_;
  std::size_t bytes_ = 0;
  std::size_t forgotten_ = 0;  ///< how many were taken off the front, ever
};

/// Turns what the station tells into events and hands each to every sink.
///
///     {"event":"changed","time":81.204711,"what":"edit","cookie":"E0001",...}
///
/// `time` is in seconds of the machine's monotonic clock, so that the events of several stations on
/// one machine can be put in order. A text that is not UTF-8 is given in hexadecimal under its key
/// with "_hex" appended. A notification of words that another user just sent has that user under
/// `source`. Any thread.
class EventWriter : public iStationEvents {
 public:
  /// Adds a sink, which must outlive this. Before other threads use this.
  void addSink(iEventSink& sink);

  /// Hands out an event with these keys, and the bytes of the datagram that it is about.
  void emit(std::string_view name, std::vector<JsonValue::Member> members,
            const std::string& datagram = {});

  void sent(const std::string& wireText) override;
  void received(const std::string& wireText, const MessageFields& message) override;
  void changed(const std::string& what, const Cookie& cookie, const std::string& how,
               Origin origin) override;
  void log(bool toConsole, const std::string& text) override;
  void command(const std::string& name) override;
  void network(const std::string& problem, std::uint64_t dropped) override;
  void presence(const std::string& how, const JsonValue& station) override;
  void talk(const std::string& event, const std::vector<JsonValue::Member>& members) override;
  void happened(const Happening& happening) override;
  void health(const JsonValue& health) override;
  void audit(const std::string& what, const std::vector<JsonValue::Member>& detail) override;
  void steps(const std::string& undo, const std::string& redo) override;
  void notification(const std::string& text) override;
  void panel(const std::vector<std::string>& lines) override;

 private:
  [[nodiscard]] bool isTaken(std::string_view name) const;

  std::mutex mutex_;
  std::vector<iEventSink*> sinks_;
  MessageFields message_;           ///< the words of a user that came last; host thread
  std::vector<std::string> panel_;  ///< the panel's lines as they were told last; host thread
};

}  // namespace korvel
