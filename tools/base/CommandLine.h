#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/base/Tool.h"

namespace CLI {
class App;
}

namespace korvel {

/// Declares the words and options of one command. Each call takes a variable for the value, which
/// must outlive the command line. `value` is the name of an option's value in help: "N",
/// "ADDR[,ADDR]". Where the variable holds a number other than zero, help shows it as the default.
class CommandOptions {
 public:
  CommandOptions(CLI::App& command, std::vector<std::string>& offered)
      : command_(command), offered_(offered) {}

  /// A word that must be given, or may be.
  void word(const char* name, std::string& into, const std::string& help);
  void optionalWord(const char* name, std::string& into, const std::string& help);

  /// Words for the shell to complete.
  void offer(const std::vector<std::string>& words);

  void flag(const char* name, bool& into, const std::string& help);
  void text(const char* name, const char* value, std::string& into, const std::string& help);
  void text(const char* name, const char* value, std::optional<std::string>& into,
            const std::string& help);

  /// An option that may be given several times, and whose values may be separated by commas.
  void list(const char* name, const char* value, std::vector<std::string>& into,
            const std::string& help);

  // Numbers within a range, both ends included; "nan" is refused.
  void number(const char* name, const char* value, int& into, int from, int to,
              const std::string& help);
  void number(const char* name, const char* value, std::optional<int>& into, int from, int to,
              const std::string& help);
  void number(const char* name, const char* value, double& into, double from, double to,
              const std::string& help);
  void number(const char* name, const char* value, std::uint64_t& into, std::uint64_t from,
              const std::string& help);

  /// A value that the command reads itself: `take` returns the problem, or an empty text.
  void value(const char* name, const char* value,
             std::function<std::string(const std::string&)> take, const std::string& help);

  /// A text that help prints below the options.
  void footer(const std::string& text);

 private:
  CLI::App& command_;
  std::vector<std::string>& offered_;
};

/// A command of kv-share: its name, the declaration of its words and options, and the function that
/// runs it.
template <typename Request>
struct Command {
  const char* name;
  const char* about;  ///< one line, for the list of commands
  std::function<void(CommandOptions&, Request&)> declare;
  std::function<ToolStatus(const Request&)> run;
};

/// The commands of kv-share, and the reader of its command line. "help" is always one of them.
class CommandLine {
 public:
  explicit CommandLine(const char* version);
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;
  ~CommandLine();

  template <typename Request>
  void add(Command<Request> command) {
    const auto request = std::make_shared<Request>();
    CommandOptions options = begin(command.name, command.about);
    command.declare(options, *request);
    end(command.name, [request, run = std::move(command.run)] { return run(*request); });
  }

  /// Reads a command line and runs the command that it names. A wrong command line is reported in
  /// one line on standard error, and the status is eToolUsage.
  ToolStatus run(int count, const char* const* words);

  [[nodiscard]] std::vector<std::string> commandNames() const;

  /// The words that a shell can complete behind a command: its options, and the words offered with
  /// CommandOptions::offer().
  [[nodiscard]] std::vector<std::string> wordsAfter(const std::string& command) const;

 private:
  struct Parts;

  CommandOptions begin(const char* name, const char* about);
  void end(const char* name, std::function<ToolStatus()> run);
  [[nodiscard]] const CLI::App* commandNamed(const std::string& word) const;
  [[nodiscard]] ToolStatus showHelp(const std::string& word) const;

  std::unique_ptr<Parts> parts_;
};

}  // namespace korvel
