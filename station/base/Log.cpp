#include "host/base/Log.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>

#include "station/base/Events.h"
#include "station/base/StationSettings.h"

namespace {

/// The host log file of the settings, opened when the first line is written.
class LogFile {
 public:
  /// Appends a text; each of its lines begins with the time. Returns a sentence when the file
  /// cannot be opened, once; else the empty text.
  std::string write(const std::string& text) {
    const std::lock_guard lock(mutex_);
    std::string problem = open();
    if (!file_) return problem;
    for (const char byte : text) {
      if (atLineStart_) writeTime();
      atLineStart_ = byte == '\n';
      std::fputc(byte, file_);
    }
    return problem;
  }

 private:
  std::string open() {
    if (opened_ || settings().logFile.empty()) return {};
    opened_ = true;
    file_ = std::fopen(settings().logFile.c_str(), "ae");
    if (!file_) {
      return "The log file " + settings().logFile + " cannot be opened: " + std::strerror(errno) +
             ". Nothing is written to it; name another with --log.\n";
    }
    std::setvbuf(file_, nullptr, _IOLBF, BUFSIZ);
    return {};
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
  bool opened_ = false;
  bool atLineStart_ = true;
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
