#include "app/commands/Commands.h"

#include <algorithm>
#include <charconv>
#include <functional>

#include "host/base/Config.h"
#include "host/base/Log.h"
#include "host/base/Text.h"
#include "host/net/iNetworkService.h"
#include "host/os/OS.h"
#include "host/project/ProjectSpacesManager.h"
#include "host/project/iPermissionsManager.h"
#include "host/project/iProjectShare.h"
#include "station/Station.h"
#include "station/base/Json.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/os/SharedFiles.h"
#include "station/project/Names.h"
#include "station/talk/Asks.h"
#include "station/talk/Conversation.h"
#include "station/ui/PanelDriver.h"
#include "station/watch/Presence.h"
#include "station/wire/MessageTable.h"

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

/// Does what needs a user in the panel's menu, which has to be put there first where it is not.
Result<void> withRecipient(PanelDriver& hands, const std::string& user,
                           const std::function<Result<void>()>& action) {
  auto done = action();
  if (done || done.error().code != ErrorCode::eNotFound) return done;
  if (auto offered = offer(hands, user); !offered) return offered;
  return action();
}

Result<JsonValue> chooseRecipient(Station& station, const Arguments& words) {
  return withPanel(station, [&](PanelDriver& hands) {
    const auto choose = [&] { return hands.chooseRecipient(words[0]); };
    return answer(withRecipient(hands, words[0], choose));
  });
}

Result<void> sayTo(PanelDriver& hands, const std::string& user, const std::string& text) {
  return withRecipient(hands, user, [&] { return hands.say(user, text); });
}

Result<JsonValue> say(Station& station, const Arguments& words) {
  const std::string text = wordsToSend(words[1]);
  logAdvice(messageAdvice(text));
  const auto said =
      withPanel(station, [&](PanelDriver& hands) { return answer(sayTo(hands, words[0], text)); });
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

// Asking and answering.

Result<JsonValue> ask(Station& station, const Arguments& words) {
  return station.asks().ask(words[0], words.size() > 1 ? words[1] : std::string());
}

std::string shownAsking(Station&, const Arguments&, const JsonValue& ask) {
  const std::string& whom = ask["to"].asString();
  const std::string what = "the " + ask["kind"].asString() + " " + inQuotes(ask["name"].asString());
  if (ask["here"].asBool()) {
    return "Asked " + whom + " for " + what + ". \"asks\" shows what waits for an answer.";
  }
  return whom + " is not here now: the ask for " + what + " waits until " + whom + " is back.";
}

Result<JsonValue> asks(Station& station, const Arguments&) { return station.asks().list(); }

std::string shownAsks(Station&, const Arguments&, const JsonValue& asks) {
  if (asks.elements().empty()) return "Nothing waits for an answer.";
  JsonValue rows = JsonValue::array();
  for (const JsonValue& each : asks.elements()) {
    const bool isOwn = each["own"].asBool();
    const char* const you = each["awaited"].asBool() ? "you wait for " : "you asked ";
    const std::string whom = isOwn ? you + each["to"].asString() : each["from"].asString();
    rows.append(JsonValue::object(
        {{"number", each["number"]},
         {"who", whom},
         {"for", each["kind"].asString() + " " + inQuotes(each["name"].asString())},
         {"text", each["text"]},
         {"time", each["time"]}}));
  }
  return renderForPeople(rows);
}

Result<JsonValue> answerAsk(Station& station, const Arguments& words) {
  long number = 0;
  const char* const end = words[0].data() + words[0].size();
  const auto [stop, problem] = std::from_chars(words[0].data(), end, number);
  const bool gives = words[1] == "give";
  if (problem != std::errc() || stop != end || (!gives && words[1] != "no")) {
    return Error{ErrorCode::eUsage,
                 "Usage: answer N give|no [TEXT], with a number that \"asks\" shows.",
                 {}};
  }
  return station.asks().answer(number, gives ? Asks::Answer::eGive : Asks::Answer::eKeep,
                               words.size() > 2 ? words[2] : std::string());
}

std::string shownAnswering(Station&, const Arguments&, const JsonValue& ask) {
  if (ask["awaited"].asBool()) return "You are not told any more when it is free.";
  return ask["own"].asBool() ? "Taken back." : "Answered.";
}

Result<JsonValue> tellWhenFree(Station& station, const Arguments& words) {
  return station.asks().tellWhenFree(words[0]);
}

std::string shownWaiting(Station&, const Arguments&, const JsonValue& held) {
  return "You are told when " + held["holder"].asString() + " no longer holds the " +
         held["kind"].asString() + " " + inQuotes(held["name"].asString()) + ".";
}

Result<JsonValue> conversation(Station& station, const Arguments& words) {
  return station.conversation().listed(words.empty() ? std::string() : words[0]);
}

std::string shownConversation(Station&, const Arguments&, const JsonValue& said) {
  if (said.elements().empty()) return "Nothing was said yet.";
  std::string text;
  for (const JsonValue& each : said.elements()) {
    if (!text.empty()) text += "\n";
    text += wallText(each["when"].asLong()) + "  ";
    if (each["kind"].asString() == "words") {
      text += each["from"].asString() + " to " + each["to"].asString() + ": ";
    }
    text += each["text"].asString() + (each["cut"].asBool() ? " (cut here)" : "") +
            (each["unverified"].asBool() ? " (unverified)" : "");
  }
  return text;
}

void addAsking(CommandTable& table) {
  table.add({"ask", "OBJECT [TEXT]",
             "Asks whoever holds an edit, room or private project for it, with a few words if "
             "given. \"room:Sound\" is the room where an edit is called so, too.",
             1, 2, ask, Command::Place::eHostThread, shownAsking});
  table.add({"asks", "",
             "Shows what waits for an answer, others' asks and yours, and what you wait for with "
             "\"tell-when-free\".",
             0, 0, asks, Command::Place::eHostThread, shownAsks});
  table.add({"answer", "N give|no [TEXT]",
             "Answers the ask of this number: gives what is asked for away, saved, or keeps it. "
             "\"no\" takes an ask of yours back, and ends your waiting.",
             2, 3, answerAsk, Command::Place::eHostThread, shownAnswering});
  table.add({"tell-when-free", "OBJECT",
             "Tells you when you can have an edit, room or private project that another holds. "
             "\"asks\" shows what you wait for, \"answer N no\" ends it.",
             1, 1, tellWhenFree, Command::Place::eHostThread, shownWaiting});
  table.add({"conversation", "[USER]",
             "Shows what you and others said and asked, with one colleague or with all; kept over "
             "restarts.",
             0, 1, conversation, Command::Place::eHostThread, shownConversation});
}

}  // namespace

