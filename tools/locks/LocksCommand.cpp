#include <algorithm>

#include "station/base/TextMember.h"
#include "station/os/Posix.h"
#include "tools/base/ShareTimeout.h"
#include "tools/base/Tool.h"
#include "tools/base/ToolHost.h"
#include "tools/locks/LockList.h"

namespace korvel {

namespace {

std::string timeText(const LockEntry& lock) { return lock.since ? textOfTime(lock.since) : ""; }

/// For people: a held lock without a readable name says so.
std::string holderColumn(const LockEntry& lock) {
  if (lock.hasOldName) return "(not known: " + nameOf(lock.path) + ".inf is of an earlier holder)";
  if (!lock.holder.empty()) return lock.holder;
  return lock.state == LockState::eHeld ? "(name not readable yet)" : "";
}

/// For people: "free" would say that nobody is in a shared project, which no lock tells.
std::string stateColumn(const LockEntry& lock) {
  return lock.isShared && lock.state == LockState::eFree ? "open to all" : stateName(lock.state);
}

JsonValue rowOf(const LockEntry& lock) {
  return JsonValue::object({{"lock", lock.path},
                            {"project", lock.project},
                            {"room", lock.room},
                            {"state", stateColumn(lock)},
                            {"by", holderColumn(lock)},
                            {"since", timeText(lock)}});
}

JsonValue objectOf(const LockEntry& lock) {
  return JsonValue::object({textMember("lock", lock.path),
                            {"kind", lock.room.empty() ? "project" : "room"},
                            textMember("project", lock.project),
                            textMember("room", lock.room),
                            {"state", stateName(lock.state)},
                            textMember("by", lock.holder),
                            {"since", timeText(lock)}});
}

/// What needs a look stands out: what a gone station left behind, and what cannot be looked at.
const char* colourOf(const JsonValue& row) {
  const std::string& state = row["state"].asString();
  if (state == stateName(LockState::eHeld)) return kGreen;
  if (state == stateName(LockState::eLeftBehind)) return kYellow;
  return state == stateName(LockState::eUnknown) ? kRed : kPlain;
}

ToolStatus showLocks(const ShareRequest& request) {
  const ToolHost host(directoryOf(request.path));
  if (auto usable = host.checkDirectory(); !usable) {
    return toolProblem(eToolUsage, usable.error().message);
  }
  std::vector<LockEntry> locks;
  const auto listed = forEachLock([&](const LockEntry& lock) { locks.push_back(lock); });
  if (!listed) return toolProblem(eToolUsage, listed.error().message);
  if (locks.empty()) {
    if (auto found = expectProjects(directoryOf(request.path)); !found) {
      return toolProblem(eToolUsage, found.error().message);
    }
  }
  sortByName(locks);
  JsonValue all = JsonValue::array();
  for (const LockEntry& lock : locks) all.append(request.asJson ? objectOf(lock) : rowOf(lock));
  if (request.asJson) {
    printJson(all);
  } else {
    printTable(all, colourOf);
  }
  const bool isKnown = std::ranges::none_of(
      locks, [](const LockEntry& lock) { return lock.state == LockState::eUnknown; });
  return isKnown ? eToolDone : eToolFinding;
}

}  // namespace

void addLocksCommand(CommandLine& line) {
  addShareCommand<ShareRequest>(
      line, {"locks", "Show every project and room: free, held or left behind",
             [](CommandOptions& options, ShareRequest& request) {
               options.word("DIR", request.path, "The projects directory");
               options.flag("--json", request.asJson, "One JSON array instead of a table");
               options.footer(
                   "Looking takes no lock. Exit status: 0; 1 when a lock may not be looked at.");
             },
             showLocks});
}

}  // namespace korvel
