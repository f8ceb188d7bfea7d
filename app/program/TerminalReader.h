#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/base/TextOutput.h"
#include "app/base/Waiter.h"
#include "app/base/iLineReader.h"
#include "app/commands/Command.h"

namespace korvel {

/// Reads lines from the terminal, with editing, a history and completion. What the station says
/// meanwhile is shown above the line being typed.
class TerminalReader : public iLineReader {
 public:
  /// What Tab knows of.
  struct Completing {
    const CommandTable& commands;
    std::function<std::vector<std::string>()>
        objects;  ///< cookies and names, asked for at each Tab
  };

  /// All references must outlive this.
  TerminalReader(const Waiter& waiter, TextOutput& text, Completing completing);
  TerminalReader(const TerminalReader&) = delete;
  TerminalReader& operator=(const TerminalReader&) = delete;
  ~TerminalReader() override;

  std::optional<std::string> next() override;
  [[nodiscard]] std::string place() const override { return {}; }
  [[nodiscard]] bool isInteractive() const override { return true; }

 private:
  class Editor;
  std::unique_ptr<Editor> editor_;
};

}  // namespace korvel
