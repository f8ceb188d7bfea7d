#include "app/base/OptionTable.h"

#include <array>

#include "app/base/ConfigFile.h"
#include "station/base/NearestName.h"

namespace korvel {

namespace {

constexpr auto kOptions = std::to_array<OptionSpec>({
    {"projects", "DIR", "the shared projects directory (required, here or in the config file)",
     true},
    {"user", "NAME", "the user name that this station reports [the login name]", true},
    {"host", "NAME", "the network host name that it reports [the machine's host name]", true},
    {"machine", "N", "the local machine number [derived from the host name]", true},
    {"network-mode", "on|off", "whether this machine is in network mode [on]", true},
    {"port", "N", "the UDP port; the same as --set shared_projects_udp_port=N [27015]", true},
    {"send-to", "ADDR[,ADDR...]",
     "where datagrams go: broadcast, multicast or unicast IPv4 addresses [the directed broadcast "
     "address of each interface that is up; loopback's where there is none]",
     true},
    {"listen", "ADDR", "the IPv4 address that the listener binds [0.0.0.0]", true},
    {"media", "DIR=UNC", "a local media directory and its network form; may be repeated", true},
    {"config", "FILE",
     "configuration file of \"key = value\" lines: these options without their dashes, and host "
     "configuration values; the command line wins [$XDG_CONFIG_HOME/korvel/station.conf if "
     "present]",
     false},
    {"set", "KEY=VALUE", "one host configuration value; may be repeated", false},
    {"plugin", "FILE", "the plug-in library [the one built or installed beside this program]",
     true},
    {"script", "FILE", "read commands from FILE, - for standard input [the terminal]", false},
    {"events", "FILE",
     "write one JSON object a line to FILE, - for standard output (the text for people then goes "
     "to standard error)",
     true},
    {"share-heard", "DIR",
     "keep a list of the senders that this station hears in DIR, outside of the projects "
     "directory, "
     "for kv-share mesh [no list]",
     true},
    {"log", "FILE", "the host log file; lines for the console go to standard error [no file]",
     true},
});

constexpr FlagSpec kFlags[] = {
    {"keep-going", "go on after a command of a script that failed"},
    {"gui", "open the window; without --script no commands are read then"},
};

constexpr const char* kKnownConfigKeys[] = {"shared_projects_udp_port", "log_incoming_net_messages",
                                            "Administrator"};

bool isKnownConfigKey(const std::string& key) {
  for (const char* known : kKnownConfigKeys) {
    if (key == known) return true;
  }
  return false;
}

std::string misspelt(const std::string& key) {
  if (isKnownConfigKey(key)) return {};
  std::vector<std::string> names;
  for (const OptionSpec& option : kOptions) {
    if (option.isInFile) names.emplace_back(option.name);
  }
  names.insert(names.end(), std::begin(kKnownConfigKeys), std::end(kKnownConfigKeys));
  return nearestName(key, names);
}

Error wrongKey(const std::string& where, const std::string& what) {
  return {ErrorCode::eUsage, where + " " + what, {}};
}

}  // namespace

std::span<const OptionSpec> optionTable() { return kOptions; }

std::span<const FlagSpec> flagTable() { return kFlags; }

const OptionSpec* findOption(std::string_view name) {
  for (const OptionSpec& option : kOptions) {
    if (name == option.name) return &option;
  }
  return nullptr;
}

Result<void> addFromConfigFile(const std::string& file, GivenOptions& given) {
  const auto lines = readConfigFile(file);
  if (!lines) return lines.error();
  GivenOptions inFile;
  for (const ConfigLine& line : *lines) {
    const std::string where = file + ":" + std::to_string(line.number) + ": " + line.key;
    const OptionSpec* option = findOption(line.key);
    if (option && !option->isInFile) {
      return wrongKey(where, "may stand on the command line alone; remove the line.");
    }
    if (line.key == "port") {  // so that --set on the command line replaces it, too
      inFile["set"].push_back({"shared_projects_udp_port=" + line.value, where});
      continue;
    }
    if (option) {
      inFile[line.key].push_back({line.value, where});
      continue;
    }
    if (const std::string meant = misspelt(line.key); !meant.empty()) {
      return wrongKey(where, "is no option; did you mean \"" + meant + "\"?");
    }
    inFile["set"].push_back({line.key + "=" + line.value, where});
  }
  // Host configuration values are a map: the file's come first, and the command line's replace
  // them.
  const std::vector<GivenValue> typed = std::move(given["set"]);
  given["set"] = std::move(inFile["set"]);
  given["set"].insert(given["set"].end(), typed.begin(), typed.end());
  inFile.erase("set");
  given.merge(inFile);
  return {};
}

}  // namespace korvel
