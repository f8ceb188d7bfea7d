#include "tools/capture/Listening.h"

#include <algorithm>
#include <atomic>
#include <chrono>

#include "station/net/ListenerSocket.h"
#include "station/os/HostOS.h"

namespace korvel {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kLongestWait = std::chrono::milliseconds(200);

/// One hearing from its begin to its end.
class Hearer {
 public:
  Hearer(const ListenRequest& request, MessageFilter filter, iHeardSink& sink)
      : request_(request), filter_(std::move(filter)), sink_(sink), signals_([this] {
          isEnding_ = true;
          queue_.wake();
        }) {
    if (request.seconds > 0) {
      deadline_ = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                     std::chrono::duration<double>(request.seconds));
    }
  }

  Result<std::uint64_t> run() {
    const auto ear = openEar(request_.hearing, queue_);
    if (!ear) return ear.error();
    if (auto begun = sink_.begin((*ear)->manner()); !begun) return begun.error();
    while (!isOver()) {
      if (auto taken = takeWhatIsThere(); !taken) return taken.error();
      if (!sink_.pause(queue_.missed())) return taken_;
    }
    (*ear)->finish();
    if (auto taken = takeWhatIsThere(); !taken) return taken.error();
    sink_.pause(queue_.missed());
    if (const std::string problem = queue_.problem(); !problem.empty()) {
      return Error{ErrorCode::eSystem, problem, {}};
    }
    return taken_;
  }

 private:
  [[nodiscard]] bool hasEnough() const { return request_.count > 0 && taken_ >= request_.count; }

  [[nodiscard]] bool isOver() const {
    return isEnding_ || hasEnough() || Clock::now() >= deadline_ || !queue_.problem().empty();
  }

  Result<void> takeWhatIsThere() {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now());
    const auto limit = isOver() ? kLongestWait.zero() : std::min(left, kLongestWait);
    for (const HeardMessage& message : queue_.take(limit)) {
      if (hasEnough()) break;
      if (auto taken = take(message); !taken) return taken;
    }
    return {};
  }

  Result<void> take(const HeardMessage& message) {
    const MessageFields fields = readMessage(message.bytes);
    if (!filter_.takes(message, fields)) return {};
    const Datagram datagram{message.sender, message.senderPort, message.interface, message.bytes};
    const DuplicateFilter::Time time{std::chrono::nanoseconds(message.time)};
    if (duplicates_.isDuplicate(datagram, time)) return sink_.takeCopy(message);
    ++taken_;
    return sink_.take(message, fields);
  }

  const ListenRequest& request_;
  MessageFilter filter_;
  iHeardSink& sink_;
  CaptureQueue queue_;
  DuplicateFilter duplicates_;
  Clock::time_point deadline_ = Clock::time_point::max();
  std::uint64_t taken_ = 0;
  std::atomic<bool> isEnding_{false};
  Signals signals_;
};

}  // namespace

void declareListening(CommandOptions& options, ListenRequest& request) {
  declareFilter(options, request.filter);
  options.number("--port", "N", request.hearing.port, 1, 65535, "The stations' UDP port");
  options.text("--listen", "ADDR", request.hearing.listen,
               "A multicast group, a broadcast address, or this machine's address in one network");
  options.flag("--capture", request.hearing.onlyCaptures,
               "Capture the packets rather than share the port: also shows those to one station");
  options.number("--count", "N", request.count, 1, "End after so many messages");
  options.number("--for", "S", request.seconds, 0.001, 1e8, "End after so many seconds");
}

Result<std::uint64_t> listen(const ListenRequest& request, iHeardSink& sink) {
  auto filter = MessageFilter::of(request.filter);
  if (!filter) return filter.error();
  return Hearer(request, std::move(*filter), sink).run();
}

std::int64_t wallClock() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

}  // namespace korvel
