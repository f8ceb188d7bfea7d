#include "app/base/OptionTable.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <map>
#include <optional>
#include <string_view>

#include "app/base/Options.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"

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
    {"seal", "POLICY",
     "datagrams sealed with the share's key: \"off\", \"accept\" (sealed where there is a key, "
     "taken also without) or \"require\" (nothing else is taken) [accept]",
     false},
    {"share-heard", "DIR",
     "keep a list of the senders that this station hears in DIR, outside of the projects "
     "directory, "
     "for kv-share mesh [no list]",
     true},
    {"audit", "FILE",
     "keep in FILE who gave, deleted and restored what, which commands others asked for, and whom "
     "this station refused; kv-share audit verify FILE shows whether it was changed [no file]",
     true},
    {"log", "FILE", "the host log file; lines for the console go to standard error [no file]",
     true},
});

constexpr FlagSpec kFlags[] = {
    {"keep-going", "go on after a command of a script that failed"},
    {"verbose", "show at a terminal, too, what the log says of each message"},
    {"gui", "open the window; without --script no commands are read then"},
};

/// The configuration's keys that the plug-in reads; each holds a whole number.
constexpr const char* kKnownConfigKeys[] = {kPortKey, "log_incoming_net_messages", "Administrator"};

/// The keys that the station itself reads. A misspelt one would leave open what was to be closed.
constexpr std::string_view kStationKeys[] = {
    "accept_networks",        "accept_stations", "history_days",
    "history_versions",       "receive_limit",   "receive_limit_words",
    "receive_limit_requests", "remote_commands", "watch_seconds"};

bool isKnownConfigKey(const std::string& key) {
  for (const char* known : kKnownConfigKeys) {
    if (key == known) return true;
  }
  return false;
}

/// The option that a key may have been meant for. Any key can be a host configuration value, so
/// only one that is nearly an option is refused.
std::string misspelt(const std::string& key) {
  if (isKnownConfigKey(key) || std::ranges::find(kStationKeys, key) != std::end(kStationKeys)) {
    return {};
  }
  std::vector<std::string> names;
  for (const OptionSpec& option : kOptions) {
    if (option.isInFile) names.emplace_back(option.name);
  }
  names.insert(names.end(), std::begin(kKnownConfigKeys), std::end(kKnownConfigKeys));
  names.insert(names.end(), std::begin(kStationKeys), std::end(kStationKeys));
  return nearestName(key, names);
}

Error wrongKey(const std::string& where, const std::string& what) {
  return {ErrorCode::eUsage, where + " " + what, {}};
}

}  // namespace

std::string machineHostName() {
  char name[HOST_NAME_MAX + 1] = {};
  return ::gethostname(name, HOST_NAME_MAX) == 0 && *name ? name : "localhost";
}

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
    if (line.key == "port") {  // --set on the command line then replaces it, too
      inFile["set"].push_back({std::string(kPortKey) + "=" + line.value, where});
      continue;
    }
    if (option) {
      inFile[line.key].push_back({line.value, where});
      continue;
    }
    if (const std::string meant = misspelt(line.key); !meant.empty()) {
      return wrongKey(where, "is no option; did you mean " + inQuotes(meant) + "?");
    }
    inFile["set"].push_back({line.key + "=" + line.value, where});
  }
  // Host configuration values are a map, in which later values replace earlier ones: those of the
  // file come first, those of the command line last.
  const std::vector<GivenValue> typed = std::move(given["set"]);
  given["set"] = std::move(inFile["set"]);
  given["set"].insert(given["set"].end(), typed.begin(), typed.end());
  inFile.erase("set");
  // merge() keeps what the command line gave.
  given.merge(inFile);
  return {};
}

namespace {

namespace fs = std::filesystem;

constexpr const char* kPluginName = "ProjectShare.so";
constexpr int kHighestPort = 65535;

Error unusable(const GivenValue& value, const std::string& what) {
  return {ErrorCode::eUsage, value.where + ": " + inQuotes(value.text) + " " + what, {}};
}

std::string absolutePath(const std::string& path) {
  std::error_code problem;
  const fs::path absolute = fs::absolute(path, problem).lexically_normal();
  std::string text = problem ? path : absolute.string();
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  return text;
}

std::optional<int> wholeNumber(const std::string& text, int least, int most) {
  int number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, problem] = std::from_chars(text.data(), end, number);
  if (problem != std::errc() || stop != end || number < least || number > most) return {};
  return number;
}

