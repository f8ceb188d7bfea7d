#include "app/commands/Commands.h"

#include <algorithm>
#include <functional>

#include "app/commands/MessageAdvice.h"
#include "host/base/Log.h"
#include "host/base/Text.h"
#include "host/project/iPermissionsManager.h"
#include "station/Station.h"
#include "station/base/Rendering.h"
#include "station/base/Strings.h"
#include "station/ui/PanelDriver.h"

namespace korvel {

namespace {

Result<JsonValue> withPanel(Station& station,
                            const std::function<Result<JsonValue>(PanelDriver&)>& action) {
  PanelDriver hands(station.desktop());
  return action(hands);
}

Result<JsonValue> openPanel(Station& station, const Arguments&) {
  return withPanel(station, [](PanelDriver& hands) { return answer(hands.open()); });
}

Result<JsonValue> closePanel(Station& station, const Arguments&) {
  return withPanel(station, [](PanelDriver& hands) { return answer(hands.close()); });
}

Result<JsonValue> chooseRecipient(Station& station, const Arguments& words) {
  return withPanel(station,
                   [&](PanelDriver& hands) { return answer(hands.chooseRecipient(words[0])); });
}

void logAdvice(const std::string& advice) {
  if (!advice.empty()) LogBoth("%s\n", advice);
}

Result<JsonValue> type(Station& station, const Arguments& words) {
  logAdvice(messageAdvice(words[0]));
  return withPanel(station, [&](PanelDriver& hands) { return answer(hands.type(words[0])); });
}

Result<JsonValue> pressReturn(Station& station, const Arguments&) {
  return withPanel(station, [](PanelDriver& hands) { return answer(hands.pressReturn()); });
}

/// Puts a user whom the panel does not offer into its menu: one of the user list who was added
/// since the panel was opened, or one at work here whom nobody put into the list.
Result<void> offer(PanelDriver& hands, const std::string& user) {
  iPermissionsManager* const manager = iPermissionsManager::instance();
  if (!manager) return {};
  LightweightString<wchar_t> name = wideText(user);
  Kv::toUpper(name);
  const auto& known = manager->getUserList();
  const bool isKnown = std::ranges::find(known, name) != known.end();
  if (!isKnown && !isAtWork(user)) return {};
  manager->addUser(name);
  return hands.reopen();
}

Result<void> sayTo(PanelDriver& hands, const std::string& user, const std::string& text) {
  auto said = hands.say(user, text);
  if (said || said.error().code != ErrorCode::eNotFound) return said;
  if (auto offered = offer(hands, user); !offered) return offered;
  return hands.say(user, text);
}

Result<JsonValue> say(Station& station, const Arguments& words) {
  logAdvice(messageAdvice(words[1]));
  const auto said = withPanel(
      station, [&](PanelDriver& hands) { return answer(sayTo(hands, words[0], words[1])); });
  // After the message has left: the advice reads the projects directory, which may be slow.
  if (said) logAdvice(recipientAdvice(words[0]));
  return said;
}

Result<JsonValue> lines(Station& station, const Arguments&) {
  return withPanel(station, [](PanelDriver& hands) -> Result<JsonValue> {
    const auto shown = hands.lines();
    if (!shown) return shown.error();
    JsonValue list = JsonValue::array();
    for (const std::string& line : *shown) list.append(line);
    return list;
  });
}

Result<JsonValue> show(Station& station, const Arguments&) {
  return withPanel(station, [](PanelDriver& hands) { return hands.show(); });
}

/// A line of the panel as it was typed. The panel widens the bytes of a text one by one, so that
/// each letter beyond ASCII became several.
std::string asTyped(const std::string& line) {
  const LightweightString<wchar_t> letters = wideText(line);
  std::string bytes;
  for (const wchar_t letter : letters.view()) {
    if (letter > 0xFF) return line;
    bytes += static_cast<char>(letter);
  }
  return isUtf8(bytes) ? bytes : line;
}

JsonValue linesAsTyped(const JsonValue& lines) {
  JsonValue typed = JsonValue::array();
  for (const JsonValue& line : lines.elements()) typed.append(asTyped(line.asString()));
  return typed;
}

std::string shownLines(Station&, const Arguments&, const JsonValue& lines) {
  return renderForPeople(linesAsTyped(lines));
}

std::string shownPanel(Station&, const Arguments&, const JsonValue& panel) {
  JsonValue typed = panel;
  if (panel.find("lines")) typed.set("lines", linesAsTyped(panel["lines"]));
  return renderForPeople(typed);
}

}  // namespace

void addPanelCommands(CommandTable& table) {
  table.add({"panel open", "", "Opens the message panel.", 0, 0, openPanel});
  table.add({"panel close", "", "Closes the message panel to its icon.", 0, 0, closePanel});
  table.add({"panel to", "USER", "Chooses whom the panel writes to; \"<All>\" is everybody.", 1, 1,
             chooseRecipient});
  table.add({"panel type", "TEXT", "Types into the panel's entry box.", 1, 1, type});
  table.add({"panel return", "", "Presses return in the panel's entry box.", 0, 0, pressReturn});
  table.add({"panel lines", "", "Shows the panel's conversation.", 0, 0, lines,
             Command::Place::eHostThread, shownLines});
  table.add({"panel show", "", "Shows everything that the panel shows.", 0, 0, show,
             Command::Place::eHostThread, shownPanel});
  table.add({"say", "USER TEXT",
             "Writes to a user through the panel, opening it if need be; \"<All>\" is everybody.",
             2, 2, say});
}

}  // namespace korvel
