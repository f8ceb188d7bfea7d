#include <CLI/CLI.hpp>
#include <memory>

#include "station/base/TextMember.h"
#include "tools/base/ShareTimeout.h"
#include "tools/base/Tool.h"
#include "tools/base/ToolHost.h"
#include "tools/locks/LockList.h"

namespace korvel {

namespace {

struct Request {
  std::string directory;
  bool asJson = false;
  int timeLimit = kShareSeconds;
};

std::string timeText(const LockEntry& lock) { return lock.since ? textOfTime(lock.since) : ""; }

/// For people: a held lock without a readable name says so.
std::string holderColumn(const LockEntry& lock) {
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

ToolStatus showLocks(const Request& request) {
  const ToolHost host(directoryOf(request.directory));
  if (auto usable = host.checkDirectory(); !usable) {
    return toolProblem(eToolUsage, usable.error().message);
  }
  JsonValue all = JsonValue::array();
  ToolStatus status = eToolDone;
  const auto listed = forEachLock([&](const LockEntry& lock) {
    all.append(request.asJson ? objectOf(lock) : rowOf(lock));
    if (lock.state == LockState::eUnknown) status = eToolFinding;
  });
  if (!listed) return toolProblem(eToolUsage, listed.error().message);
  if (request.asJson) {
    printJson(all);
  } else {
    printForPeople(all);
  }
  return status;
}

}  // namespace

void addLocksCommand(CLI::App& tool, ToolStatus& status) {
  auto* const command =
      tool.add_subcommand("locks", "Show every project and room: free, held or left behind");
  const auto request = std::make_shared<Request>();
  command->add_option("DIR", request->directory, "The projects directory")->required();
  command->add_flag("--json", request->asJson, "One JSON array instead of a table");
  command->footer("Looking takes no lock. Exit status: 0; 1 when a lock may not be looked at.");
  addTimeLimit(*command, request->timeLimit);
  command->callback([=, &status] {
    status = lookAtShare(directoryOf(request->directory), std::chrono::seconds(request->timeLimit),
                         [&request] { return showLocks(*request); });
  });
}

}  // namespace korvel
