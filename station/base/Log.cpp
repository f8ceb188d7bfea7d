#include "station/base/Log.h"

#include <fcntl.h>
#include <signal.h>
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
#include <string_view>
#include <system_error>
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

/// What stands before each line: the local time, looked up once a second. Not a string: the log is
/// written until the very end of the process.
class TimeStamp {
 public:
  std::string_view now() {
    const std::time_t now = std::time(nullptr);
    if (now != second_) {
      second_ = now;
      std::tm parts{};
      localtime_r(&now, &parts);
      length_ = std::strftime(text_, sizeof text_, "%Y-%m-%d %H:%M:%S ", &parts);
    }
    return {text_, length_};
  }

 private:
  std::time_t second_ = -1;
  std::size_t length_ = 0;
  char text_[32] = {};
};

std::string missingTexts(TimeStamp& stamp, std::size_t count, const char* reason) {
  return std::string(stamp.now()) + std::to_string(count) + " texts are missing here, " + reason +
         ".\n";
}

std::string brokenLog(const std::string& path, int why) {
  return "The log file " + path + " cannot be written to: " + std::strerror(why) +
         ". Lines are missing in it; make room, or name another with --log.\n";
}

/// The end of the log's way to a file. One thread at a time, but for takeProblem().
class LogTarget {
 public:
  LogTarget(int descriptor, const std::string& path) : path_(path), file_(descriptor, path) {}

  /// Writes so many texts. Later ones are tried where these fail: a full disk may have room again.
  void write(const std::string& lines, std::size_t texts) {
    if (!file_.hasRoom()) {
      stop(texts);
    } else if (!(goOn() && file_.write(lines)) && !std::exchange(isBroken_, true)) {
      tell(brokenLog(path_, errno));
    }
    endsLine_ = lines.back() == '\n';
  }

  /// A sentence about each kind of problem, once; empty when there is no news. Any thread.
  std::string takeProblem() {
    if (!hasProblem_.exchange(false)) return {};
    const std::lock_guard lock(mutex_);
    return std::exchange(problem_, {});
  }

 private:
  /// The system needs what is left of a nearly full disk more than the log does.
  void stop(std::size_t texts) {
    leftOut_ += texts;
    if (std::exchange(isStopped_, true)) return;
    file_.write((endsLine_ ? "" : "\n") + std::string(stamp_.now()) +
                "The log stops: " + RotatingFile::kNoRoom + ".\n");
    tell("The log file " + path_ + " stops: " + RotatingFile::kNoRoom +
         ". Make room, or name another with --log.\n");
  }

  bool goOn() {
    if (!std::exchange(isStopped_, false)) return true;
    const std::string gap = missingTexts(stamp_, std::exchange(leftOut_, 0), "for want of room");
    return file_.write(endsLine_ ? gap : gap + std::string(stamp_.now()));
  }

  void tell(const std::string& problem) {
    const std::lock_guard lock(mutex_);
    problem_ += problem;
    hasProblem_ = true;
  }

  const std::string path_;
  RotatingFile file_;
  TimeStamp stamp_;
  std::size_t leftOut_ = 0;  ///< texts left out that no line reports yet
  bool endsLine_ = true;     ///< the last text ended with a line, written or not
  bool isBroken_ = false;
  bool isStopped_ = false;  ///< for want of room
  std::mutex mutex_;
  std::string problem_;
  std::atomic<bool> hasProblem_{false};
};

/// The writer whose last texts a crash waits for; null for none.
std::atomic<const QueuedWriter*> awaitedInCrash{nullptr};

constexpr int kCrashPatience = 100;  // milliseconds

/// Lets the log's thread, which runs on, write what led to this. Only what a signal handler may do.
extern "C" void awaitLogInCrash(int signal) {
  const QueuedWriter* const writer = awaitedInCrash;
  for (int each = 0; each < kCrashPatience && writer && writer->hasWaiting(); ++each) {
    const timespec millisecond{0, 1'000'000};
    ::nanosleep(&millisecond, nullptr);
  }
  ::signal(signal, SIG_DFL);
  ::raise(signal);
}

/// Where nobody else handles them.
void handleCrashes() {
  for (const int each : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV}) {
    struct sigaction handling {};
    if (::sigaction(each, nullptr, &handling) != 0 || (handling.sa_flags & SA_SIGINFO) != 0 ||
        handling.sa_handler != SIG_DFL) {
      continue;
    }
    handling.sa_handler = awaitLogInCrash;
    ::sigaction(each, &handling, nullptr);
  }
}