void addTalkCommands(CommandTable& table) {
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
  addAsking(table);
}

// Who is here, and requests to other machines.

namespace {

Error noPlugin() {
  return {ErrorCode::eNotFound,
          "Nothing manages users here, since no sharing plug-in is loaded; start the station with "
          "--plugin FILE.",
          {}};
}

Result<JsonValue> users(Station&, const Arguments&) {
  iPermissionsManager* const manager = iPermissionsManager::instance();
  if (!manager) return noPlugin();
  const LightweightString<wchar_t> self = manager->getCurrentUser();
  JsonValue all = JsonValue::array();
  for (const LightweightString<wchar_t>& user : manager->getUserList()) {
    all.append(JsonValue::object({{"user", shownText(user)}, {"self", user == self}}));
  }
  return all;
}

Result<JsonValue> addUser(Station&, const Arguments& arguments) {
  iPermissionsManager* const manager = iPermissionsManager::instance();
  if (!manager) return noPlugin();
  if (const Result<void> sound = checkName("user", arguments[0]); !sound) return sound.error();
  manager->addUser(wideText(arguments[0]));
  return JsonValue();
}

Result<JsonValue> active(Station&, const Arguments&) {
  iProjectShare* const share = iProjectShare::instance();
  if (!share) return noPlugin();
  const std::uint32_t count = share->getNumActiveUsers();
  if (count > 0) return JsonValue(count);
  // 0 is the answer for an unreadable folder, too: tell the two apart.
  if (auto files = listFresh(settings().projectsDirectory); !files) return files.error();
  return JsonValue(0);
}

/// Shows both names of the user: owners are recorded under the permissions manager's own.
Result<JsonValue> whoAmI(Station&, const Arguments&) {
  const LightweightString<wchar_t> user = OS().currentUserName();
  const iPermissionsManager* const manager = iPermissionsManager::instance();
  return JsonValue::object({{"user", shownText(user)},
                            {"owner_name", shownText(manager ? manager->getCurrentUser() : user)},
                            {"host", shownText(OS().networkHostName())},
                            {"machine", Cookie::getLocalMachineNumber()},
                            {"network_mode", ProjectSpacesManager::machineIsInNetworkMode()}});
}

Result<JsonValue> who(Station& station, const Arguments& arguments) {
  const Presence& presence = station.presence();
  if (arguments.empty()) return presence.who(Presence::Which::eHere);
  if (arguments[0] == "--all") return presence.who(Presence::Which::eAll);
  return Error{ErrorCode::eUsage,
               inQuotes(arguments[0]) + " is not understood; \"who\" takes --all only.",
               {}};
}

/// For people: where each is, with what open.
std::string showWho(Station&, const Arguments&, const JsonValue& stations) {
  JsonValue table = JsonValue::array();
  for (const JsonValue& each : stations.elements()) {
    table.append(
        JsonValue::object({{"user", each["user"]},
                           {"host", each["host"]},
                           {"state", each["self"].asBool() ? JsonValue("this one") : each["state"]},
                           {"project", each["project"]},
                           {"room", each["room"]},
                           {"open", each["open"].elements().size()},
                           {"unsaved", each["unsaved"].elements().size()},
                           {"since", each["since"]}}));
  }
  return renderForPeople(table);
}

Result<int> machineNumber(const std::string& text) {
  int number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, problem] = std::from_chars(text.data(), end, number);
  if (problem == std::errc() && stop == end && number >= 0) return number;
  return Error{
      ErrorCode::eUsage,
      inQuotes(text) + " is no machine number; \"whoami\" on the other station shows its number.",
      {}};
}

