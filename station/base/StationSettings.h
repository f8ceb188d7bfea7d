#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace korvel {

/// A local media directory and the network form under which all stations know it; both without a
/// trailing separator.
struct MediaDirectory {
  std::string local;
  std::string unc;
};

/// The UDP port of stations, and the configuration key that names another.
inline constexpr int kDefaultPort = 27015;
inline constexpr const char* kPortKey = "shared_projects_udp_port";

/// The longest name of a user or host, in bytes: the user's marker is a file of that name and an
/// ending, and holders of locks are read as far.
inline constexpr std::size_t kLongestUserName = 200;

/// Whether datagrams are sealed with the share's key.
enum class SealPolicy {
  eOff,      ///< neither sealed nor looked at
  eAccept,   ///< sealed where there is a key; what others do not seal is taken and marked
  eRequire,  ///< sealed, and nothing else is taken
};

/// What a station was started with. All texts UTF-8.
struct StationSettings {
  std::string projectsDirectory;  ///< absolute, without a trailing separator
  std::string user;               ///< what the operating-system interface reports
  std::string host;               ///< the network host name it reports
  int machine = 0;                ///< the local machine number
  bool networkMode = true;
  std::vector<std::string>
      sendTo;  ///< IPv4 addresses; empty means every interface's broadcast address
  std::string listen = "0.0.0.0";  ///< the address that the listener binds
  std::vector<MediaDirectory> media;
  std::map<std::string, std::string> config;  ///< the host configuration, key to value
  std::string plugin;                         ///< path of the plug-in library
  SealPolicy seal = SealPolicy::eAccept;
  std::string shareHeard;  ///< directory of the list of heard senders; empty: off
  std::string logFile;     ///< empty for none
  std::string recovery;    ///< the folder of unsaved changes on this machine; empty for nowhere
  std::string talk;        ///< the folder of conversations on this machine; empty for nowhere
  std::string cache;       ///< the folder on this machine of what was read; empty for nowhere
};

/// The settings of this process. The host's contract consists of static operations, so there is one
/// station a process.
const StationSettings& settings();

/// Sets them, once, before anything else of the station is used and before other threads start.
void installSettings(StationSettings settings);

/// The port that this station sends to and listens at.
int stationPort();

/// The operating system's name of the user who runs this program; "user" and a number for one
/// without a name.
std::string loginName();

/// A machine number for a host name: 1 to 65535, the same on every station and in every version. It
/// is the FNV-1a hash (32 bits, offset 2166136261, prime 16777619) of the upper-cased name's UTF-8
/// bytes, modulo 65535, plus 1.
int machineNumberFor(const std::string& host);

}  // namespace korvel
