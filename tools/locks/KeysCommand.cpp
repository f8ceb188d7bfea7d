#include <sys/stat.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <utility>
#include <vector>

#include "station/base/Strings.h"
#include "station/os/SharedFiles.h"
#include "station/seal/AuditLog.h"
#include "station/seal/KeyRing.h"
#include "station/watch/StationNote.h"
#include "tools/base/Tool.h"
#include "tools/base/ToolHost.h"

namespace korvel {

namespace {

struct KeysRequest : ShareRequest {
  std::string action;
  std::string id;
  std::string audit;
  bool isForced = false;
};

constexpr const char* kRotation =
    "To change keys, add a new one, use it, and remove the old one a minute later. A key is used "
    "when every station that is there has read it, which takes seconds.";

/// The number of running stations that check seals, and the names of those that do not have a key
/// yet.
struct Knowing {
  std::size_t all = 0;
  std::vector<std::string> without;
};

Knowing knowingOf(const std::vector<FoundStation>& stations, const std::string& id) {
  Knowing knowing;
  for (const FoundStation& each : stations) {
    if (!each.isAlive() || each.note.seal.empty() || each.note.seal == "off") continue;
    ++knowing.all;
    if (std::ranges::find(each.note.keys, id) != each.note.keys.end()) continue;
    knowing.without.push_back(each.note.user + " on " + each.note.host);
  }
  return knowing;
}

std::vector<FoundStation> stationsIn(const std::string& directory) {
  auto stations = listStations(directory);
  return stations ? std::move(*stations) : std::vector<FoundStation>();
}

/// Refuses to use a key that some stations have not read yet: they would drop what is sealed with
/// it.
Result<void> checkKnown(const std::string& directory, const std::string& id) {
  const Knowing knowing = knowingOf(stationsIn(directory), id);
  if (knowing.without.empty()) return {};
  std::string names;
  for (const std::string& name : knowing.without) names += (names.empty() ? "" : ", ") + name;
  return Error{ErrorCode::eRefused,
               "The key " + id + " is not known yet at " + names +
                   "; wait some seconds, or use it all the same with --force.",
               {}};
}

JsonValue shown(const std::string& directory, const KeyRing& ring) {
  JsonValue keys = JsonValue::array();
  const auto stations = stationsIn(directory);
  for (const SealKey& key : ring.keys()) {
    const Knowing knowing = knowingOf(stations, key.idText());
    keys.append(JsonValue::object({{"id", key.idText()},
                                   {"made", key.made},
                                   {"used", key.isUsed},
                                   {"known_by", knowing.all - knowing.without.size()},
                                   {"stations", knowing.all}}));
  }
  return keys;
}

/// Warns of a ring that everybody can read. Some mounts show every file so, whatever its mode is.
void warnOfReaders(const std::string& directory) {
  const std::string path = directory + "/" + KeyRing::kFile;
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0 || (status.st_mode & S_IRWXO) == 0) return;
  std::cout << "warning: " << shownText(path)
            << " can be read by everybody on this machine; mount the share, or set the file's "
               "mode, for the editors' group alone\n";
}

ToolStatus list(const KeysRequest& request, const KeyRing& ring) {
  if (request.asJson) {
    printJson(JsonValue::object({{"keys", shown(directoryOf(request.path), ring)}}));
    return eToolDone;
  }
  if (ring.isEmpty()) {
    printForPeople(
        "no keys: datagrams on this share are not sealed; kv-share keys DIR add makes one");
    return eToolDone;
  }
  printForPeople(shown(directoryOf(request.path), ring));
  warnOfReaders(directoryOf(request.path));
  return eToolDone;
}

/// Changes the ring and replaces its file as a whole. The lock keeps other changes away meanwhile,
/// and the ring is read once more under it: of two changes at the same moment both stay.
ToolStatus change(const KeysRequest& request,
                  const std::function<Result<std::string>(KeyRing&)>& change, const char* did) {
  const ObjectLock lock(directoryOf(request.path) + "/" + KeyRing::kFile);
  if (!lock.taken()) return toolProblem(eToolFinding, lock.taken().error().message);
  auto read = KeyRing::read(directoryOf(request.path));
  if (!read) return toolProblem(eToolFinding, read.error().message);
  KeyRing& ring = *read;
  const auto id = change(ring);
  if (!id) return toolProblem(eToolFinding, id.error().message);
  if (auto written = ring.write(directoryOf(request.path)); !written) {
    return toolProblem(eToolFinding, written.error().message);
  }
  if (request.asJson) {
    printJson(JsonValue::object({{"id", *id}, {"keys", shown(directoryOf(request.path), ring)}}));
  } else {
    printForPeople(*id + " " + did);
    warnOfReaders(directoryOf(request.path));
  }
  return audited(request.audit, {{"what", "key"},
                                 textMember("directory", directoryOf(request.path)),
                                 {"action", request.action},
                                 {"key", *id}});
}

Result<std::string> use(const KeysRequest& request, KeyRing& ring) {
  auto id = ring.use(request.id);
  if (!id || request.isForced) return id;
  if (auto known = checkKnown(directoryOf(request.path), *id); !known) return known.error();
  return id;
}

bool wantsId(const std::string& action) { return action == "use" || action == "remove"; }

ToolStatus keys(const KeysRequest& request) {
  const std::string directory = directoryOf(request.path);
  const ToolHost host(directory);
  if (auto usable = host.checkDirectory(); !usable) {
    return toolProblem(eToolUsage, usable.error().message);
  }
  if (wantsId(request.action) == request.id.empty()) {
    return toolProblem(eToolUsage, request.id.empty()
                                       ? "keys DIR " + request.action +
                                             " needs the key's ID; keys "
                                             "DIR list shows them"
                                       : inQuotes(request.id) + " is one word too many");
  }
  auto ring = KeyRing::read(directory);
  if (!ring) return toolProblem(eToolFinding, ring.error().message);
  if (request.action == "list") return list(request, *ring);
  if (request.action == "add") {
    return change(
        request, [](KeyRing& all) { return all.add(); },
        ring->isEmpty() ? "is there, and used" : "is there; it is not used yet");
  }
  if (request.action == "use") {
    return change(
        request, [&](KeyRing& all) { return use(request, all); }, "is used now");
  }
  if (request.action == "remove") {
    return change(
        request, [&](KeyRing& all) { return all.remove(request.id, request.isForced); },
        "is removed");
  }
  return toolProblem(eToolUsage,
                     inQuotes(request.action) + " is none of list, add, use and remove");
}

}  // namespace

