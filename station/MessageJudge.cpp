#include "station/MessageJudge.h"

#include <algorithm>
#include <array>
#include <optional>
#include <sstream>

#include "host/base/Log.h"
#include "host/containers/ContainerManager.h"
#include "host/edit/EditManager.h"
#include "host/project/ProjectSpacesManager.h"
#include "station/base/Events.h"
#include "station/base/HostParts.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/containers/Containers.h"
#include "station/edit/Edits.h"
#include "station/os/SharedFiles.h"
#include "station/wire/MessageTable.h"

using namespace korvel;

namespace korvel {

namespace {

MessageGate await(const LightweightString<wchar_t>& file) {
  return {MessageGate::eAwaitFile, utf8Text(file)};
}

bool isRewritten(const MessageFields& message) {
  return numberAtStart(message.container) == static_cast<int>(ContainerValue::eRewritten);
}

bool isContainer(const Cookie& cookie) {
  const char kind = cookie.getType();
  return kind == CookieTypeBin || kind == CookieTypeMediaBin || kind == CookieTypeRack;
}

bool isKnown(const Cookie& cookie, const Cookie& open) {
  if (hostParts().edits->holds(cookie)) return true;
  return !open.isNull() && existsFresh(utf8Text(getFilenameForCookie(cookie, open)));
}

}  // namespace

MessageGate judgeMessage(const ReceivedMessage& received) {
  const MessageFields& message = received.fields;
  if (!message.valid) return {};
  const Cookie open = get_project_cookie();
  const Cookie cookie(message.cookie.c_str(), false);
  const bool isOfOpen = Cookie(message.project.c_str(), false).compare(open) == 0;
  // So that the file is the one for which the plug-in will look when it is handed the message.
  const RemoteChangeScope scope(&received);
  switch (message.type) {
    case MessageType::eEditCreated:
      return await(getFilenameForCookie(cookie, Cookie()));
    case MessageType::eContainerModification:
      if (!isOfOpen || !isRewritten(message) || !isContainer(cookie)) return {};
      return await(getFileNameForLogGroup(cookie, {}, Cookie()));
    case MessageType::eFilterModification:
      return isRewritten(message) ? await(UserFilter::getFilterMetadataFileName(cookie))
                                  : MessageGate{};
    case MessageType::ePermissionsChange:
      // The plug-in keeps each announced owner for as long as the station runs. A stranger who
      // invents objects would fill the memory.
      return {isOfOpen && !isKnown(cookie, open) ? MessageGate::eDrop : MessageGate::eDeliver, {}};
    default:
      return {};
  }
}

void noteDelivered(const ReceivedMessage& message) {
  const MessageFields& fields = message.fields;
  if (fields.type != MessageType::eEditSaved || !fields.valid || !settings().networkMode) return;
  const Cookie open = get_project_cookie();
  if (open.isNull() || Cookie(fields.project.c_str(), false).compare(open) != 0) return;
  const Cookie cookie(fields.cookie.c_str(), false);
  if (EditManager::isOpen(cookie)) return;
  const RemoteChangeScope scope(&message);
  const AuthorScope author(message.by);
  hostParts().edits->noteSavedElsewhere(cookie);
}

}  // namespace korvel

// What other machines may have this station do.

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
