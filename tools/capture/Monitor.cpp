#include "tools/capture/Monitor.h"

#include <chrono>
#include <cstdio>
#include <iostream>

#include "tools/capture/MessageLine.h"
#include "tools/wire/MessageReport.h"

namespace korvel {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::int64_t kNanosecondsASecond = 1'000'000'000;
constexpr auto kBetweenCounts = std::chrono::seconds(10);
constexpr auto kBetweenLosses = std::chrono::seconds(1);

/// A time as "2026-05-31T12:00:00.123456Z".
std::string preciseTime(std::int64_t time) {
  std::string text = textOfTime(time / kNanosecondsASecond);
  char fraction[16];
  std::snprintf(fraction, sizeof fraction, ".%06dZ",
                static_cast<int>(time % kNanosecondsASecond / 1000));
  text.pop_back();
  return text + fraction;
}

JsonValue eventOf(const char* name, std::int64_t time) {
  return JsonValue::object({{"event", name}, {"time", preciseTime(time)}});
}

void addMembers(JsonValue& object, const JsonValue& more) {
  for (const auto& [key, value] : more.members()) object.set(key, value);
}

/// Writes what is heard to standard output.
class MonitorOutput : public iHeardSink {
 public:
  explicit MonitorOutput(const MonitorRequest& request)
      : request_(request), counts_(wallClock(), request.heard), line_(coloursOfOutput()) {}

  Result<void> begin(const std::string& manner) override {
    std::cerr << "kv-share: hearing " << manner << "; Ctrl-C ends it" << std::endl;
    if (!request_.asJson && !request_.onlyCounts) std::cout << line_.heading() << std::endl;
    return {};
  }

  Result<void> take(const HeardMessage& message, const MessageFields& fields) override {
    counts_.count(message, fields);
    if (request_.onlyCounts) return {};
    if (request_.asJson) {
      printJson(objectOf(message));
    } else {
      std::cout << line_.of(message, fields) << '\n';
    }
    return {};
  }

  Result<void> takeCopy(const HeardMessage&) override {
    counts_.countCopy();
    return {};
  }

  bool pause(const MissedMessages& missed) override {
    missed_ = missed;
    const auto now = Clock::now();
    if (missed.total() > told_ && now - toldAt_ >= kBetweenLosses) {
      toldAt_ = now;
      tellMissed();
    }
    if (request_.onlyCounts && now - countedAt_ >= kBetweenCounts) {
      countedAt_ = now;
      showCounts();
    }
    return static_cast<bool>(std::cout.flush());
  }

  void showCounts() {
    const auto now = wallClock();
    if (request_.asJson) {
      JsonValue event = eventOf("counts", now);
      addMembers(event, counts_.report(now, missed_));
      printJson(event);
    } else {
      std::cout << '\n' << counts_.table(now, missed_) << '\n';
    }
    std::cout.flush();
  }

 private:
  [[nodiscard]] static JsonValue objectOf(const HeardMessage& message) {
    JsonValue event = eventOf("message", message.time);
    event.set("sender", textOf(message.sender));
    event.set("port", static_cast<int>(message.senderPort));
    event.set("to", textOf(message.target));
    addMembers(event, describeMessage(message.bytes));
    return event;
  }

  void tellMissed() {
    told_ = missed_.total();
    if (!request_.asJson) {
      toolProblem(eToolFinding, missedText(missed_) + ", so far");
      return;
    }
    JsonValue event = eventOf("missed", wallClock());
    event.set("by_system", missed_.bySystem);
    event.set("by_reader", missed_.byQueue);
    printJson(event);
  }

  const MonitorRequest& request_;
  SenderCounts counts_;
  MessageLine line_;
  MissedMessages missed_;
  std::uint64_t told_ = 0;
  Clock::time_point toldAt_;
  Clock::time_point countedAt_ = Clock::now();
};

}  // namespace

ToolStatus monitor(const MonitorRequest& request) {
  MonitorOutput output(request);
  const auto heard = listen(request.what, output);
  if (!heard) {
    const bool isUsage = heard.error().code == ErrorCode::eUsage;
    return toolProblem(isUsage ? eToolUsage : eToolFinding, heard.error().message);
  }
  output.showCounts();
  return *heard < request.what.count ? eToolFinding : eToolDone;
}

}  // namespace korvel
