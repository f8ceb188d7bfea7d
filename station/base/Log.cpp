#include "station/base/Log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "host/base/Log.h"
#include "station/base/Events.h"
#include "station/base/PipeWriter.h"
#include "station/base/StationSettings.h"

namespace korvel {

bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

namespace {

std::string numbered(const std::string& path, int number) {
  return number == 0 ? path : path + "." + std::to_string(number);
}

}  // namespace

RotatingFile::RotatingFile(int descriptor, std::string path, std::size_t maxBytes)
    : descriptor_(descriptor), path_(std::move(path)), maxBytes_(maxBytes) {
  struct stat state {};
  if (::fstat(descriptor_, &state) != 0) return;
  isRegular_ = S_ISREG(state.st_mode);
  bytes_ = static_cast<std::size_t>(state.st_size);
}

RotatingFile::~RotatingFile() { ::close(descriptor_); }

int RotatingFile::open(const std::string& path, int flag) {
  return ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flag, 0600);
}

bool RotatingFile::write(std::string_view bytes) {
  if (isRegular_ && isAtLineStart_ && bytes_ > 0 && bytes_ + bytes.size() > maxBytes_) rotate();
  if (!writeAll(descriptor_, bytes)) return false;
  bytes_ += bytes.size();
  if (!bytes.empty()) isAtLineStart_ = bytes.back() == '\n';
  return true;
}

namespace {

constexpr double kLeastFreePart = 0.05;

double freePartOf(int descriptor) {
  struct statvfs state {};
  if (::fstatvfs(descriptor, &state) != 0 || state.f_blocks == 0) return 1;
  return static_cast<double>(state.f_bavail) / static_cast<double>(state.f_blocks);
}

RotatingFile::FreePart freePart = freePartOf;

}  // namespace

void RotatingFile::setFreePart(FreePart replacing) {
  freePart = replacing ? replacing : freePartOf;
}

bool RotatingFile::hasRoom() {
  const auto now = std::chrono::steady_clock::now();
  if (!isRegular_ || now < nextLook_) return hasRoom_;
  nextLook_ = now + std::chrono::seconds(1);
  hasRoom_ = freePart(descriptor_) >= kLeastFreePart;
  return hasRoom_;
}

void RotatingFile::rotate() {
  for (int number = kFiles - 1; number > 0; --number) {
    ::rename(numbered(path_, number - 1).c_str(), numbered(path_, number).c_str());
  }
  // O_EXCL: a file that another program put there meanwhile is not written to.
  const int fresh = open(path_, O_APPEND | O_EXCL);
  if (fresh < 0) return;
  ::close(std::exchange(descriptor_, fresh));
  bytes_ = 0;
}

}  // namespace korvel

using namespace korvel;

namespace korvel {

namespace {

/// The host log file of the settings, opened when the first line is written to it; rotated. Where
/// it is a pipe or a terminal, no thread of the station waits for its reader.
class LogFile {
 public:
  /// Appends a text; each of its lines begins with the time. Returns a sentence when the file
  /// cannot be opened or written to, once; else the empty text.
  std::string write(const std::string& text) {
    const std::lock_guard lock(mutex_);
    const std::string problem = open();
    if (pipe_) return queue(stamped(text));
    if (!file_) return problem;
    if (!file_->hasRoom()) return problem + stopped();
    std::string lines;
    if (std::exchange(isStopped_, false)) lines = missing("for want of room");
    lines += stamped(text);
    return file_->write(lines) ? problem : brokenOff(errno);
  }

  /// Gives the reader of a pipe a moment to read the rest; nothing is written to it afterwards.
  void finish() {
    const std::lock_guard lock(mutex_);
    if (pipe_) pipe_->finish();
  }

 private:
  std::string open() {
    if (path_ == settings().logFile) return {};
    path_ = settings().logFile;
    file_.reset();
    pipe_.reset();
    atLineStart_ = true;
    isBroken_ = isStopped_ = false;
    leftOut_ = 0;
    if (path_.empty()) return {};
    if (isNamedPipe(path_)) return openPipe(-1);
    const int file = RotatingFile::open(path_, O_APPEND);
    if (file >= 0 && isReadBySomebody(file)) return openPipe(file);
    if (file >= 0) file_ = std::make_unique<RotatingFile>(file, path_);
    if (file_) return {};
    return "The log file " + path_ + " cannot be opened: " + std::strerror(errno) +
           ". Nothing is written to it; name another with --log.\n";
  }

