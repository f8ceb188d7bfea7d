#include "station/RemoteCommands.h"

#include <array>

#include "host/base/Log.h"
#include "host/project/ProjectSpacesManager.h"
#include "station/base/Events.h"
#include "station/base/HostParts.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/containers/CookieLists.h"
#include "station/containers/Filters.h"

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

RemoteCommands::RemoteCommands() = default;

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
