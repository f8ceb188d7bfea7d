#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <optional>

#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "tools/capture/CaptureFile.h"
#include "tools/capture/CaptureSource.h"
#include "tools/capture/MessageLine.h"

namespace korvel {

namespace {

struct Request {
  ListenRequest what;
  std::string file;  ///< "-" for standard output
  bool replacesFile = false;
  bool asJson = false;  ///< one object at the end, on standard output
};

Error usage(const std::string& what) { return {ErrorCode::eUsage, what, {}}; }

/// The fault of the request itself; nothing where it makes sense.
std::optional<Error> objectionTo(const Request& request) {
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
Result<int> openTarget(const Request& request) {
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
  explicit Recording(const Request& request) : request_(request) {}

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
  const Request& request_;
  std::optional<PcapngWriter> writer_;
  MissedMessages missed_;
  std::uint64_t recorded_ = 0;
  std::uint64_t copies_ = 0;
};

/// Records messages and their copies over other networks: a capture shows what was on the wire.
ToolStatus record(const Request& request) {
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

void declare(CommandOptions& options, Request& request) {
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
  line.add<Request>(
      {"record", "Record messages to a capture that network tools open", declare, record});
}

}  // namespace korvel
