#pragma once

#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

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

 private:
  void rotate();

  int descriptor_;
  std::string path_;
  std::size_t maxBytes_;
  std::size_t bytes_ = 0;
  bool isRegular_ = false;
  bool isAtLineStart_ = true;
};

/// Sends what the host prints on standard output (failed assertions and the like) to another
/// stream, which stays the caller's and must live until the next call; null restores standard
/// output. Any thread.
void setDiagnosticStream(std::FILE* stream);

/// Hands what the host prints on standard output to a function instead, which must not print by
/// these means itself; null restores the stream. Any thread.
void setDiagnosticWriter(std::function<void(const std::string& text)> writer);

}  // namespace korvel
