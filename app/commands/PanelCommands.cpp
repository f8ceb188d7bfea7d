#include "app/commands/PanelCommands.h"

#include <functional>

#include "app/commands/MessageAdvice.h"
#include "host/base/Log.h"
#include "station/ui/PanelDriver.h"

namespace korvel {

namespace {

Result<JsonValue> withPanel(const std::function<Result<JsonValue>(PanelDriver&)>& action) {
  Desktop* desktop = Desktop::current();
  if (!desktop) return Error{ErrorCode::eNotFound, "This station has no desktop for panels.", {}};
  PanelDriver hands(*desktop);
  return action(hands);
}

Result<JsonValue> nothingOr(const Result<void>& done) {
  if (!done) return done.error();
  return JsonValue();
}

Result<JsonValue> openPanel(const Arguments&) {
  return withPanel([](PanelDriver& hands) { return nothingOr(hands.open()); });
}

Result<JsonValue> closePanel(const Arguments&) {
  return withPanel([](PanelDriver& hands) { return nothingOr(hands.close()); });
}

Result<JsonValue> chooseRecipient(const Arguments& words) {
  return withPanel([&](PanelDriver& hands) { return nothingOr(hands.chooseRecipient(words[0])); });
}

void logAdvice(const std::string& advice) {
  if (!advice.empty()) LogBoth("%s\n", advice);
}

Result<JsonValue> type(const Arguments& words) {
  logAdvice(messageAdvice(words[0]));
  return withPanel([&](PanelDriver& hands) { return nothingOr(hands.type(words[0])); });
}

Result<JsonValue> pressReturn(const Arguments&) {
  return withPanel([](PanelDriver& hands) { return nothingOr(hands.pressReturn()); });
}

Result<JsonValue> say(const Arguments& words) {
  logAdvice(messageAdvice(words[1]));
  const auto said =
      withPanel([&](PanelDriver& hands) { return nothingOr(hands.say(words[0], words[1])); });
  if (said) logAdvice(recipientAdvice(words[0]));
  return said;
}

Result<JsonValue> lines(const Arguments&) {
  return withPanel([](PanelDriver& hands) -> Result<JsonValue> {
    const auto shown = hands.lines();
    if (!shown) return shown.error();
    JsonValue list = JsonValue::array();
    for (const std::string& line : *shown) list.append(line);
    return list;
  });
}

Result<JsonValue> show(const Arguments&) {
  return withPanel([](PanelDriver& hands) { return hands.show(); });
}

}  // namespace

void addPanelCommands(CommandTable& table) {
  table.add({"panel open", "", "Opens the message panel.", 0, 0, openPanel});
  table.add({"panel close", "", "Closes the message panel to its icon.", 0, 0, closePanel});
  table.add({"panel to", "USER", "Chooses whom the panel writes to; \"<All>\" is everybody.", 1, 1,
             chooseRecipient});
  table.add({"panel type", "TEXT", "Types into the panel's entry box.", 1, 1, type});
  table.add({"panel return", "", "Presses return in the panel's entry box.", 0, 0, pressReturn});
  table.add({"panel lines", "", "Shows the panel's conversation.", 0, 0, lines});
  table.add({"panel show", "", "Shows everything that the panel shows.", 0, 0, show});
  table.add({"say", "USER TEXT",
             "Writes to a user through the panel, opening it if need be; \"<All>\" is everybody.",
             2, 2, say});
}

}  // namespace korvel
