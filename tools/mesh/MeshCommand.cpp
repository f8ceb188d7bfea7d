#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <iostream>

#include "station/base/Strings.h"
#include "station/net/HeardList.h"
#include "station/os/SharedFiles.h"
#include "tools/base/ShareTimeout.h"
#include "tools/base/Tool.h"
#include "tools/base/ToolHost.h"
#include "tools/mesh/Mesh.h"

namespace korvel {

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

/// The names of the others that a station hears in this way.
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

/// The same for people, who need no loopback address.
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
