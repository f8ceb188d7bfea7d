#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/base/EventSinks.h"
#include "app/base/TextOutput.h"
#include "app/commands/Command.h"
#include "station/base/Result.h"

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

/// Reads lines from a file or from standard input, as they come.
class ScriptReader : public iLineReader {
 public:
  /// `waiter` ends the reading; it must outlive this.
  explicit ScriptReader(const Waiter& waiter) : waiter_(waiter) {}
  ScriptReader(const ScriptReader&) = delete;
  ScriptReader& operator=(const ScriptReader&) = delete;
  ~ScriptReader() override;

  /// Opens `path`; "-" is standard input.
  Result<void> open(const std::string& path);

  std::optional<std::string> next() override;
  [[nodiscard]] std::string place() const override;
  [[nodiscard]] bool isInteractive() const override;

 private:
  bool readMore();

  const Waiter& waiter_;
  std::string name_;
  int descriptor_ = -1;
  int line_ = 0;
  std::string pending_;
  bool isAtEnd_ = false;
};

/// Waits until `descriptor` can be read; false when the program is to end first.
bool awaitInput(int descriptor, const Waiter& waiter);

/// Reads lines from the terminal, with editing, a history and completion. What the station says
/// meanwhile is shown above the line being typed.
class TerminalReader : public iLineReader {
 public:
  /// What Tab knows of.
  struct Completing {
    const CommandTable& commands;
    Candidates candidates;  ///< asked at each Tab
  };

  /// All references must outlive this. `historyFile` keeps the lines typed here for the next time;
  /// empty: they are forgotten.
  TerminalReader(const Waiter& waiter, TextOutput& text, Completing completing,
                 const std::string& historyFile);
  TerminalReader(const TerminalReader&) = delete;
  TerminalReader& operator=(const TerminalReader&) = delete;
  ~TerminalReader() override;

  /// An interrupt clears the line; a second one, without a key between them, is the line "quit".
  std::optional<std::string> next() override;

  std::optional<std::string> ask(const std::string& question) override;
  [[nodiscard]] std::string place() const override { return {}; }
  [[nodiscard]] bool isInteractive() const override { return true; }

  /// The person interrupts (Ctrl-C). False while no line is being read. Any thread.
  bool interrupt();

 private:
  class Editor;
  std::unique_ptr<Editor> editor_;
};

}  // namespace korvel
