#include "host/base/Log.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>

#include "station/base/Events.h"
#include "station/base/StationSettings.h"

namespace {

/// The host log file of the settings, opened when the first line is written to it.
class LogFile {
 public:
  /// Appends a text; each of its lines begins with the time. Returns a sentence when the file
  /// cannot be opened or written to, once; else the empty text.
  std::string write(const std::string& text) {
    const std::lock_guard lock(mutex_);
    std::string problem = open();
    if (!file_) return problem;
    errno = 0;
    for (const char byte : text) {
      if (atLineStart_) writeTime();
      atLineStart_ = byte == '\n';
      std::fputc(byte, file_);
    }
    return std::ferror(file_) != 0 ? brokenOff() : problem;
  }

 private:
  std::string open() {
    if (path_ == settings().logFile) return {};
    path_ = settings().logFile;
    if (file_) std::fclose(file_);
    file_ = path_.empty() ? nullptr : std::fopen(path_.c_str(), "ae");
    if (path_.empty()) return {};
    if (!file_) {
      return "The log file " + path_ + " cannot be opened: " + std::strerror(errno) +
             ". Nothing is written to it; name another with --log.\n";
    }
    std::setvbuf(file_, nullptr, _IOLBF, BUFSIZ);
    atLineStart_ = true;
    isBroken_ = false;
    return {};
  }

  /// Later lines are tried all the same: a full disk may have room again.
  std::string brokenOff() {
    const int why = errno;
    std::clearerr(file_);
    if (isBroken_) return {};
    isBroken_ = true;
    return "The log file " + path_ + " cannot be written to: " + std::strerror(why) +
           ". Lines are missing in it; make room, or name another with --log.\n";
  }

  void writeTime() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    localtime_r(&now, &parts);
    char stamp[32];
    std::fwrite(stamp, 1, std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S ", &parts), file_);
  }

  std::mutex mutex_;
  std::FILE* file_ = nullptr;
  std::string path_;
  bool atLineStart_ = true;
  bool isBroken_ = false;
};

/// Never destroyed: lines are written until the very end of the process.
LogFile& logFile() {
  static auto* const file = new LogFile;
  return *file;
}

void writeToFile(const std::string& text) {
  const std::string problem = logFile().write(text);
  if (!problem.empty()) events().log(true, problem);
}

}  // namespace

void writeLog(const std::string& text) {
  writeToFile(text);
  events().log(false, text);
}

void writeLogAndConsole(const std::string& text) {
  writeToFile(text);
  events().log(true, text);
}
