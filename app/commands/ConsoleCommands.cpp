#include "app/commands/Commands.h"

#include <charconv>
#include <chrono>
#include <cstdio>

#include "station/Station.h"
#include "station/base/Events.h"
#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "station/project/Projects.h"
#include "station/watch/CatchUp.h"
#include "station/watch/Health.h"

namespace korvel {

namespace {

constexpr double kDefaultTimeout = 10;
constexpr double kLongest = 1e7;  // seconds; about four months

constexpr const char* kEventNames =
    "ready, reply, sent, received, changed, log, panel, notification, command, network, presence, "
    "health, steps, closed";

Error usageError(const std::string& message) { return {ErrorCode::eUsage, message, {}}; }

Result<double> readSeconds(const std::string& text) {
  double seconds = 0;
  const char* end = text.data() + text.size();
  const auto [stop, problem] = std::from_chars(text.data(), end, seconds);
  if (problem != std::errc() || stop != end || !(seconds >= 0 && seconds <= kLongest)) {
    return usageError(inQuotes(text) + " is no number of seconds; give one such as 2.5.");
  }
  return seconds;
}

Waiter::Clock::time_point deadlineIn(double seconds) {
  return Waiter::Clock::now() + std::chrono::duration_cast<Waiter::Clock::duration>(
                                    std::chrono::duration<double>(seconds));
}

std::string fullUsage(const Command& command) {
  return command.usage.empty() ? command.name : command.name + " " + command.usage;
}

JsonValue helpRow(const Command& command) {
  return JsonValue::object({{"command", fullUsage(command)}, {"does", command.help}});
}

Result<JsonValue> help(const CommandTable& table, const Arguments& words) {
  const std::string name = joined(words, " ");
  JsonValue rows = JsonValue::array();
  for (const auto& [each, command] : table.all()) {
    if (name.empty() || each == name || each.starts_with(name + " ")) rows.append(helpRow(command));
  }
  if (!rows.elements().empty()) return rows;
  return noCommand(table, words);
}

/// The words of `wait`, as read.
struct Wanted {
  EventPattern pattern;
  double timeout = kDefaultTimeout;
};

Result<void> readPair(const std::string& word, const ConsoleServices& services, Wanted& wanted) {
  const std::size_t equals = word.find('=');
  if (equals == 0 || equals == std::string::npos) {
    return usageError(inQuotes(word) +
                      " is no KEY=VALUE; usage: wait EVENT [KEY=VALUE...] "
                      "[--timeout S]");
  }
  const std::string key = word.substr(0, equals);
  const std::string value = word.substr(equals + 1);
  // A name may be given for a cookie. The word itself counts, too: the object may be gone, or not
  // there yet.
  std::set<std::string> texts{value};
  if (key == "cookie" || key == "project") {
    if (const std::string cookie = services.cookieOf(value); !cookie.empty()) texts.insert(cookie);
  }
  wanted.pattern.keys.emplace_back(key, std::move(texts));
  return {};
}

Result<Wanted> readWanted(const Arguments& words, const ConsoleServices& services) {
  Wanted wanted{{words.front(), {}}, kDefaultTimeout};
  for (std::size_t i = 1; i < words.size(); ++i) {
    if (words[i] != "--timeout") {
      if (auto read = readPair(words[i], services, wanted); !read) return read.error();
      continue;
    }
    if (++i == words.size()) return usageError("--timeout needs a number of seconds.");
    const auto seconds = readSeconds(words[i]);
    if (!seconds) return seconds.error();
    wanted.timeout = *seconds;
  }
  return wanted;
}

bool isEventName(const std::string& name) {
  return (", " + std::string(kEventNames) + ",").find(", " + name + ",") != std::string::npos;
}

Result<JsonValue> waitForEvent(const Arguments& words, const ConsoleServices& services) {
  if (!isEventName(words.front())) {
    return usageError(inQuotes(words.front()) + " is no event; there are " + kEventNames + ".");
  }
  const auto wanted = readWanted(words, services);
  if (!wanted) return wanted.error();
  const auto event = services.history.await(wanted->pattern, deadlineIn(wanted->timeout));
  if (event) return *event;
  if (services.waiter.isEnding()) return Error{ErrorCode::eSystem, "The station ends.", {}};
  char seconds[32];
  std::snprintf(seconds, sizeof seconds, "%g", wanted->timeout);
  return Error{ErrorCode::eNotFound,
               "No event " + inQuotes(joined(words, " ")) + " within " + seconds +
                   " s; --timeout S waits longer.",
               {}};
}

Result<JsonValue> sleepFor(const Arguments& words, Waiter& waiter) {
  const auto seconds = readSeconds(words.front());
  if (!seconds) return seconds.error();
  waiter.await(deadlineIn(*seconds), [] { return false; });
  return JsonValue();
}

Result<JsonValue> listNotifications() {
  JsonValue all = JsonValue::array();
  for (const Notification& each : notifications()) {
    JsonValue shown = JsonValue::object({{"time", each.timeText()}});
    const auto add = [&shown](JsonValue::Member member) { shown.set(member.first, member.second); };
    if (!each.source.empty()) add(textMember("from", each.source));
    add(textMember("text", each.text));
    if (each.isCut) add({"cut", true});
    if (each.isUnverified) add({"unverified", true});
    all.append(std::move(shown));
  }
  return all;
}

/// The same for people: what is no text is shown as far as it can be read.
std::string shownNotifications(Station&, const Arguments&, const JsonValue& all) {
  const auto readable = [](const JsonValue& one, const std::string& key) {
    if (const JsonValue* text = one.find(key)) return text->asString();
    return loggedText(bytesOfHex(one[key + "_hex"].asString()).value_or(""));
  };
  JsonValue rows = JsonValue::array();
  for (const JsonValue& each : all.elements()) {
    const std::string mark = each["unverified"].asBool() ? " (unverified)" : "";
    const std::string end = each["cut"].asBool() ? " (cut here)" : "";
    rows.append(JsonValue::object({{"time", each["time"]},
                                   {"from", readable(each, "from") + mark},
                                   {"text", readable(each, "text") + end}}));
  }
  return renderForPeople(rows);
}

JsonValue shownState(Station& station) {
  JsonValue state = station.projects().state();
  state.set("health", shownHealth(station.health().now()));
  if (const auto counts = station.catchUp().counts()) {
    state.set("watch",
              JsonValue::object(
                  {{"asked", counts->asked}, {"listed", counts->listed}, {"read", counts->read}}));
  }
  return state;
}

Result<JsonValue> quit(const Arguments& arguments, const ConsoleServices& services) {
  Arguments words = arguments;
  const auto leaving = takeLeaving(words);
  if (!leaving) return leaving.error();
  if (!words.empty()) return usageError("Usage: quit [--save|--discard]");
  if (services.prepareToEnd) {
    if (auto prepared = services.prepareToEnd(*leaving); !prepared) return prepared.error();
  }
  // Only after unsaved changes are settled: the console must be able to refuse.
  services.waiter.end();
  return JsonValue();
}

}  // namespace

void addConsoleCommands(CommandTable& table, const ConsoleServices& services) {
  // Commands that wait, and those that need nothing of the station, must not keep the host thread.
  const auto here = Command::Place::eConsoleThread;
  table.add(
      {"help", "[COMMAND]", "Lists the commands, or those that begin like this.", 0, 4,
       [&table](Station&, const Arguments& words) { return help(table, words); }, here,
       [](Station&, const Arguments&, const JsonValue& rows) { return renderWrapped(rows); }});
  table.add({"state", "",
             "Shows everything that this station shows of the open project, how it is, and what "
             "watching its "
             "folder asked of the share.",
             0, 0, [](Station& station, const Arguments&) -> Result<JsonValue> {
               return shownState(station);
             }});
  table.add({"notifications", "",
             "Shows the texts that reached this station and that no panel took.", 0, 0,
             [](Station&, const Arguments&) { return listNotifications(); },
             Command::Place::eHostThread, shownNotifications});
  table.add({"wait", "EVENT [KEY=VALUE...] [--timeout S]",
             "Waits for an event that was not waited for before, 10 seconds at most.", 1,
             Command::kAnyNumber,
             [services](Station&, const Arguments& words) { return waitForEvent(words, services); },
             here});
  table.add(
      {"sleep", "S", "Waits for S seconds.", 1, 1,
       [services](Station&, const Arguments& words) { return sleepFor(words, services.waiter); },
       here});
  table.add({"quit",
             "[--save|--discard]",
             "Leaves room and project, and ends the station; so do Ctrl-D and, a second time, "
             "Ctrl-C. Refused with unsaved changes unless they are saved or discarded.",
             0,
             1,
             [services](Station&, const Arguments& words) { return quit(words, services); },
             here,
             {},
             leavingChoices()});
}

}  // namespace korvel