/// The host log file of the settings, opened when the first line is written to it; rotated. No
/// thread of the station waits for a disk, nor, where it is a pipe or a terminal, for its reader.
class LogFile {
 public:
  /// Appends a text; each of its lines begins with the time. Returns a sentence when the file
  /// cannot be opened or written to, once; else the empty text. What fails later is said with a
  /// later text.
  std::string write(const std::string& text) {
    const std::lock_guard lock(mutex_);
    const std::string problem = open();
    if (pipe_) return queue(stamped(text));
    if (!target_) return problem;
    put(stamped(text));
    return problem + target_->takeProblem();
  }

  /// Waits until what was written so far is in the file. The problem, as write() has it.
  std::string flush() {
    const std::lock_guard lock(mutex_);
    if (writer_) writer_->flush();
    return target_ ? target_->takeProblem() : std::string();
  }

  /// Gives the file, or the reader of a pipe, a moment to take the rest; nothing is written to a
  /// pipe afterwards.
  void finish() {
    const std::lock_guard lock(mutex_);
    if (pipe_) pipe_->finish();
    if (!writer_) return;
    awaitedInCrash = nullptr;
    if (writer_->flush()) return writer_.reset();
    // A disk that does not answer must not keep the process from ending: its thread is left alone.
    static_cast<void>(writer_.release());
    static_cast<void>(target_.release());
  }

 private:
  std::string open() {
    if (path_ == settings().logFile) return {};
    path_ = settings().logFile;
    awaitedInCrash = nullptr;
    writer_.reset();
    target_.reset();
    pipe_.reset();
    atLineStart_ = true;
    isBroken_ = false;
    leftOut_ = 0;
    if (path_.empty()) return {};
    if (isNamedPipe(path_)) return openPipe(-1);
    const int file = RotatingFile::open(path_, O_APPEND);
    if (file >= 0 && isReadBySomebody(file)) return openPipe(file);
    if (file >= 0) return openFile(file);
    return "The log file " + path_ + " cannot be opened: " + std::strerror(errno) +
           ". Nothing is written to it; name another with --log.\n";
  }

  std::string openFile(int descriptor) {
    target_ = std::make_unique<LogTarget>(descriptor, path_);
    finishAtExit();
    try {
      writer_ = std::make_unique<QueuedWriter>(
          [target = target_.get()](const std::string& lines, std::size_t texts) {
            target->write(lines, texts);
          });
    } catch (const std::system_error&) {
      return {};  // without a thread each caller writes its own lines
    }
    awaitedInCrash = writer_.get();
    std::call_once(handlesCrashes_, handleCrashes);
    return {};
  }

  std::string openPipe(int descriptor) {
    failure_ = 0;
    pipe_ = std::make_unique<PipeWriter>(descriptor, path_, [this](int why) { failure_ = why; });
    finishAtExit();
    return {};
  }

  void finishAtExit() {
    std::call_once(finishesAtExit_, [] { std::atexit(finishLog); });
  }

  void put(const std::string& lines) {
    if (writer_) {
      writer_->write(lines);
    } else if (!lines.empty()) {
      target_->write(lines, 1);
    }
  }

  /// Texts that a reader has not read when it closes the pipe are lost. Another reader may come to
  /// a named pipe.
  std::string queue(const std::string& lines) {
    std::string problem;
    if (const int why = failure_) {
      if (!std::exchange(isBroken_, true)) problem = brokenLog(path_, why);
      if (isNamedPipe(path_)) openPipe(-1);
    }
    const std::size_t before = leftOut_;
    const std::string gap =
        before > 0 ? missingTexts(stamp_, before, "since nobody read them") : std::string();
    leftOut_ = 0;
    if (pipe_->write(gap + lines)) return problem;
    leftOut_ = before + 1;
    if (before == 0) {
      problem += "Nobody reads the log file " + path_ +
                 "; the station goes on, and lines are left out until it is read.\n";
    }
    return problem;
  }

  std::string stamped(const std::string& text) {
    std::string lines;
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
      if (atLineStart_) lines += stamp_.now();
      lines.append(text, at, end - at);
      atLineStart_ = lines.back() == '\n';
      at = end;
    }
    return lines;
  }

  static void finishLog();

  std::mutex mutex_;
  std::unique_ptr<LogTarget> target_;     ///< of a file
  std::unique_ptr<QueuedWriter> writer_;  ///< writes to it
  std::unique_ptr<PipeWriter> pipe_;      ///< in their place where a reader is at the other end
  std::once_flag finishesAtExit_;
  std::once_flag handlesCrashes_;
  std::atomic<int> failure_{0};  ///< the errno value that ended the writing to the pipe
  std::size_t leftOut_ = 0;      ///< texts left out of the pipe that no line reports yet
  std::string path_;
  TimeStamp stamp_;
  bool atLineStart_ = true;
  bool isBroken_ = false;  ///< the pipe
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

void flushLog() {
  const std::string problem = logFile().flush();
  if (!problem.empty()) events().log(true, problem);
}

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
