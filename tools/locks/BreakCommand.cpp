#include <iostream>

#include "host/os/OS.h"
#include "station/base/Strings.h"
#include "tools/base/ShareTimeout.h"
#include "tools/base/Tool.h"
#include "tools/base/ToolHost.h"
#include "tools/locks/LockList.h"

namespace korvel {

namespace {

struct Request : ShareRequest {
  std::string lock;
  bool isAgreed = false;
};

std::string holderOf(const LockEntry& lock) {
  return lock.holder.empty() ? "a station whose user's name cannot be read"
                             : shownText(lock.holder);
}

ToolStatus refuseHeld(LockEntry lock) {
  lookAgain(lock);
  return toolProblem(eToolFinding, shownText(lock.path) + " is held by " + holderOf(lock) +
                                       ": nothing was removed; it can be removed when that "
                                       "station has left or is gone");
}

bool userAgrees(const LockEntry& lock) {
  std::cout << "Remove " << shownText(lock.path) << ", left behind by " << holderOf(lock) << " at "
            << textOfTime(lock.since) << "? [y/N] " << std::flush;
  std::string answer;
  shareRests();
  std::getline(std::cin, answer);
  shareAnswered();
  return answer == "y" || answer == "Y" || answer == "yes";
}

/// The information file goes while this holds the lock, so that it cannot be a new holder's; then
/// the lock file goes by the file manager's removal, which takes the lock itself and leaves alone
/// what a station has taken in between.
ToolStatus removeLock(const LockEntry& lock) {
  iFileManager& files = OS().fileManager();
  const auto path = wideText(lockFileOf(lock));
  auto held = files.openFile(path, eFileReadWrite, eFileOpenExisting, eFileShareNone, eFileNoFlags);
  if (!held || !held->isOpen()) {
    if (files.lastError() == eFileError::eHeld) return refuseHeld(lock);
    return toolProblem(eToolFinding,
                       lockRefusal(shownText(lock.path), files.lastError(), {}, {}).message);
  }
  const bool hadName = files.removeFile(path + L".inf") && !lock.holder.empty();
  held.reset();
  if (!files.removeFile(path)) return refuseHeld(lock);
  std::cout << "removed " << shownText(lock.path) << (hadName ? " and its information file" : "")
            << ", left behind by " << holderOf(lock) << '\n';
  return eToolDone;
}

ToolStatus breakOne(const LockEntry& lock, const Request& request) {
  switch (lock.state) {
    case LockState::eFree:
      std::cout << shownText(lock.path) << " is free: there is nothing to remove\n";
      return eToolDone;
    case LockState::eHeld:
      return refuseHeld(lock);
    default:
      break;
  }
  if (request.isAgreed || userAgrees(lock)) return removeLock(lock);
  return toolProblem(eToolFinding, "nothing was removed");
}

ToolStatus breakLock(const Request& request) {
  const ToolHost host(directoryOf(request.path));
  if (auto usable = host.checkDirectory(); !usable) {
    return toolProblem(eToolUsage, usable.error().message);
  }
  const auto named = locksNamed(request.lock);
  if (!named) return toolProblem(eToolUsage, named.error().message);
  const std::vector<LockEntry>& locks = *named;
  if (locks.size() == 1) return breakOne(locks.front(), request);
  std::string problem = "\"" + shownText(request.lock) + "\" is no project or room of " +
                        shownText(request.path) + "; kv-share locks shows them";
  if (!locks.empty()) problem = "\"" + shownText(request.lock) + "\" is the name of several:";
  for (const LockEntry& lock : locks) problem += " " + shownText(lock.path);
  return toolProblem(eToolUsage, problem);
}

}  // namespace

void addBreakCommand(CommandLine& line) {
  addShareCommand<Request>(
      line,
      {"break", "Remove a lock that a station left behind that is gone",
       [](CommandOptions& options, Request& request) {
         options.word("DIR", request.path, "The projects directory");
         options.word("LOCK", request.lock,
                      "As kv-share locks shows it, or a project's or room's name");
         options.flag("--yes", request.isAgreed, "Do not ask before");
         options.footer(
             "Refuses while anybody holds the lock. Exit status: 0; 1 when nothing was removed.");
       },
       breakLock});
}

}  // namespace korvel