bool isAddress(const std::string& text) {
  in_addr address{};
  return ::inet_pton(AF_INET, text.c_str(), &address) == 1;
}

std::vector<std::string> splitAtCommas(const std::string& text) {
  std::vector<std::string> parts;
  for (std::size_t begin = 0, end = 0; end != std::string::npos; begin = end + 1) {
    end = text.find(',', begin);
    parts.push_back(text.substr(begin, end - begin));
  }
  return parts;
}

bool hasControlBytes(const std::string& text) {
  for (const char byte : text) {
    if (static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F) return true;
  }
  return false;
}

/// Checks the options one by one and stops at the first that cannot be used.
class OptionReader {
 public:
  OptionReader(const GivenOptions& given, Asking asking) : given_(given), asking_(asking) {}

  Result<Options> settle() {
    // In this order: the machine number is derived from the host, and --port replaces the port
    // given with --set.
    const auto steps = {&OptionReader::projects,   &OptionReader::user,   &OptionReader::host,
                        &OptionReader::machine,    &OptionReader::mode,   &OptionReader::sendTo,
                        &OptionReader::listen,     &OptionReader::media,  &OptionReader::config,
                        &OptionReader::port,       &OptionReader::plugin, &OptionReader::files,
                        &OptionReader::shareHeard, &OptionReader::seal};
    for (const auto step : steps) {
      if (auto taken = (this->*step)(); !taken) return taken.error();
    }
    return options_;
  }

 private:
  /// The value of an option, the one given last, or null.
  [[nodiscard]] const GivenValue* last(const std::string& name) const {
    const auto found = given_.find(name);
    return found == given_.end() || found->second.empty() ? nullptr : &found->second.back();
  }

  [[nodiscard]] std::vector<GivenValue> all(const std::string& name) const {
    const auto found = given_.find(name);
    return found == given_.end() ? std::vector<GivenValue>() : found->second;
  }

  Result<void> projects() {
    const GivenValue* value = last("projects");
    if (!value && asking_ == Asking::ePerson) return {};
    if (!value) {
      return Error{ErrorCode::eUsage,
                   "--projects DIR is missing: a station needs the shared projects directory; give "
                   "it here or as \"projects = DIR\" in the configuration file.",
                   {}};
    }
    if (value->text.empty()) return unusable(*value, "is no directory.");
    station().projectsDirectory = absolutePath(value->text);
    return {};
  }

  Result<void> user() {
    const GivenValue* value = last("user");
    station().user = value ? value->text : loginName();
    if (!value) return {};
    const std::string& name = value->text;
    if (name.empty() || name.size() > kLongestUserName || hasControlBytes(name)) {
      return unusable(*value, "is no user name; it needs 1 to 200 bytes, all of them printable.");
    }
    if (name.find('/') != std::string::npos) {
      return unusable(*value,
                      "is no user name, since files are named after the user; leave the "
                      "\"/\" out.");
    }
    return {};
  }

  Result<void> host() {
    const GivenValue* value = last("host");
    station().host = value ? value->text : machineHostName();
    if (!value) return {};
    const std::string& name = value->text;
    if (name.empty() || name.size() > kLongestUserName || hasControlBytes(name)) {
      return unusable(*value, "is no host name; it needs 1 to 200 bytes, all of them printable.");
    }
    return {};
  }

  Result<void> machine() {
    const GivenValue* value = last("machine");
    if (!value) {
      station().machine = machineNumberFor(station().host);
      return {};
    }
    const auto number = wholeNumber(value->text, 1, std::numeric_limits<int>::max());
    if (!number) return unusable(*value, "is no machine number; give a whole number from 1 up.");
    station().machine = *number;
    return {};
  }

  Result<void> mode() {
    const GivenValue* value = last("network-mode");
    if (!value) return {};
    if (value->text != "on" && value->text != "off") {
      return unusable(*value, "is neither \"on\" nor \"off\".");
    }
    station().networkMode = value->text == "on";
    return {};
  }

  Result<void> sendTo() {
    for (const GivenValue& value : all("send-to")) {
      for (const std::string& address : splitAtCommas(value.text)) {
        if (!isAddress(address)) {
          return unusable(value, "holds " + inQuotes(address) +
                                     ", which is no IPv4 address; give addresses such as "
                                     "192.168.1.255, with commas between them.");
        }
        station().sendTo.push_back(address);
      }
    }
    return {};
  }

  Result<void> listen() {
    const GivenValue* value = last("listen");
    if (!value) return {};
    if (!isAddress(value->text)) {
      return unusable(*value, "is no IPv4 address; 0.0.0.0 listens on all interfaces.");
    }
    station().listen = value->text;
    return {};
  }

