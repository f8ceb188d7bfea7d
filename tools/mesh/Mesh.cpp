#include "tools/mesh/Mesh.h"

#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <iostream>

#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "station/net/HeardList.h"
#include "station/os/SharedFiles.h"
#include "tools/base/Tool.h"
#include "tools/base/ToolHost.h"

namespace korvel {

namespace {

/// Seconds that the clocks of two machines may differ, and that a list may be late.
constexpr long kTolerance = 10;

/// A station that has sent so many seconds after it was last heard is no longer heard.
constexpr long kLostAfter = 15;

std::vector<Ipv4> addressesOf(const JsonValue& list) {
  std::vector<Ipv4> addresses;
  for (const JsonValue& each : list.elements()) {
    if (const auto address = parseIpv4(each.asString())) addresses.push_back(*address);
  }
  return addresses;
}

std::vector<HeardSender> sendersOf(const JsonValue& list) {
  std::vector<HeardSender> senders;
  for (const JsonValue& each : list.elements()) {
    const auto address = parseIpv4(each["address"].asString());
    if (!address) continue;
    senders.push_back({*address, static_cast<int>(each["port"].asLong()), each["count"].asLong(),
                       each["last"].asLong()});
  }
  return senders;
}

bool isFrom(const HeardSender& sender, const HeardFile& file) {
  return sender.port == file.sendsFrom && file.sendsFrom != 0 &&
         std::ranges::find(file.addresses, sender.address) != file.addresses.end();
}

/// When the listener heard the sender last; 0 for never.
long lastHeard(const HeardFile& listener, const HeardFile& sender) {
  long last = 0;
  for (const HeardSender& each : listener.heard) {
    if (isFrom(each, sender)) last = std::max(last, each.last);
  }
  return last;
}

Finding named(const char* check, Finding finding) {
  finding.group = "mesh";
  finding.check = check;
  return finding;
}

Finding oneWay(const HeardFile& hearing, const HeardFile& deaf) {
  const std::string port = std::to_string(deaf.port);
  return named("one way",
               fail(hearing.station + " hears " + deaf.station + ", but " + deaf.station +
                        " does not hear " + hearing.station,
                    "most likely a firewall on " + deaf.host + " drops what comes in to UDP port " +
                        port + " (there: ufw allow " + port + "/udp), or one on " + hearing.host +
                        " drops what goes out; kv-share doctor DIR --with " + hearing.host +
                        " on " + deaf.host + " proves it"));
}

Finding noWay(const HeardFile& one, const HeardFile& other) {
  const std::string text = one.station + " and " + other.station + " do not hear each other";
  if (one.port != other.port) {
    return named("no way", fail(text + ": they use ports " + std::to_string(one.port) + " and " +
                                    std::to_string(other.port),
                                "set one port on every station (shared_projects_udp_port)"));
  }
  return named("no way",
               fail(text,
                    "most likely they are in different networks, which broadcasts do not "
                    "cross: name each other with --send-to; else see the firewalls of both"));
}

Finding strangersOf(const HeardFile& file) {
  return named("strangers",
               warn(file.station + " heard " + std::to_string(file.strangers) +
                        " senders more than its list holds: whom it does not hear cannot be told",
                    "somebody sends under many addresses or ports; kv-share monitor on " +
                        file.host + " shows who, and accept_networks keeps strangers out"));
}

/// The problem between two stations, if there is one.
void judgePair(const HeardFile& one, const HeardFile& other, Findings& findings) {
  const MeshLink there = linkOf(one, other);
  const MeshLink back = linkOf(other, one);
  if (there == MeshLink::eDeaf && back == MeshLink::eDeaf) {
    findings.push_back(noWay(one, other));
  } else if (there == MeshLink::eDeaf && back == MeshLink::eHears) {
    findings.push_back(oneWay(other, one));
  } else if (back == MeshLink::eDeaf && there == MeshLink::eHears) {
    findings.push_back(oneWay(one, other));
  } else if (there == MeshLink::eDeaf || back == MeshLink::eDeaf) {
    const HeardFile& deaf = there == MeshLink::eDeaf ? one : other;
    const HeardFile& sender = there == MeshLink::eDeaf ? other : one;
    findings.push_back(
        named("deaf", fail(deaf.station + " does not hear " + sender.station,
                           "see whether a firewall on " + deaf.host + " drops UDP port " +
                               std::to_string(deaf.port) + ", and that both are in one network")));
  }
}

}  // namespace

Result<HeardFile> readHeardFile(const std::string& text, long age) {
  const auto json = parseJson(text);
  if (!json) return json.error();
  if ((*json)["station"].asString().empty() || !(*json)["heard"].isArray()) {
    return Error{ErrorCode::eBadContent, "it is no list of heard stations.", {}};
  }
  HeardFile file;
  file.station = (*json)["station"].asString();
  file.host = (*json)["host"].asString();
  file.port = static_cast<int>((*json)["port"].asLong());
  file.sendsFrom = static_cast<int>((*json)["sends_from"].asLong());
  file.addresses = addressesOf((*json)["addresses"]);
  file.since = (*json)["since"].asLong();
  file.written = (*json)["written"].asLong();
  file.lastSent = (*json)["sent_earlier"].asLong();
  file.age = age;
  file.strangers = (*json)["strangers"].asLong();
  file.heard = sendersOf((*json)["heard"]);
  return file;
}

MeshLink linkOf(const HeardFile& listener, const HeardFile& sender) {
  const long last = lastHeard(listener, sender);
  // Only what was sent while the listener was listening, and early enough to be in its list, proves
  // anything.
  const bool couldHear = sender.lastSent > listener.since + kTolerance &&
                         sender.lastSent + kTolerance < listener.written;
  if (last != 0) {
    return couldHear && sender.lastSent > last + kLostAfter ? MeshLink::eDeaf : MeshLink::eHears;
  }
  // A full list drops senders, so a missing one may have been heard.
  return couldHear && listener.strangers == 0 ? MeshLink::eDeaf : MeshLink::eQuiet;
}

Findings judgeMesh(const std::vector<HeardFile>& files) {
  Findings findings;
  for (std::size_t one = 0; one < files.size(); ++one) {
    const HeardFile& file = files[one];
    if (!file.isFresh()) {
      findings.push_back(
          named("list", warn(file.station + "'s list was written " + std::to_string(file.age) +
                                 " s ago: it has ended, or cannot reach the folder",
                             "see whether it runs; the list of one that is gone for good may be "
                             "removed")));
      continue;
    }
    if (file.strangers > 0) findings.push_back(strangersOf(file));
    for (std::size_t other = one + 1; other < files.size(); ++other) {
      if (files[other].isFresh()) judgePair(file, files[other], findings);
    }
  }
  return findings;
}

const HeardFile* ownerOf(const HeardSender& sender, const std::vector<HeardFile>& files) {
  for (const HeardFile& file : files) {
    if (isFrom(sender, file)) return &file;
  }
  return nullptr;
}

namespace {

/// The lists of a folder by their stations' names; one that cannot be read is a finding.
std::vector<HeardFile> readLists(const std::string& folder, const std::vector<std::string>& names,
                                 Findings& findings) {
  std::vector<HeardFile> files;
  for (const std::string& name : names) {
    if (!name.ends_with(HeardList::kEnding)) continue;
    const std::string path = folder + "/" + name;
    struct stat status {};
    const auto text = readListed(path, kLargestList);
    const long age = ::lstat(path.c_str(), &status) == 0
                         ? std::max(0L, static_cast<long>(std::time(nullptr) - status.st_mtime))
                         : 0;
    shareAnswered();
    auto file = text ? readHeardFile(*text, age) : Result<HeardFile>(text.error());
    if (file) {
      files.push_back(std::move(*file));
    } else {
      Finding finding = warn(name + " cannot be read: " + file.error().message,
                             "remove it; a station that runs writes it again");
      finding.group = "mesh";
      finding.check = "list";
      findings.push_back(std::move(finding));
    }
  }
  std::ranges::sort(files, {}, &HeardFile::station);
  return files;
}

/// The names of the other stations with this link to a station.
JsonValue othersOf(const HeardFile& file, const std::vector<HeardFile>& files, MeshLink link) {
  JsonValue names = JsonValue::array();
  for (const HeardFile& other : files) {
    if (&other != &file && other.sendsFrom != 0 && linkOf(file, other) == link) {
      names.append(shownText(other.station));
    }
  }
  return names;
}

/// Senders that keep no list: "10.0.0.9 port 51234".
JsonValue strangersTo(const HeardFile& file, const std::vector<HeardFile>& files) {
  JsonValue strangers = JsonValue::array();
  for (const HeardSender& sender : file.heard) {
    if (ownerOf(sender, files)) continue;
    strangers.append(textOf(sender.address) + " port " + std::to_string(sender.port));
  }
  return strangers;
}

JsonValue addressTexts(const HeardFile& file) {
  JsonValue addresses = JsonValue::array();
  for (const Ipv4 address : file.addresses) addresses.append(textOf(address));
  return addresses;
}

JsonValue objectOf(const HeardFile& file, const std::vector<HeardFile>& files) {
  return JsonValue::object({{"station", shownText(file.station)},
                            {"host", shownText(file.host)},
                            {"addresses", addressTexts(file)},
                            {"port", file.port},
                            {"age", file.age},
                            {"hears", othersOf(file, files, MeshLink::eHears)},
                            {"does_not_hear", othersOf(file, files, MeshLink::eDeaf)},
                            {"quiet", othersOf(file, files, MeshLink::eQuiet)},
                            {"strangers", strangersTo(file, files)}});
}

/// The same for people, without the host and its addresses.
JsonValue rowOf(const HeardFile& file, const std::vector<HeardFile>& files) {
  JsonValue row = objectOf(file, files);
  row.remove("host");
  row.remove("addresses");
  row.set("age", std::to_string(file.age) + " s");
  return row;
}

ToolStatus showMesh(const ShareRequest& request) {
  const std::string folder = directoryOf(request.path);
  const auto names = listFresh(folder);
  if (!names) return toolProblem(eToolUsage, names.error().message);
  Findings findings;
  const auto files = readLists(folder, *names, findings);
  for (Finding& finding : judgeMesh(files)) findings.push_back(std::move(finding));
  JsonValue stations = JsonValue::array();
  for (const HeardFile& file : files) {
    stations.append(request.asJson ? objectOf(file, files) : rowOf(file, files));
  }
  if (request.asJson) {
    JsonValue found = JsonValue::array();
    for (const Finding& finding : findings) found.append(korvel::objectOf(finding));
    printJson(
        JsonValue::object({{"stations", std::move(stations)}, {"findings", std::move(found)}}));
  } else {
    printForPeople(stations);
    for (const Finding& finding : findings) {
      std::cout << linesOf(finding, coloursOfOutput()) << '\n';
    }
  }
  return worstOf(findings) == Verdict::eFail ? eToolFinding : eToolDone;
}

}  // namespace

void addMeshCommand(CommandLine& line) {
  addShareCommand<ShareRequest>(
      line, {"mesh", "Show who hears whom, by the lists that stations leave in a folder",
             [](CommandOptions& options, ShareRequest& request) {
               options.word("DIR", request.path,
                            "The folder that kv-station --share-heard was given, outside of the "
                            "projects directory");
               options.flag("--json", request.asJson, "One JSON object instead of a table");
               options.footer(
                   "A station that has sent nothing yet is quiet: whether it is heard is not "
                   "known. Exit status: 0; 1 when one does not hear another.");
             },
             showMesh});
}

}  // namespace korvel