Result<void> checkTravelsWhole(const std::string& command) {
  if (!command.empty() && travelsWhole(command)) return {};
  return Error{ErrorCode::eUsage,
               inQuotes(command) + " is no command that another machine can be sent.",
               {}};
}

Result<JsonValue> request(Station&, const Arguments& arguments) {
  const Result<int> machine = machineNumber(arguments[0]);
  if (!machine) return machine.error();
  if (auto sound = checkTravelsWhole(arguments[1]); !sound) return sound.error();
  iProjectShare* const share = iProjectShare::instance();
  const LightweightString<wchar_t> user = share ? share->getCurrentUser() : OS().currentUserName();
  const std::string text = composeActionRequest(utf8Text(get_project_cookie().asString()),
                                                utf8Text(user), *machine, arguments[1]);
  const int port = stationPort();
  OSPrivate().networkService().createUDPBroadcaster(port)->broadcast(hostText(text));
  return JsonValue();
}

}  // namespace

void addUserCommands(CommandTable& table) {
  table.add({"users", "", "Shows the known users.", 0, 0, users});
  table.add({"user add", "NAME", "Adds a user to this station's list until it ends.", 1, 1, addUser,
             Command::Place::eHostThread,
             [](Station&, const Arguments& arguments, const JsonValue&) {
               return inQuotes(arguments[0]) +
                      " is on this station's list until it ends; the projects directory's "
                      "userlist.dat holds every station's.";
             }});
  table.add(
      {"active", "", "Shows how many users are at work in the projects directory.", 0, 0, active});
  table.add({"who", "[--all]",
             "Shows the stations at work here, this one first; with --all those, too, that are "
             "gone without goodbye.",
             0, 1, who, Command::Place::eHostThread, showWho});
  table.add(
      {"whoami", "",
       "Shows this station's user, host, machine number and network mode, and the name under which "
       "the user's things are recorded.",
       0, 0, whoAmI});
  table.add({"request", "MACHINE COMMAND",
             "Asks the station with this machine number to run one of its remote commands.", 2, 2,
             request, Command::Place::eHostThread,
             [](Station&, const Arguments& arguments, const JsonValue&) {
               return "Machine " + arguments[0] + " was asked to run " + inQuotes(arguments[1]) +
                      ". Nobody answers a request: look there whether it did.";
             }});
}

}  // namespace korvel