void addKeysCommand(CommandLine& line) {
  addShareCommand<KeysRequest>(
      line, {"keys", "Show and change the keys that a share's datagrams are sealed with",
             [](CommandOptions& options, KeysRequest& request) {
               options.word("DIR", request.path, "The projects directory");
               options.word("ACTION", request.action, "list, add, use or remove");
               options.offer({"list", "add", "use", "remove"});
               options.optionalWord("ID", request.id,
                                    "The key, or the beginning of its identifier");
               options.flag("--force", request.isForced,
                            "Use a key that not all know, remove one that is in use");
               options.flag("--json", request.asJson, "One JSON object instead of a table");
               declareAudit(options, request.audit);
               options.footer(kRotation);
             },
             keys});
}

// Audit logs: what was done with keys and all else, and whether anybody changed it afterwards.

namespace {

struct AuditRequest {
  std::string action;
  std::string file;
  bool asJson = false;
};

JsonValue shownFaults(const std::vector<AuditLog::Fault>& faults) {
  JsonValue shown = JsonValue::array();
  for (const AuditLog::Fault& each : faults) {
    shown.append(JsonValue::object(
        {{"line", static_cast<unsigned long>(each.line)}, {"problem", each.what}}));
  }
  return shown;
}

void printFaults(const std::vector<AuditLog::Fault>& faults) {
  for (const AuditLog::Fault& each : faults) {
    printForPeople("line " + std::to_string(each.line) + " " + each.what);
  }
}

ToolStatus verify(const AuditRequest& request) {
  if (request.action != "verify") {
    return toolProblem(eToolUsage, inQuotes(request.action) + " is not verify");
  }
  const auto checked = AuditLog(request.file).check();
  if (!checked) return toolProblem(eToolFinding, checked.error().message);
  const bool isWhole = checked->faults.empty();
  if (request.asJson) {
    printJson(JsonValue::object({{"whole", isWhole},
                                 {"records", static_cast<unsigned long>(checked->lines)},
                                 {"last", checked->last},
                                 {"faults", shownFaults(checked->faults)},
                                 {"cut", shownFaults(checked->cut)}}));
  } else {
    printFaults(checked->faults);
    printFaults(checked->cut);
    printForPeople(countText(checked->lines, "record") +
                   (isWhole ? ", each as it was written" : ", not all as they were written") +
                   "; the last has the hash " + checked->last);
  }
  return isWhole ? eToolDone : eToolFinding;
}

}  // namespace

void addAuditCommand(CommandLine& line) {
  line.add(Command<AuditRequest>{
      "audit", "Show whether an audit log is as it was written",
      [](CommandOptions& options, AuditRequest& request) {
        options.word("ACTION", request.action, "verify");
        options.offer({"verify"});
        options.word("FILE", request.file, "The file of kv-station --audit");
        options.flag("--json", request.asJson, "One JSON object instead of lines");
        options.footer(
            "Keep the hash of the last record elsewhere: it shows later whether records were cut "
            "off the end, or the whole was written anew. Exit status: 0; 1 when something was "
            "changed.");
      },
      verify});
}

}  // namespace korvel