  std::string openPipe(int descriptor) {
    failure_ = 0;
    pipe_ = std::make_unique<PipeWriter>(descriptor, path_, [this](int why) { failure_ = why; });
    std::call_once(finishesAtExit_, [] { std::atexit(finishLog); });
    return {};
  }

  /// Texts that a reader has not read when it closes the pipe are lost. Another reader may come to
  /// a named pipe.
  std::string queue(const std::string& lines) {
    std::string problem;
    if (const int why = failure_) {
      problem = brokenOff(why);
      if (isNamedPipe(path_)) openPipe(-1);
    }
    const std::size_t before = leftOut_;
    if (pipe_->write((before > 0 ? missing("since nobody read them") : std::string()) + lines)) {
      return problem;
    }
    leftOut_ = before + 1;
    if (before == 0) {
      problem += "Nobody reads the log file " + path_ +
                 "; the station goes on, and lines are left out until it is read.\n";
    }
    return problem;
  }

  /// Later lines are tried all the same: a full disk may have room again.
  std::string brokenOff(int why) {
    if (std::exchange(isBroken_, true)) return {};
    return "The log file " + path_ + " cannot be written to: " + std::strerror(why) +
           ". Lines are missing in it; make room, or name another with --log.\n";
  }

  /// The system needs what is left of a nearly full disk more than the log does.
  std::string stopped() {
    ++leftOut_;
    if (std::exchange(isStopped_, true)) return {};
    if (!std::exchange(atLineStart_, true)) file_->write("\n");
    file_->write(now() + "The log stops: " + RotatingFile::kNoRoom + ".\n");
    return "The log file " + path_ + " stops: " + RotatingFile::kNoRoom +
           ". Make room, or name another with --log.\n";
  }

  std::string missing(const char* reason) {
    return now() + std::to_string(std::exchange(leftOut_, 0)) + " texts are missing here, " +
           reason + ".\n";
  }

  std::string stamped(const std::string& text) {
    std::string lines;
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
      if (atLineStart_) lines += now();
      lines.append(text, at, end - at);
      atLineStart_ = lines.back() == '\n';
      at = end;
    }
    return lines;
  }

  static std::string now() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    localtime_r(&now, &parts);
    char stamp[32];
    return {stamp, std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S ", &parts)};
  }

  static void finishLog();

  std::mutex mutex_;
  std::unique_ptr<RotatingFile> file_;
  std::unique_ptr<PipeWriter> pipe_;  ///< in place of the file where a reader is at the other end
  std::once_flag finishesAtExit_;
  std::atomic<int> failure_{0};  ///< the errno value that ended the writing to the pipe
  std::size_t leftOut_ = 0;      ///< texts left out that no line reports yet
  std::string path_;
  bool atLineStart_ = true;
  bool isBroken_ = false;
  bool isStopped_ = false;  ///< for want of room
};

/// Never destroyed: lines are written until the very end of the process.
LogFile& logFile() {
  static auto* const file = new LogFile;
  return *file;
}

void LogFile::finishLog() { logFile().finish(); }

void writeToFile(const std::string& text) {
  const std::string problem = logFile().write(text);
  if (!problem.empty()) events().log(true, problem);
}

void writeLine(bool toConsole, const std::string& text) {
  writeToFile(text);
  events().log(toConsole, text);
}

thread_local const std::string* lineSource = nullptr;

struct GuardedBudget {
  std::mutex mutex;
  LineBudget budget;
  std::atomic<bool> hasLeftOut{false};
};

/// Never destroyed, as the log.
GuardedBudget& lineBudget() {
  static auto* const budget = new GuardedBudget;
  return *budget;
}

LineBudget::Answer answerTo(const std::string& source) {
  GuardedBudget& guarded = lineBudget();
  const std::lock_guard lock(guarded.mutex);
  const auto answer = guarded.budget.take(source, std::chrono::steady_clock::now());
  if (answer != LineBudget::Answer::eWrite) guarded.hasLeftOut = true;
  return answer;
}

void writeWithinBudget(bool toConsole, const std::string& text) {
  if (!lineSource) return writeLine(toConsole, text);
  switch (answerTo(*lineSource)) {
    case LineBudget::Answer::eWrite:
      return writeLine(toConsole, text);
    case LineBudget::Answer::eLastLine:
      return writeLine(false, "Messages from " + *lineSource +
                                  " fill the log: from here on their lines are counted.\n");
    case LineBudget::Answer::eCount:
      break;
  }
}

std::string leftOutSentence(const std::string& source, std::uint64_t count) {
  return std::to_string(count) + " more like this, of messages from " + source +
         ", were left out.\n";
}

}  // namespace

