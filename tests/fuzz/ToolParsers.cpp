#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <sstream>

#include "host/base/Text.h"
#include "host/os/Files.h"
#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "station/wire/MessageTable.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/fuzz/Parsers.h"
#include "tools/base/ProcInfo.h"
#include "tools/base/Tool.h"
#include "tools/base/ToolHost.h"
#include "tools/capture/CaptureFile.h"
#include "tools/capture/MessageLine.h"
#include "tools/doctor/Check.h"
#include "tools/doctor/PeerTest.h"
#include "tools/locks/LockList.h"
#include "tools/mesh/Mesh.h"
#include "tools/wire/MessageReport.h"

namespace korvel {

namespace {

/// Findings are shown on two lines each, the second for the remedy.
void mustBeShowable(const Findings& findings) {
  for (const Finding& each : findings) {
    std::istringstream lines(linesOf(each, Colours::eNone));
    std::string line, fix, more;
    std::getline(lines, line);
    std::getline(lines, fix);
    korvel::mustBeShowable("finding", line);
    korvel::mustBeShowable("fix", fix);
    mustBeEqual("more", std::getline(lines, more) ? more : "", "");
  }
}

/// Each datagram of a capture is shown on one line, and reads back from what record writes of it.
void checkCapture(std::string_view bytes) {
  static const std::atomic<bool> goesOn{false};
  auto capture = CaptureFile::open(placed("capture", bytes), goesOn);
  if (!capture) return korvel::mustBeShowable("refusal", capture.error().message);
  const std::string copy = placed("copy", {});
  PcapngWriter writer(::open(copy.c_str(), O_WRONLY | O_CLOEXEC), copy);
  static_cast<void>(writer.begin("fuzz"));
  MessageLine line(Colours::eNone);
  std::vector<std::string> heard;
  while (const auto message = capture->next()) {
    korvel::mustBeShowable("line", line.of(*message, readMessage(message->bytes)));
    if (message->bytes.size() > 65'507) continue;
    heard.push_back(message->bytes);
    static_cast<void>(writer.write(*message));
  }
  auto again = CaptureFile::open(copy, goesOn);
  for (const std::string& each : heard) {
    const auto message = again->next();
    mustBeEqual("copy", message ? message->bytes : "none", each);
  }
}

/// A list is read or refused, and any two lists give findings that can be shown.
void checkHeardList(std::string_view bytes) {
  const auto list = readHeardFile(std::string(bytes), 1);
  if (!list) return;
  HeardFile other = *list;
  std::swap(other.port, other.sendsFrom);
  mustBeShowable(judgeMesh({*list, other}));
}

/// Tools read the users that the plug-in reads: every line by itself, each name once.
void checkUsers(std::string_view bytes) {
  static const ToolHost host("/tmp");
  std::vector<std::string> users;
  const TextFile file(wideText(placed("userlist.dat", bytes)), true);
  for (std::size_t line = 0; line < file.getNumLines(); ++line) {
    auto name = Kv::WStringFromAscii(file.getLine(line));
    Kv::toUpper(name);
    if (std::ranges::find(users, utf8Text(name)) == users.end()) users.push_back(utf8Text(name));
  }
  const UserList list = readUserList(bytes);
  mustBeEqual("users", joined(list.users, "\n"), joined(users, "\n"));
  mustBeShowable(judgeUserList(list));
}

/// A mount that is found holds the folder, and what is said of it can be shown.
void checkMountTable(std::string_view bytes) {
  const std::string folder = "/mnt/projects/a b";
  const auto mount = mountOf(std::string(bytes), folder);
  if (!mount) return;
  mustBeEqual("mount", folder.substr(0, mount->point.size()), mount->point);
  static_cast<void>(lockBreakersOf(*mount));
  mustBeShowable(judgeMount(*mount));
}

/// The sockets of a table of ports, whatever its lines are.
void checkPortTable(std::string_view bytes) {
  namespace fs = std::filesystem;
  static const std::string proc = fs::path(placed("proc/net/udp", {})).parent_path().parent_path();
  placed("proc/net/udp", bytes);
  static_cast<void>(namesOf(usersOfPort(27015, proc)));
}

/// Any ruleset is judged, in both forms that the system has.
void checkRuleset(std::string_view bytes) {
  mustBeShowable(judgeFirewall(std::string(bytes), "", 27015));
}
void checkLegacyRules(std::string_view bytes) {
  mustBeShowable(judgeFirewall("{\"nftables\":[]}", std::string(bytes), 27015));
}

/// What another machine wrote of itself is read so that it reads back the same.
void checkLetter(std::string_view bytes) {
  const auto letter = parseJson(bytes);
  if (!letter) return;
  const JsonValue side = objectOf(sideOf(*letter));
  mustBeEqual("letter", writeJson(objectOf(sideOf(side))), writeJson(side));
}

/// What decode, monitor and the filter make of a datagram can be shown, and the type is read the
/// same in both ways.
void checkDatagram(std::string_view bytes) {
  const std::string datagram(bytes);
  const JsonValue described = describeMessage(datagram);
  mustBeEqual("JSON", parseJson(writeJson(described)) ? "read" : "broken", "read");
  const MessageFields fields = readMessage(bytes);
  mustBeEqual("type", std::to_string(typeOnWire(bytes)), std::to_string(fields.type));
  HeardMessage message;
  message.bytes = datagram;
  MessageLine line(Colours::eNone);
  korvel::mustBeShowable("line", line.of(message, fields));
  FilterWords words;
  words.users = {"ANNA"};
  static_cast<void>(MessageFilter::of(words)->takes(message, fields));
}

/// The words of a filter are taken, or refused with a sentence that can be shown.
void checkFilter(std::string_view bytes) {
  const std::string word(bytes);
  FilterWords types, senders;
  types.types = types.projects = {word};
  senders.senders = senders.users = {word};
  for (const FilterWords& words : {types, senders}) {
    const auto filter = MessageFilter::of(words);
    if (!filter) korvel::mustBeShowable("refusal", filter.error().message);
  }
}

}  // namespace

void addToolParsers(Parsers& parsers) {
  parsers.insert({{"Capture", checkCapture},
                  {"HeardList", checkHeardList},
                  {"UserList", checkUsers},
                  {"MountTable", checkMountTable},
                  {"PortTable", checkPortTable},
                  {"Ruleset", checkRuleset},
                  {"LegacyRules", checkLegacyRules},
                  {"Letter", checkLetter},
                  {"Decode", checkDatagram},
                  {"Filter", checkFilter}});
}

}  // namespace korvel
