#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/base/TextOutput.h"
#include "app/base/Waiter.h"
#include "app/base/iLineReader.h"
#include "app/commands/Completion.h"

namespace korvel {

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
