#include "tools/capture/Replay.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <limits>
#include <mutex>
#include <optional>
#include <utility>

#include "station/base/Json.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/net/Interfaces.h"
#include "station/net/ListenerSocket.h"
#include "station/net/UdpBroadcaster.h"
#include "station/os/HostOS.h"
#include "station/wire/MessageTable.h"
#include "tools/capture/CaptureFile.h"
#include "tools/capture/HeardMessage.h"
#include "tools/capture/MessageLine.h"

namespace korvel {

namespace {

constexpr double kNanosecondsAMillisecond = 1e6;

}  // namespace

std::vector<Departure> FaultInjector::take(Departure departure) {
  // Always draws all four numbers: a fault stays the same when another option is added.
  const bool isLost = chance() < faults_.loss;
  const bool isDoubled = chance() < faults_.duplicate;
  const bool isLate = chance() < faults_.reorder;
  const double delay = chance() * faults_.delay * kNanosecondsAMillisecond;
  if (isLost) {
    ++lost_;
    return {};
  }
  // A delayed message delays those behind it, so that --delay alone never changes the order.
  latest_ = std::max(latest_, departure.due + static_cast<std::int64_t>(delay));
  departure.due = latest_;
  std::vector<Departure> group(isDoubled ? 2 : 1, std::move(departure));
  if (isDoubled) ++duplicated_;
  if (isLate && held_.empty()) {
    ++reordered_;
    held_ = std::move(group);
    return {};
  }
  for (Departure& late : std::exchange(held_, {})) {
    late.due = latest_;
    group.push_back(std::move(late));
  }
  return group;
}

std::vector<Departure> FaultInjector::finish() { return std::exchange(held_, {}); }

double FaultInjector::chance() {
  // 53 bits, as many as a double holds. The distributions of the standard library differ between
  // its makers; this gives the same faults for a seed everywhere.
  constexpr double kSteps = 9007199254740992.0;  // 2^53
  return static_cast<double>(random_() >> 11) / kSteps;
}

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kLongestPause = 1e17;  // nanoseconds, three years: a clock can add it
constexpr const char* kOwnNetwork = "127.255.255.255";

struct ReplayRequest {
  std::string file;
  double speed = 1;  ///< infinity for as fast as it goes
  double from = 0;   ///< seconds after the capture's first message
  double to = std::numeric_limits<double>::infinity();
  std::vector<std::string> sendTo;
  std::vector<std::string> onto;  ///< addresses beyond this machine, allowed by the user
  std::optional<int> port;        ///< the one that each message was sent to, unless given
  FilterWords filter;
  WayFaults faults;
  bool asJson = false;  ///< one object at the end rather than a line
};

/// A wait that Ctrl-C ends. The signal comes on a thread of its own.
class Patience {
 public:
  /// Sets `isEnding` as well: the reader of a pipe watches that flag.
  explicit Patience(std::atomic<bool>& isEnding)
      : signals_([this, &isEnding] {
          isEnding = true;
          const std::lock_guard lock(mutex_);
          isOver_ = true;
          changed_.notify_all();
        }) {}

