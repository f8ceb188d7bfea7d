#include <iterator>
#include <variant>

#include "app/base/EventSinks.h"
#include "app/base/Options.h"
#include "app/commands/Command.h"
#include "app/commands/Commands.h"
#include "station/base/Strings.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/fuzz/Parsers.h"

namespace korvel {

namespace {

/// A changed value is read back, and every other line as before.
void checkConfigChange(std::string_view bytes) {
  const auto before = parseConfig(bytes, "f");
  const auto changed = changedConfig(bytes, {{"user", {" ANNA #1"}}});
  if (!changed || !before) return;
  const auto after = parseConfig(*changed, "f");
  const auto others = [](const std::vector<ConfigLine>& lines) {
    std::string text;
    for (const ConfigLine& line : lines) {
      if (line.key != "user") text += line.key + '=' + line.value + '\n';
    }
    return text;
  };
  mustBeEqual("other lines", after ? others(*after) : after.error().message, others(*before));
  std::string user;
  for (const ConfigLine& line : *after) {
    if (line.key == "user") user = line.value;
  }
  mustBeEqual("user", user, " ANNA #1");
}

/// A configuration is taken whole or refused with a line that can be shown.
void checkConfig(std::string_view bytes) {
  checkConfigChange(bytes);
  const std::string file = placed("station.conf", bytes);
  const char* const words[] = {"kv-station", "--projects", "/tmp", "--config", file.c_str()};
  const auto options = readOptions(std::size(words), words);
  const auto* const end = std::get_if<ProgramEnd>(&options);
  if (end) mustBeShowable("refusal", end->text);
}

/// The words of a line come back from what must be typed for them, and a line names a command or
/// says why not.
void checkConsoleLine(std::string_view bytes) {
  static Waiter waiter;
  static EventHistory history(waiter);
  static CommandTable commands;
  if (commands.all().empty()) addCommands(commands, {waiter, history, {}});
  const auto words = splitCommandLine(bytes);
  if (words) {
    std::vector<std::string> quoted;
    for (const std::string& word : *words) quoted.push_back(quotedWord(word));
    const auto again = splitCommandLine(joined(quoted, " "));
    mustBeEqual("words", again && *again == *words ? "same" : joined(quoted, " "), "same");
  }
  const CommandCall call = readCall(commands, std::string(bytes));
  if (call.problem) mustBeShowable("problem", call.problem->message);
}

}  // namespace

void addAppParsers(Parsers& parsers) {
  parsers.insert({{"Config", checkConfig}, {"ConsoleLine", checkConsoleLine}});
}

}  // namespace korvel
