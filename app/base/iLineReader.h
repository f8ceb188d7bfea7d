#pragma once

#include <optional>
#include <string>

namespace korvel {

/// Where the console's lines come from. Console thread.
class iLineReader {
 public:
  virtual ~iLineReader() = default;

  /// The next line without its end; nothing at the end of the input and when the program is to end.
  virtual std::optional<std::string> next() = 0;

  /// What a person answers to a question; nothing where next() gives nothing, and where the
  /// question was interrupted.
  virtual std::optional<std::string> ask(const std::string& question) {
    (void)question;
    return next();
  }

  /// What stands before a problem with the line read last: "FILE:3: " for a script, empty at a
  /// terminal.
  [[nodiscard]] virtual std::string place() const = 0;

  /// Whether a person types, who goes on after a command that failed.
  [[nodiscard]] virtual bool isInteractive() const = 0;
};

}  // namespace korvel
