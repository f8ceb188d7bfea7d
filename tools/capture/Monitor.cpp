#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>

#include "app/base/OptionTable.h"
#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "station/net/HeardList.h"
#include "station/os/SharedFiles.h"
#include "tools/base/ToolHost.h"
#include "tools/capture/CaptureFile.h"
#include "tools/capture/CaptureSource.h"
#include "tools/capture/MessageLine.h"
#include "tools/wire/MessageReport.h"

namespace korvel {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kBetweenCounts = std::chrono::seconds(10);
constexpr auto kBetweenLosses = std::chrono::seconds(1);

struct MonitorRequest {
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
  MonitorOutput(const MonitorRequest& request, SenderCounts::Observer observer)
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

  const MonitorRequest& request_;
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
SenderCounts::Observer heardListOf(const MonitorRequest& request) {
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
ToolStatus monitor(const MonitorRequest& request) {
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

void declareMonitor(CommandOptions& options, MonitorRequest& request) {
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
  line.add<MonitorRequest>(
      {"monitor", "Show the messages on the network as they come", declareMonitor, monitor});
}

// Recording.

namespace {

struct RecordRequest {
  ListenRequest what;
  std::string file;  ///< "-" for standard output
  bool replacesFile = false;
  bool asJson = false;  ///< one object at the end, on standard output
};

Error usage(const std::string& what) { return {ErrorCode::eUsage, what, {}}; }

/// The fault of the request itself; nothing where it makes sense.
std::optional<Error> objectionTo(const RecordRequest& request) {
  struct stat status {};
  if (request.file.empty()) return usage("name a file to record to");
  if (request.file == "-") {
    if (request.asJson) return usage("--json writes to standard output: name a file to record to");
    return {};
  }
  if (::stat(request.file.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return {};
  return usage(shownText(request.file) + " is a folder: name a file in it");
}

/// Whether the file is a named pipe. Opening it waits for its reader, so it is opened before
/// signals are taken: Ctrl-C can still end the program then.
bool isPipe(const std::string& file) {
  struct stat status {};
  return ::stat(file.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

/// A descriptor to write to. A recording is not replaced by mistake; an empty file may be.
Result<int> openTarget(const RecordRequest& request) {
  if (request.file == "-") {
    if (isatty(STDOUT_FILENO)) return usage("a capture is not for a terminal: name a file");
    return ::dup(STDOUT_FILENO);
  }
  struct stat status {};
  const bool isThere = ::stat(request.file.c_str(), &status) == 0;
  if (isThere && S_ISREG(status.st_mode) && status.st_size > 0 && !request.replacesFile) {
    return usage(shownText(request.file) + " is there already: name another file, or say --force");
  }
  const int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC;
  const int file = ::open(request.file.c_str(), flags, 0666);
  if (file >= 0) return file;
  return usage(shownText(request.file) + " cannot be written (" + std::strerror(errno) + ")");
}

/// Writes what is heard to a capture.
class Recording : public iHeardSink {
 public:
  explicit Recording(const RecordRequest& request) : request_(request) {}

  /// Opens the file.
  Result<void> open() {
    const auto target = openTarget(request_);
    if (!target) return target.error();
    writer_.emplace(*target, request_.file == "-" ? "standard output" : shownText(request_.file));
    return {};
  }

  Result<void> begin(const std::string& manner) override {
    // Opened only now: where nothing can be received, no file is made or cut.
    if (!writer_) {
      if (auto opened = open(); !opened) return opened;
    }
    std::cerr << "kv-share: recording " << manner << "; Ctrl-C ends it" << std::endl;
    return writer_->begin("port " + std::to_string(request_.what.hearing.port));
  }

  Result<void> take(const HeardMessage& message, const MessageFields&) override {
    auto written = writer_->write(message);
    if (written) ++recorded_;
    return written;
  }

  Result<void> takeCopy(const HeardMessage& message) override {
    auto written = writer_->write(message);
    if (written) ++copies_;
    return written;
  }

  bool pause(const MissedMessages& missed) override {
    missed_ = missed;
    return true;
  }

  Result<void> end() { return writer_->end(recorded_ + copies_, missed_.total(), wallClock()); }

  /// The summary as one object.
  [[nodiscard]] JsonValue report(const std::string& problem) const {
    JsonValue report = JsonValue::object({textMember("file", request_.file),
                                          {"messages", recorded_},
                                          {"copies", copies_},
                                          {"missed_by_system", missed_.bySystem},
                                          {"missed_by_reader", missed_.byQueue}});
    if (!problem.empty()) report.set("problem", problem);
    return report;
  }

  [[nodiscard]] std::string summary() const {
    std::string text = "recorded " + countText(recorded_, "message");
    if (copies_ > 0) text += " and " + countText(copies_, "copy") + " over another network";
    const std::string missed = missedText(missed_);
    return text + (missed.empty() ? ", none missed" : "; " + missed);
  }

  [[nodiscard]] bool hasMissed() const { return missed_.total() > 0; }

 private:
  const RecordRequest& request_;
  std::optional<PcapngWriter> writer_;
  MissedMessages missed_;
  std::uint64_t recorded_ = 0;
  std::uint64_t copies_ = 0;
};

/// Records messages and their copies over other networks: a capture shows what was on the wire.
ToolStatus record(const RecordRequest& request) {
  ::signal(SIGXFSZ, SIG_IGN);  // write() then fails as on a full disk
  if (const auto objection = objectionTo(request)) {
    return toolProblem(eToolUsage, objection->message);
  }
  Recording recording(request);
  if (isPipe(request.file)) {
    if (auto opened = recording.open(); !opened) {
      return toolProblem(eToolUsage, opened.error().message);
    }
  }
  const auto heard = listen(request.what, recording);
  if (!heard && heard.error().code == ErrorCode::eUsage) {
    return toolProblem(eToolUsage, heard.error().message);
  }
  std::string problem = heard ? "" : heard.error().message;
  if (heard) {
    if (const auto ended = recording.end(); !ended) problem = ended.error().message;
  }
  if (!problem.empty()) toolProblem(eToolFinding, problem);
  if (request.asJson) {
    printJson(recording.report(problem));
  } else {
    std::cerr << "kv-share: " << recording.summary() << '\n';
  }
  const bool isWhole = problem.empty() && *heard >= request.what.count && !recording.hasMissed();
  return isWhole ? eToolDone : eToolFinding;
}

void declareRecord(CommandOptions& options, RecordRequest& request) {
  options.word("FILE", request.file, "The capture, pcapng; - for standard output");
  options.flag("--force", request.replacesFile, "Replace a file that is there");
  options.flag("--json", request.asJson, "What was recorded as one JSON object, at the end");
  declareListening(options, request.what);
  options.footer(
      std::string(kBesideStations) +
      "Exit status: 0; 1 when messages were missed, the disk is full, or fewer came than\n"
      "--count asks for; what was recorded can be read in every case.");
}

}  // namespace

void addRecordCommand(CommandLine& line) {
  line.add<RecordRequest>(
      {"record", "Record messages to a capture that network tools open", declareRecord, record});
}

}  // namespace korvel
