#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>

#include "app/base/OptionTable.h"
#include "station/base/Strings.h"
#include "station/net/HeardList.h"
#include "station/os/SharedFiles.h"
#include "tools/base/ToolHost.h"
#include "tools/capture/CaptureSource.h"
#include "tools/capture/MessageLine.h"
#include "tools/wire/MessageReport.h"

namespace korvel {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kBetweenCounts = std::chrono::seconds(10);
constexpr auto kBetweenLosses = std::chrono::seconds(1);

struct Request {
  ListenRequest what;
  std::string projects;     ///< the projects directory, for names; empty for cookies alone
  std::string heardFolder;  ///< directory of the list of heard senders; empty: off
  bool asJson = false;
  bool onlyCounts = false;
};

/// A time as "2026-05-31T12:00:00.123456Z".
std::string preciseTime(std::int64_t time) {
  std::string text = utcText(time / kNanosecondsASecond);
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
  MonitorOutput(const Request& request, SenderCounts::Observer observer)
      : request_(request), counts_(wallClock(), std::move(observer)), line_(coloursOfOutput()) {
    if (!request.projects.empty()) names_.emplace(directoryOf(request.projects));
  }

  Result<void> begin(const std::string& manner) override {
    // Standard output carries messages alone, for programs that read it.
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
      std::cout << line_.of(message, names_ ? names_->withNames(fields) : fields) << '\n';
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
    // A flood is reported once a second at most, not for every lost message.
    if (missed.total() > told_ && now - toldAt_ >= kBetweenLosses) {
      toldAt_ = now;
      tellMissed();
    }
    if (request_.onlyCounts && now - countedAt_ >= kBetweenCounts) {
      countedAt_ = now;
      showCounts();
    }
    // Ends the capture when the reader of the output has gone.
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

  const Request& request_;
  SenderCounts counts_;
  MessageLine line_;
  std::optional<NameBook> names_;
  MissedMessages missed_;
  std::uint64_t told_ = 0;
  Clock::time_point toldAt_;
  Clock::time_point countedAt_ = Clock::now();
};

/// Checks that the folder for lists can be read, before threads are started: the check forks.
ToolStatus checkHeardFolder(const std::string& folder) {
  if (folder.empty()) return eToolDone;
  return lookAtShare(folder, std::chrono::seconds(kShareSeconds), [&folder] {
    const auto names = listFresh(folder);
    return names ? eToolDone : toolProblem(eToolUsage, names.error().message);
  });
}

/// Keeps a list of heard senders, as stations do; no observer without a folder. The list's own port
/// is 0: a monitor never sends.
SenderCounts::Observer heardListOf(const Request& request) {
  if (request.heardFolder.empty()) return {};
  const std::string host = machineHostName();
  HeardList::Keeper keeper{request.heardFolder, "monitor at " + host, host,
                           request.what.hearing.port, 0};
  const auto list = std::make_shared<HeardList>(std::move(keeper));
  return [list](const HeardMessage& message, const SenderCount&) {
    list->heard(message.sender, message.senderPort);
  };
}

/// Shows messages as they come, and counts at the end.
ToolStatus monitor(const Request& request) {
  if (const auto status = checkHeardFolder(request.heardFolder); status != eToolDone) return status;
  MonitorOutput output(request, heardListOf(request));
  const auto heard = listen(request.what, output);
  if (!heard) {
    const bool isUsage = heard.error().code == ErrorCode::eUsage;
    return toolProblem(isUsage ? eToolUsage : eToolFinding, heard.error().message);
  }
  output.showCounts();
  return *heard < request.what.count ? eToolFinding : eToolDone;
}

void declare(CommandOptions& options, Request& request) {
  options.flag("--json", request.asJson, "One JSON object a line");
  options.flag("--stats", request.onlyCounts,
               "Counts and rates alone, every ten seconds and at the end");
  options.text("--share-heard", "DIR", request.heardFolder,
               "Keep a list of the senders that are shown in DIR, for kv-share mesh");
  options.text("--projects", "DIR", request.projects,
               "Show the names that projects and objects have in this projects directory, too");
  declareListening(options, request.what);
  options.footer(
      std::string(kBesideStations) +
      "Exit status: 0; 1 when nothing can be heard, or fewer came than --count asks for.");
}

}  // namespace

void addMonitorCommand(CommandLine& line) {
  line.add<Request>({"monitor", "Show the messages on the network as they come", declare, monitor});
}

}  // namespace korvel