  Result<void> media() {
    for (const GivenValue& value : all("media")) {
      const std::size_t equals = value.text.find('=');
      std::string unc = equals == std::string::npos ? "" : value.text.substr(equals + 1);
      while (!unc.empty() && (unc.back() == '/' || unc.back() == '\\')) unc.pop_back();
      if (equals == 0 || unc.empty()) {
        return unusable(value,
                        "is no DIR=UNC; give a local directory and its network form, such as "
                        "/mnt/media=//server/media.");
      }
      station().media.push_back({absolutePath(value.text.substr(0, equals)), unc});
    }
    return {};
  }

  Result<void> config() {
    for (const GivenValue& value : all("set")) {
      const std::size_t equals = value.text.find('=');
      if (equals == 0 || equals == std::string::npos) {
        return unusable(value, "is no KEY=VALUE; give a key, \"=\" and its value.");
      }
      const std::string key = value.text.substr(0, equals);
      const std::string text = value.text.substr(equals + 1);
      if (auto checked = checkConfig(value, key, text); !checked) return checked;
      station().config[key] = text;
    }
    return {};
  }

  static Result<void> checkConfig(const GivenValue& value, const std::string& key,
                                  const std::string& text) {
    if (key == kPortKey && !wholeNumber(text, 1, kHighestPort)) return wrongPort(value);
    const bool isNumber = wholeNumber(text, INT_MIN, INT_MAX).has_value();
    if (isKnownConfigKey(key) && !isNumber) return unusable(value, "is no whole number.");
    return {};
  }

  static Error wrongPort(const GivenValue& value) {
    return unusable(value, "is no port; give a whole number from 1 to 65535.");
  }

  Result<void> port() {
    const GivenValue* value = last("port");
    if (!value) return {};
    if (!wholeNumber(value->text, 1, kHighestPort)) return wrongPort(*value);
    station().config[kPortKey] = value->text;
    return {};
  }

  Result<void> plugin() {
    const GivenValue* value = last("plugin");
    if (value && value->text.empty()) return unusable(*value, "is no file.");
    const std::string libraries = libraryFolder() + "/";
    station().plugin = value ? absolutePath(value->text) : libraries + kPluginName;
    station().config.try_emplace("resources", libraries + "resources");
    return {};
  }

  Result<void> files() {
    for (const char* name : {"script", "events", "audit", "log"}) {
      const GivenValue* value = last(name);
      if (value && value->text.empty()) return unusable(*value, "is no file.");
    }
    if (last("script")) options_.script = last("script")->text;
    if (last("events")) options_.events = last("events")->text;
    if (last("audit")) options_.audit = absolutePath(last("audit")->text);
    if (last("log")) station().logFile = absolutePath(last("log")->text);
    return {};
  }

  Result<void> shareHeard() {
    const GivenValue* value = last("share-heard");
    if (!value) return {};
    const std::string folder = absolutePath(value->text);
    const std::string& projects = station().projectsDirectory;
    const bool isWithin = !projects.empty() && (folder + "/").starts_with(projects + "/");
    if (value->text.empty() || isWithin) {
      return unusable(*value,
                      "is no folder outside of the projects directory; give one that all "
                      "stations reach.");
    }
    station().shareHeard = folder;
    return {};
  }

  Result<void> seal() {
    const GivenValue* value = last("seal");
    if (!value) return {};
    const std::map<std::string, SealPolicy> policies{{"off", SealPolicy::eOff},
                                                     {"accept", SealPolicy::eAccept},
                                                     {"require", SealPolicy::eRequire}};
    const auto found = policies.find(value->text);
    if (found == policies.end()) return unusable(*value, "is none of off, accept and require.");
    station().seal = found->second;
    return {};
  }

  StationSettings& station() { return options_.station; }

  const GivenOptions& given_;
  Asking asking_;
  Options options_;
};

}  // namespace

std::string libraryFolder() {
  std::error_code problem;
  const fs::path folder = fs::read_symlink("/proc/self/exe", problem).parent_path();
  if (fs::exists(folder / kPluginName, problem)) return folder.string();
  const fs::path installed = (folder / KV_INSTALLED_LIBRARIES).lexically_normal();
  return (fs::exists(installed / kPluginName, problem) ? installed : folder).string();
}

Result<Options> validateOptions(const GivenOptions& given, Asking asking) {
  return OptionReader(given, asking).settle();
}

}  // namespace korvel
