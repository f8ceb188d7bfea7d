#include "tools/Record.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <optional>

#include "station/base/Strings.h"
#include "tools/capture/PcapngWriter.h"
#include "tools/capture/SenderCounts.h"

namespace {

Error usage(const std::string& what) { return {ErrorCode::eUsage, what, {}}; }

/// A descriptor to write to.
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

  Result<void> begin(const std::string& manner) override {
    const auto target = openTarget(request_);
    if (!target) return target.error();
    writer_.emplace(*target, request_.file == "-" ? "standard output" : shownText(request_.file));
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

}  // namespace

ToolStatus record(const RecordRequest& request) {
  ::signal(SIGXFSZ, SIG_IGN);  // a limit of the file's size is told like a full disk
  Recording recording(request);
  const auto heard = listen(request.what, recording);
  if (!heard && heard.error().code == ErrorCode::eUsage) {
    return toolProblem(eToolUsage, heard.error().message);
  }
  if (!heard) {
    toolProblem(eToolFinding, heard.error().message);
  } else if (auto ended = recording.end(); !ended) {
    return toolProblem(eToolFinding, ended.error().message);
  }
  std::cerr << "kv-share: " << recording.summary() << '\n';
  const bool isWhole = heard && *heard >= request.what.count && !recording.hasMissed();
  return isWhole ? eToolDone : eToolFinding;
}
