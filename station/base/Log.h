#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace korvel {

/// Writes all bytes, going on after an interruption; false, with errno, on failure.
bool writeAll(int descriptor, std::string_view bytes);

/// A file of lines that cannot fill a disk.
///
///     station.log      written to
///     station.log.1    what it held before, and so on: the oldest goes
///     station.log.4
///
/// When a whole line would make it larger than its limit, the file is renamed and a new one is
/// begun, readable by its user alone. What is no regular file is never renamed. One thread at a
/// time.
class RotatingFile {
 public:
  static constexpr std::size_t kMaxBytes = 64u << 20;

  /// How many files there are, the one that is written to among them.
  static constexpr int kFiles = 5;

  /// Takes over an open descriptor of the file at `path`.
  RotatingFile(int descriptor, std::string path, std::size_t maxBytes = kMaxBytes);
  RotatingFile(const RotatingFile&) = delete;
  RotatingFile& operator=(const RotatingFile&) = delete;
  ~RotatingFile();

  /// Opens a file for writing at its end, or empties it, with open()'s flag; one that it makes is
  /// readable by its user alone. Returns the descriptor, or -1 with errno set.
  static int open(const std::string& path, int flag);

  /// Writes all of it; false with errno set when that failed. A file that cannot be renamed goes
  /// on growing.
  bool write(std::string_view bytes);

  /// Whether the file system has room for what need not be: a twentieth of it is free. Looked at
  /// once a second at most. What is no regular file always has.
  [[nodiscard]] bool hasRoom();

  /// What a file says where it stops for want of room.
  static constexpr const char* kNoRoom =
      "less than 5 % of the file system is free, so nothing is written here until there is more";

  /// The free part of the file system of an open file, from 0 to 1.
  using FreePart = double (*)(int descriptor);

  /// Asks this instead of the system, for tests; null for the system. Before any file is written.
  static void setFreePart(FreePart freePart);

 private:
  void rotate();

  int descriptor_;
  std::string path_;
  std::size_t maxBytes_;
  std::size_t bytes_ = 0;
  bool isRegular_ = false;
  bool isAtLineStart_ = true;
  bool hasRoom_ = true;
  std::chrono::steady_clock::time_point nextLook_;
};

/// How many lines of the log each source of messages may fill, so that a stranger who is logged
/// fills no disk: so many at once, and so many a second for long. One thread at a time.
class LineBudget {
 public:
  using Time = std::chrono::steady_clock::time_point;

  static constexpr double kAtOnce = 1000;
  static constexpr double kPerSecond = 10;

  /// A source that was left out is written again once it has a budget of so many lines.
  static constexpr double kAgain = 50;

  /// More sources than any facility has. What comes from more shares one budget.
  static constexpr std::size_t kMostSources = 256;

  enum class Answer {
    eWrite,
    eLastLine,  ///< not this one, nor those that follow, which is to be said
    eCount,     ///< it was counted
  };

  /// Takes a line of a source's budget, or counts the line.
  Answer take(const std::string& source, Time now);

  /// The sentence about what was left out, of each source that has budget again; all of them at the
  /// end.
  std::vector<std::string> due(Time now);
  std::vector<std::string> all();

  /// Whether lines were left out that no report has counted yet.
  [[nodiscard]] bool hasLeftOut() const;

 private:
  struct Source {
    double left = kAtOnce;
    Time since;
    std::uint64_t leftOut = 0;
  };

  static void refill(Source& source, Time now);
  Source& sourceOf(const std::string& name, Time now);

  std::map<std::string, Source> sources_;
};

/// Marks lines of the log that this thread writes as caused by a source of messages, an address
/// with its port, for as long as it lives; the text must outlive it. None for an empty text.
class LogSourceScope {
 public:
  explicit LogSourceScope(const std::string& source);
  LogSourceScope(const LogSourceScope&) = delete;
  LogSourceScope& operator=(const LogSourceScope&) = delete;
  ~LogSourceScope();

 private:
  const std::string* before_;
};

/// Writes for each source that is quiet again how many of its lines were left out. Any
/// thread; to be called now and then, and with eAll at the end.
enum class LeftOutLines { eOfQuietSources, eAll };
void logLeftOutLines(LeftOutLines which);

/// Whether lines were left out that logLeftOutLines() has not counted yet.
bool hasLeftOutLines();

/// Waits until what was logged so far is in the log file, and tells the station's events what went
/// wrong with it; 2 seconds at most while nothing is written. Does nothing where the log is no
/// regular file. Any thread.
void flushLog();

/// Sends what the host prints on standard output (failed assertions and the like) to another
/// stream, which stays the caller's and must live until the next call; null restores standard
/// output. Any thread.
void setDiagnosticStream(std::FILE* stream);

/// Hands what the host prints on standard output to a function instead, which must not print by
/// these means itself; null restores the stream. Any thread.
void setDiagnosticWriter(std::function<void(const std::string& text)> writer);

}  // namespace korvel
