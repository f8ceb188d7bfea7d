#include "station/RemoteCommands.h"

#include <algorithm>
#include <array>
#include <optional>
#include <sstream>

#include "host/base/Log.h"
#include "host/project/ProjectSpacesManager.h"
#include "station/base/Events.h"
#include "station/base/HostParts.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/containers/Containers.h"
#include "station/wire/MessageTable.h"

using namespace korvel;

namespace korvel {

namespace {

struct StationCommand {
  const char* name;
  std::string (*run)();  ///< does it, and says what was done
};

std::string identify() {
  const std::string host = settings().host.empty() ? "This station" : settings().host;
  return host + " (machine " + std::to_string(Cookie::getLocalMachineNumber()) +
         ") was asked to identify itself.";
}

std::string refresh() {
  if (Bins* const bins = hostParts().bins) bins->readAllAgain();
  if (Racks* const racks = hostParts().racks) racks->readAllAgain();
  if (Filters* const filters = hostParts().filters) filters->reInit();
  ProjectSpacesManager::refreshCurrentLobby();
  return "What this station shows of the open project was read again, as another machine asked.";
}

constexpr std::array kCommands{StationCommand{"identify", identify},
                               StationCommand{"refresh", refresh}};

}  // namespace

namespace {

/// The configuration's "remote_commands": the names that other machines may ask for, separated by
/// commas. Absent, all of them; empty, none.
std::optional<std::vector<std::string>> configuredNames() {
  const auto& config = settings().config;
  const auto found = config.find("remote_commands");
  if (found == config.end()) return std::nullopt;
  std::vector<std::string> names;
  std::istringstream words(found->second);
  for (std::string word; std::getline(words, word, ',');) {
    std::erase(word, ' ');
    if (!word.empty()) names.push_back(word);
  }
  return names;
}

void auditCommand(const std::string& name, bool isAllowed) {
  const ReceivedMessage* const message = currentMessage();
  events().audit("command", {{"name", name},
                             {"allowed", isAllowed},
                             textMember("by", message ? message->by : std::string()),
                             {"sender", message ? message->from : std::string()}});
}

bool isOneOf(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

RemoteCommands::RemoteCommands() : allowed_(configuredNames().value_or(names())) {
  for (const std::string& name : allowed_) {
    if (isOneOf(names(), name)) continue;
    LogBoth("remote_commands names %s, which is no command; there are %s.\n", inQuotes(name),
            joined(names(), ", "));
  }
}

RemoteCommands::~RemoteCommands() = default;

}  // namespace korvel

CommandMap& CommandMap::theCommandMap() {
  if (hostParts().commands) return *hostParts().commands;
  static RemoteCommands withoutStation;
  return withoutStation;
}

namespace korvel {

CommandMap::Index RemoteCommands::findCommand(const LightweightString<char>& name) const {
  for (Index index = 0; index < kCommands.size(); ++index) {
    if (name == kCommands[index].name) return index;
  }
  return kNotFound;
}

void RemoteCommands::callCommand(Index index, const CommandContext& /*context*/) {
  if (index >= kCommands.size()) return;
  const bool isAllowed = isOneOf(allowed_, kCommands[index].name);
  auditCommand(kCommands[index].name, isAllowed);
  if (!isAllowed) {
    LogBoth("Another machine asked for the command \"%s\", which remote_commands does not allow.\n",
            kCommands[index].name);
    return;
  }
  const std::string said = kCommands[index].run();
  LogBoth("Remote command \"%s\": %s\n", kCommands[index].name, said);
  notifyUser(said);
  events().command(kCommands[index].name);
}

std::vector<std::string> RemoteCommands::names() {
  std::vector<std::string> all;
  for (const StationCommand& command : kCommands) all.emplace_back(command.name);
  return all;
}

}  // namespace korvel