void LineBudget::refill(Source& source, Time now) {
  const std::chrono::duration<double> passed = now - source.since;
  source.left = std::min(kAtOnce, source.left + std::max(0.0, passed.count()) * kPerSecond);
  source.since = now;
}

LineBudget::Source& LineBudget::sourceOf(const std::string& name, Time now) {
  const Source fresh{kAtOnce, now, 0};
  if (sources_.size() < kMostSources || sources_.contains(name)) {
    return sources_.try_emplace(name, fresh).first->second;
  }
  for (auto& each : sources_) refill(each.second, now);
  std::erase_if(sources_, [](const auto& each) {
    return each.second.leftOut == 0 && each.second.left >= kAtOnce;
  });
  const bool hasRoom = sources_.size() < kMostSources;
  return sources_.try_emplace(hasRoom ? name : "others", fresh).first->second;
}

LineBudget::Answer LineBudget::take(const std::string& name, Time now) {
  Source& source = sourceOf(name, now);
  refill(source, now);
  if (source.leftOut == 0 && source.left >= 1) {
    --source.left;
    return Answer::eWrite;
  }
  return source.leftOut++ == 0 ? Answer::eLastLine : Answer::eCount;
}

std::vector<std::string> LineBudget::due(Time now) {
  std::vector<std::string> sentences;
  for (auto& [name, source] : sources_) {
    refill(source, now);
    if (source.leftOut == 0 || source.left < kAgain) continue;
    sentences.push_back(leftOutSentence(name, std::exchange(source.leftOut, 0)));
  }
  return sentences;
}

std::vector<std::string> LineBudget::all() {
  std::vector<std::string> sentences;
  for (auto& [name, source] : sources_) {
    if (source.leftOut == 0) continue;
    sentences.push_back(leftOutSentence(name, std::exchange(source.leftOut, 0)));
  }
  return sentences;
}

bool LineBudget::hasLeftOut() const {
  return std::ranges::any_of(sources_, [](const auto& each) { return each.second.leftOut > 0; });
}

LogSourceScope::LogSourceScope(const std::string& source)
    : before_(std::exchange(lineSource, source.empty() ? nullptr : &source)) {}

LogSourceScope::~LogSourceScope() { lineSource = before_; }

bool hasLeftOutLines() { return lineBudget().hasLeftOut; }

void logLeftOutLines(LeftOutLines which) {
  GuardedBudget& guarded = lineBudget();
  if (!guarded.hasLeftOut) return;
  std::vector<std::string> sentences;
  {
    const std::lock_guard lock(guarded.mutex);
    const bool isEnd = which == LeftOutLines::eAll;
    sentences = isEnd ? guarded.budget.all() : guarded.budget.due(std::chrono::steady_clock::now());
    guarded.hasLeftOut = guarded.budget.hasLeftOut();
  }
  for (const std::string& each : sentences) writeLine(false, each);
}

}  // namespace korvel

void writeLog(const std::string& text) { writeWithinBudget(false, text); }

void writeLogAndConsole(const std::string& text) { writeWithinBudget(true, text); }

namespace korvel {

namespace {

std::mutex writerMutex;
std::FILE* replacement = nullptr;

std::function<void(const std::string&)>& writer() {
  static auto* const kept = new std::function<void(const std::string&)>;
  return *kept;
}

void printTo(std::FILE* stream, const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stream);
  if (text.find('\n') != std::string::npos) std::fflush(stream);
}

void print(const std::string& text) {
  {
    const std::lock_guard lock(writerMutex);
    if (writer()) {
      writer()(text);
    } else {
      printTo(replacement ? replacement : stdout, text);
    }
  }
  writeLog(text);
}

const char* orEmpty(const char* text) { return text ? text : ""; }

}  // namespace

void setDiagnosticStream(std::FILE* stream) {
  const std::lock_guard lock(writerMutex);
  replacement = stream;
}

void setDiagnosticWriter(std::function<void(const std::string& text)> replacing) {
  const std::lock_guard lock(writerMutex);
  writer() = std::move(replacing);
}

}  // namespace korvel

void assertionFailed(const char* condition, const char* place) {
  print(std::string("assertion failed ") + orEmpty(condition) + " at " + orEmpty(place) + "\n");
}

void printToStandardOutput(const char* text) { print(orEmpty(text)); }
