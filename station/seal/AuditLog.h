#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "station/base/Json.h"
#include "station/base/Result.h"

namespace korvel {

/// A file that says who did what, and shows when something in it was changed or taken out.
///
///     {"time":"2026-11-22T12:04:05Z","user":"anna","what":"owner",...,"previous":"<64 digits>"}
///
/// One JSON object a line. `previous` is the BLAKE2b hash (32 bytes, in hexadecimal) of the bytes
/// of the line before, without its end; of the first line 64 zeros. So nobody can change a line
/// without changing all that follow; who keeps the hash of the last line elsewhere sees that, and
/// also what was cut off the end. Readable by its user alone. Several programs may write to one
/// file. Any thread.
class AuditLog {
 public:
  /// Longer lines are no records of this program's.
  static constexpr std::size_t kLongestLine = 1u << 20;

  explicit AuditLog(std::string path) : path_(std::move(path)) {}

  /// Appends a record, an object, as a line with its `previous`. Where the last line was cut, as
  /// by a power cut while it was written, the next begins on a line of its own. What cannot be
  /// written whole is not written at all. Waits for another program that writes, seconds at most.
  Result<void> append(JsonValue record) const;

  /// What is wrong in a line.
  struct Fault {
    std::size_t line = 0;  ///< from 1
    std::string what;      ///< a sentence
  };

  /// What a whole file says of itself.
  struct Checked {
    std::size_t lines = 0;
    std::string last;  ///< the hash of the last line, in hexadecimal; zeros where there is none
    std::vector<Fault> faults;
    std::vector<Fault> cut;  ///< lines that were cut while they were written; no forgery
  };

  /// Reads the file from its beginning to its end. Failure: it cannot be read.
  [[nodiscard]] Result<Checked> check() const;

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace korvel