  /// Waits until the time. False once the user has ended it.
  bool waitUntil(Clock::time_point time) {
    std::unique_lock lock(mutex_);
    if (time <= Clock::now()) return !isOver_;
    return !changed_.wait_until(lock, time, [this] { return isOver_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool isOver_ = false;
  Signals signals_;
};

/// Reads the messages of a capture that the filter takes, and counts those left out.
class MeantMessages {
 public:
  MeantMessages(const ReplayRequest& request, CaptureFile& capture, MessageFilter& filter)
      : request_(request), capture_(capture), filter_(filter) {}

  std::optional<HeardMessage> next() {
    while (auto message = capture_.next()) {
      if (!isMessage(*message)) continue;
      if (found_++ == 0) first_ = message->time;
      const double seconds = static_cast<double>(message->time - first_) / kNanosecondsASecond;
      if (seconds > request_.to) return {};
      // The filter sees earlier messages, too: it learns copies and the senders of a user from
      // them.
      if (isMeant(*message) && seconds >= request_.from) return message;
    }
    return {};
  }

  [[nodiscard]] std::uint64_t found() const { return found_; }
  [[nodiscard]] std::uint64_t copies() const { return copies_; }

 private:
  /// A datagram to the stations' port, or one that begins like a message: the capture may be of
  /// another port.
  [[nodiscard]] bool isMessage(const HeardMessage& message) const {
    return message.port == kDefaultPort || message.port == request_.port.value_or(0) ||
           message.bytes.starts_with(std::string("d") + kFieldSeparator);
  }

  bool isMeant(const HeardMessage& message) {
    const Datagram datagram{message.sender, message.senderPort, 0, message.bytes};
    const DuplicateFilter::Time time{std::chrono::nanoseconds(message.time)};
    if (duplicates_.isDuplicate(datagram, time)) {
      ++copies_;
      return false;
    }
    return filter_.takes(message, readMessage(message.bytes));
  }

  const ReplayRequest& request_;
  CaptureFile& capture_;
  MessageFilter& filter_;
  DuplicateFilter duplicates_;
  std::uint64_t found_ = 0;
  std::uint64_t copies_ = 0;
  std::int64_t first_ = 0;
};

/// When a message leaves, in nanoseconds after the first.
std::int64_t dueOf(const ReplayRequest& request, std::int64_t sinceFirst) {
  const double due = static_cast<double>(std::max<std::int64_t>(sinceFirst, 0)) / request.speed;
  return static_cast<std::int64_t>(std::min(due, kLongestPause));
}

/// Sends messages at their times.
class Sending {
 public:
  Sending(const ReplayRequest& request, const std::vector<Ipv4>& addresses,
          std::atomic<bool>& isEnding)
      : request_(request), addresses_(addresses), patience_(isEnding) {}

  /// Sends all messages that go this way, until the user ends it.
  void sendAll(MeantMessages& messages, FaultInjector& way) {
    while (auto message = messages.next()) {
      if (!first_) first_ = message->time;
      const std::int64_t due = dueOf(request_, message->time - *first_);
      if (!send(way.take({due, std::move(*message)}))) return;
    }
    send(way.finish());
  }

  /// Whether there was a message to send.
  [[nodiscard]] bool hasBegun() const { return first_.has_value(); }
  [[nodiscard]] std::uint64_t sent() const { return sent_; }
  [[nodiscard]] std::uint64_t failed() const { return failed_; }
  [[nodiscard]] double seconds() const {
    return std::chrono::duration<double>(Clock::now() - start_).count();
  }

 private:
  /// False once the user has ended it.
  bool send(const std::vector<Departure>& departures) {
    return std::all_of(departures.begin(), departures.end(), [this](const Departure& departure) {
      if (!patience_.waitUntil(start_ + std::chrono::nanoseconds(departure.due))) return false;
      sendNow(departure.message);
      return true;
    });
  }

  void sendNow(const HeardMessage& message) {
    const auto port = static_cast<std::uint16_t>(request_.port.value_or(message.port));
    bool hasLeft = false;
    for (const Destination& destination : interfaces_.destinations(addresses_)) {
      const int problem = socket_.send(destination, port, message.bytes);
      hasLeft = hasLeft || problem == 0;
      if (problem != 0) tell(destination, problem);
    }
    ++(hasLeft ? sent_ : failed_);
  }

  void tell(const Destination& destination, int problem) {
    // One line for a cause, not one for every message.
    if (problem == toldProblem_) return;
    toldProblem_ = problem;
    toolProblem(eToolFinding, "a message to " + textOf(destination.address) + " was not sent (" +
                                  std::strerror(problem) + ")");
  }

  const ReplayRequest& request_;
  const std::vector<Ipv4>& addresses_;
  Patience patience_;
  Interfaces interfaces_;
  SenderSocket socket_;
  const Clock::time_point start_ = Clock::now();
  std::optional<std::int64_t> first_;
  std::uint64_t sent_ = 0;
  std::uint64_t failed_ = 0;
  int toldProblem_ = 0;
};

/// The addresses to send to; the failure is for the user. Addresses beyond this machine must be
/// given with --onto: stations there would take old messages for new ones.
Result<std::vector<Ipv4>> targetsOf(const ReplayRequest& request) {
  std::vector<Ipv4> addresses;
  std::vector<std::string> words = request.sendTo;
  words.insert(words.end(), request.onto.begin(), request.onto.end());
  if (words.empty()) words.emplace_back(kOwnNetwork);
  for (const std::string& word : words) {
    const auto address = parseIpv4(word);
    if (!address) {
      return Error{ErrorCode::eUsage, inQuotes(word) + " is no IPv4 address", {}};
    }
    const bool isAllowed =
        std::find(request.onto.begin(), request.onto.end(), word) != request.onto.end();
    if (!address->isLoopback() && !isAllowed) {
      return Error{ErrorCode::eUsage,
                   "nothing was sent: " + word +
                       " is beyond this machine, and the stations there would take the messages "
                       "for true; if that is meant, say --onto " +
                       word,
                   {}};
    }
    if (std::find(addresses.begin(), addresses.end(), *address) == addresses.end()) {
      addresses.push_back(*address);
    }
  }
  return addresses;
}

std::string textOfAll(const std::vector<Ipv4>& addresses) {
  std::string text;
  for (const Ipv4 address : addresses) text += (text.empty() ? "" : ", ") + textOf(address);
  return text;
}

/// The summary as one object.
JsonValue reportOf(const ReplayRequest& request, const Sending& sending, const FaultInjector& way,
                   const MeantMessages& messages, const std::vector<Ipv4>& addresses) {
  JsonValue to = JsonValue::array();
  for (const Ipv4 address : addresses) to.append(textOf(address));
  return JsonValue::object({textMember("file", request.file),
                            {"to", std::move(to)},
                            {"found", messages.found()},
                            {"messages", sending.sent()},
                            {"seconds", sending.seconds()},
                            {"lost", way.lost()},
                            {"doubled", way.duplicated()},
                            {"late", way.reordered()},
                            {"not_sent", sending.failed()},
                            {"copies", messages.copies()}});
}

std::string summaryOf(const Sending& sending, const FaultInjector& way,
                      const MeantMessages& messages, const std::vector<Ipv4>& addresses) {
  char seconds[32];
  std::snprintf(seconds, sizeof seconds, "%.1f", sending.seconds());
  std::string text = "replayed " + countText(sending.sent(), "message") + " to " +
                     textOfAll(addresses) + " in " + seconds + " s";
  const auto add = [&text](std::uint64_t count, const char* what) {
    if (count > 0) text += ", " + std::to_string(count) + " " + what;
  };
  add(way.lost(), "lost as asked");
  add(way.duplicated(), "doubled as asked");
  add(way.reordered(), "late as asked");
  add(sending.failed(), "not sent");
  add(messages.copies(), "copies over another network left out");
  return text;
}

/// The text about a capture from which nothing was sent.
std::string nothingIn(const ReplayRequest& request, const CaptureFile& capture,
                      const MeantMessages& messages) {
  const std::string file = shownText(request.file);
  if (messages.found() > 0) {
    return "none of the " + countText(messages.found(), "message") + " of " + file + " is meant";
  }
  return file + " holds no messages of stations, in " + countText(capture.packets(), "packet") +
         "; those that went to another port than " + std::to_string(kDefaultPort) + " need --port";
}

/// Problems of the capture, for the user.
std::vector<std::string> problemsOf(const ReplayRequest& request, const CaptureFile& capture,
                                    const MeantMessages& messages, const Sending& sending) {
  std::vector<std::string> problems;
  if (!capture.problem().empty()) problems.push_back(capture.problem());
  if (capture.fragments() > 0) {
    problems.push_back(countText(capture.fragments(), "fragment") +
                       " of larger packets left out: those messages are not replayed");
  }
  if (!sending.hasBegun()) problems.push_back(nothingIn(request, capture, messages));
  return problems;
}

ToolStatus replayAll(const ReplayRequest& request, CaptureFile& capture, MessageFilter& filter,
                     const std::vector<Ipv4>& addresses, std::atomic<bool>& isEnding) {
  MeantMessages messages(request, capture, filter);
  Sending sending(request, addresses, isEnding);
  FaultInjector way(request.faults);
  sending.sendAll(messages, way);
  const auto problems = problemsOf(request, capture, messages, sending);
  for (const std::string& problem : problems) toolProblem(eToolFinding, problem);
  if (request.asJson) {
    JsonValue report = reportOf(request, sending, way, messages, addresses);
    JsonValue texts = JsonValue::array();
    for (const std::string& problem : problems) texts.append(problem);
    report.set("problems", std::move(texts));
    printJson(report);
  } else if (sending.hasBegun()) {
    std::cout << summaryOf(sending, way, messages, addresses) << '\n';
  }
  const bool isWhole = sending.hasBegun() && capture.problem().empty() && sending.failed() == 0;
  return isWhole ? eToolDone : eToolFinding;
}

/// Sends the messages of a capture again, at the pace at which they were heard.
ToolStatus replay(const ReplayRequest& request) {
  if (request.from > request.to) {
    return toolProblem(eToolUsage, "--from is behind --to: nothing lies between them");
  }
  const auto addresses = targetsOf(request);
  if (!addresses) return toolProblem(eToolUsage, addresses.error().message);
  auto filter = MessageFilter::of(request.filter);
  if (!filter) return toolProblem(eToolUsage, filter.error().message);
  std::atomic<bool> isEnding{false};
  auto capture = CaptureFile::open(request.file, isEnding);
  if (!capture) return toolProblem(eToolUsage, capture.error().message);
  return replayAll(request, *capture, *filter, *addresses, isEnding);
}

/// "max" for as fast as it goes, or how many times as fast as it was; else what is wrong.
std::string readSpeed(const std::string& word, double& speed) {
  char* end = nullptr;
  speed = std::strtod(word.c_str(), &end);
  if (word == "max") speed = std::numeric_limits<double>::infinity();
  const bool isSpeed = word == "max" || (*end == '\0' && speed > 0);
  return isSpeed ? "" : "must be a number above 0, or max";
}

void declareFaults(CommandOptions& options, WayFaults& faults) {
  options.number("--loss", "P", faults.loss, 0, 1, "Lose each message with this chance, 0 to 1");
  options.number("--duplicate", "P", faults.duplicate, 0, 1, "Send it twice with this chance");
  options.number("--reorder", "P", faults.reorder, 0, 1,
                 "Send it behind the next one with this chance");
  options.number("--delay", "MS", faults.delay, 0, 3'600'000,
                 "Send it up to MS milliseconds later");
  options.number("--seed", "N", faults.seed, 0, "The same number gives the same faults");
}

void declareReplay(CommandOptions& options, ReplayRequest& request) {
  constexpr double kLatest = std::numeric_limits<double>::max();
  options.word("FILE", request.file, "The capture, pcapng or pcap; - for standard input");
  options.value(
      "--speed", "X",
      [&request](const std::string& word) { return readSpeed(word, request.speed); },
      "So many times as fast as it was recorded; max for as fast as it goes");
  options.number("--from", "S", request.from, 0, kLatest,
                 "Begin S seconds after its first message");
  options.number("--to", "S", request.to, 0, kLatest, "End S seconds after its first message");
  declareFilter(options, request.filter);
  options.number("--port", "N", request.port, 1, 65535,
                 "The port to send to; as captured by default");
  options.list("--send-to", "ADDR[,ADDR]", request.sendTo,
               "Addresses of this machine's own network; 127.255.255.255 by default");
  options.list("--onto", "ADDR[,ADDR]", request.onto,
               "Addresses beyond this machine, in earnest: stations there take the messages for "
               "true");
  declareFaults(options, request.faults);
  options.flag("--json", request.asJson, "What was sent as one JSON object, at the end");
  options.footer(
      "Exit status: 0; 1 when the capture is cut, holds no messages or some could not be sent;\n"
      "2 when it cannot be read.");
}

}  // namespace

void addReplayCommand(CommandLine& line) {
  line.add<ReplayRequest>(
      {"replay", "Send the messages of a capture again", declareReplay, replay});
}

}  // namespace korvel
