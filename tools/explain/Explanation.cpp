#include "tools/explain/Explanation.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <optional>
#include <sstream>

#include "host/os/OS.h"
#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "station/edit/EditSummary.h"
#include "station/os/FileErrors.h"
#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"
#include "station/project/ProjectFolder.h"
#include "tools/base/ProcInfo.h"
#include "tools/base/Tool.h"
#include "tools/base/ToolHost.h"
#include "tools/locks/LockList.h"

namespace korvel {

namespace {

constexpr const char* kRenderOwner = "RENDER";
constexpr const char* kNoOwner = "<NOBODY>";

Explanation state(const std::string& object, const char* name, std::string cause,
                  std::string advice) {
  Explanation explanation;
  explanation.object = object;
  explanation.state = name;
  explanation.cause = std::move(cause);
  explanation.advice = std::move(advice);
  return explanation;
}

Explanation freeOf(const std::string& object, const char* cause) {
  return state(object, "free", cause, {});
}

/// The state of a file that cannot be read or written, by the error.
Explanation refusedBy(const std::string& object, const Error& error) {
  const FileProblem& problem = fileProblem(error.code);
  if (problem.code == ErrorCode::eSystem || problem.code == ErrorCode::eBadContent) {
    return state(object, problem.name, "cannot be read: " + error.message,
                 "bring it back from a backup");
  }
  return state(object, problem.name,
               "cannot be used: " + std::string(problem.text) + " (" + error.path + ")",
               problem.advice);
}

/// The same, by the error of the file manager's last open of a lock.
Explanation refusedBy(const std::string& object, eFileError error, const std::string& path) {
  const FileProblem& problem = fileProblem(error);
  return state(object, problem.name,
               "cannot be used: " + std::string(problem.text) + " (" + path + ")", problem.advice);
}

/// Whether this user may make and replace files in a folder: the refusal, or else a free state.
Explanation lookAtRights(const std::string& object, const std::string& folder) {
  if (::access(folder.c_str(), R_OK | W_OK | X_OK) == 0) return freeOf(object, "");
  return refusedBy(object, errorFromErrno(errno, "write", folder));
}

std::string holderName(const LockEntry& lock) {
  return lock.holder.empty() ? "a station whose user's name cannot be read" : lock.holder;
}

/// Advice for a lock whose holder's machine is gone, by the type of the file system.
std::string adviceForDeadMachine(const std::string& folder) {
  const auto info = readFresh("/proc/self/mountinfo");
  const auto mount = info ? mountOf(*info, folder) : std::nullopt;
  if (!mount || !mount->isNetwork()) return {};
  const std::string head = "; if that machine is switched off, ";
  const auto& options = mount->options;
  const bool isVersion3 = std::ranges::find(options, "vers=3") != options.end();
  if (mount->type.starts_with("nfs") && !isVersion3) {
    return head + "the server frees it after a lease (90 s unless set otherwise)";
  }
  const std::string stays = ": until then it stays held";
  if (!mount->type.starts_with("nfs")) {
    return head + "switch it on again, or close its session on the server" + stays;
  }
  return head +
         "switch it on again, or with no station at work free all locks on the server (echo "
         "EXPORT > /proc/fs/nfsd/unlock_filesystem)" +
         stays;
}

/// The state of a lock file; free where it does not exist.
Explanation lookAtLockOf(const std::string& object, const std::string& path,
                         const Subject& subject) {
  LockEntry lock;
  lock.path = path.substr(subject.base.size() + 1);
  lookAgain(lock);
  // At once: every further use of the file manager replaces it.
  const eFileError problem = OS().fileManager().lastError();
  Explanation explanation = freeOf(object, "is free");
  switch (lock.state) {
    case LockState::eFree:
      return explanation;
    case LockState::eUnknown:
      return refusedBy(object, problem, path);
    case LockState::eHeld:
      explanation = state(object, "held", "is held", {});
      explanation.where = placeOfHolder(path);
      explanation.advice = "have it left on that station" + adviceForDeadMachine(subject.base);
      break;
    case LockState::eLeftBehind:
      explanation =
          state(object, "left behind",
                "is free to be taken, though lists show it as occupied: its lock was left "
                "behind",
                "enter it, or remove the lock with kv-share break '" + subject.base + "' '" +
                    lock.path + "'");
      break;
  }
  explanation.by = holderName(lock);
  explanation.since = lock.since;
  return explanation;
}

/// The project itself: its record, its lock, its folder.
Explanation explainProject(const Subject& subject) {
  const std::string cookie = subject.project.asString().str();
  const std::string folder = projectFolder(subject.project);
  const auto record = readProjectRecord(subject.project);
  if (!record) {
    Error problem = record.error();
    if (problem.code == ErrorCode::eNotFound && !existsFresh(folder)) problem.path = folder;
    return refusedBy("Project " + cookie, problem);
  }
  const std::string object = "Project " + inQuotes(record->name);
  Explanation lock = lookAtLockOf(object, folder + "/Lock", subject);
  // A lock that was left behind can be taken. Missing rights are the harder obstacle, so they are
  // told first.
  if (!lock.isFree() && lock.state != "left behind") return lock;
  Explanation rights = lookAtRights(object, folder);
  if (!rights.isFree()) return rights;
  if (!lock.isFree()) return lock;
  return freeOf(object,
                record->isPrivate ? "is free: nobody has it open" : "is open to all: it is shared");
}

/// The project as an obstacle for its rooms and edits: a lock that was left behind is none.
Explanation explainDependencies(const Subject& subject) {
  Explanation project = explainProject(subject);
  if (project.state == "left behind") project.state = "free";
  return project;
}

Explanation explainRoom(const Subject& subject) {
  const Explanation around = explainDependencies(subject);
  if (!around.isFree()) return around;
  const std::string object = "Room " + inQuotes(subject.name);
  Explanation lock = lookAtLockOf(object, subject.path, subject);
  if (!lock.isFree() && lock.state != "left behind") return lock;
  const std::string folder = folderOf(subject.path);
  Explanation rights =
      existsFresh(folder) ? lookAtRights(object, folder) : freeOf(object, "is free");
  return rights.isFree() ? lock : rights;
}

/// Whether an edit that is given to a station of this host can never be changed there.
bool isReserved(const std::string& user) { return user == kRenderOwner || user == kNoOwner; }

/// Advice for an edit whose owner is no station: only an administrator's station may give it away.
std::string onAdministratorsStation(const std::string& user) {
  return "give it to a station: edit give EDIT " + user +
         ", on a station that was started with --set Administrator=1";
}

constexpr const char* kOtherHost =
    "start that station with another --host: what belongs to one of this name nobody may change";

/// The permission rules: an edit is changed by its owner's station alone.
Explanation lookAtOwner(const std::string& object, const EditSummary& edit,
                        const std::string& host) {
  const std::string owner = upperCased(edit.owner);
  const std::string user = upperCased(host);
  if (owner.empty()) {
    return state(
        object, "no owner",
        "has no owner, so that no station may change it and anybody may give it away",
        isReserved(user) ? kOtherHost : "give it one: edit give EDIT " + user + ", on any station");
  }
  if (owner == kNoOwner) {
    return state(object, "no owner",
                 "has the owner <NOBODY>, which no station is, so that no station may change it or "
                 "give it away",
                 onAdministratorsStation(user));
  }
  // Required: an edit of the owner RENDER is closed to everybody, also to a station of that name.
  if (owner == user && owner != kRenderOwner) {
    return freeOf(object, "belongs to this station and can be changed");
  }
  Explanation owned = state(object, "owned", "is owned",
                            isReserved(user) ? kOtherHost
                                             : "ask its owner for it: edit give EDIT " + user +
                                                   ", on the station " + owner);
  if (owner == kRenderOwner) {
    owned.cause = "is held for a render job";
    owned.advice = "wait until the render is done; if it was broken off, " +
                   onAdministratorsStation(user == kRenderOwner ? "STATION" : user);
  }
  owned.by = owner;
  return owned;
}

Explanation explainEdit(const Subject& subject, const std::string& host) {
  const Explanation around = explainDependencies(subject);
  if (!around.isFree()) return around;
  const bool isEdit = subject.kind == Subject::Kind::eEdit;
  std::string object = std::string(isEdit ? "Edit " : "Log ") + subject.name;
  const auto bytes = readFresh(subject.path);
  if (!bytes)
    return refusedBy(object, Error{bytes.error().code, bytes.error().message, subject.path});
  const auto summary = readEditSummary(*bytes);
  if (!summary) {
    return refusedBy(object, {ErrorCode::eBadContent, summary.error().message, subject.path});
  }
  if (!summary->name.empty()) object = (isEdit ? "Edit " : "Log ") + inQuotes(summary->name);
  if (isEdit) return lookAtOwner(object, *summary, host);
  return freeOf(object,
                "can be changed, unless a station that runs now owns it: owners of logs "
                "are kept by stations, not in files");
}

Explanation explainFile(const Subject& subject) {
  const Explanation around = explainDependencies(subject);
  if (!around.isFree()) return around;
  const std::string object = "File " + subject.name;
  const auto bytes = readFresh(subject.path);
  if (!bytes) return refusedBy(object, bytes.error());
  if (subject.name.ends_with(kRecordEnding)) {
    // Stations refuse larger records; the second read makes their error.
    if (bytes->size() > kLargestRecord) {
      return refusedBy(object, readFresh(subject.path, kLargestRecord).error());
    }
    const auto json = parseJson(*bytes);
    if (!json) return refusedBy(object, {ErrorCode::eBadContent, json.error().message, {}});
  }
  return freeOf(object, "can be read and replaced");
}

}  // namespace

Explanation explain(const Subject& subject, const std::string& host) {
  switch (subject.kind) {
    case Subject::Kind::eProject:
      return explainProject(subject);
    case Subject::Kind::eRoom:
      return explainRoom(subject);
    case Subject::Kind::eFile:
      return explainFile(subject);
    default:
      return explainEdit(subject, host);
  }
}

std::string sentenceOf(const Explanation& explanation) {
  std::string text = explanation.object + " " + explanation.cause;
  while (text.back() == '.') text.pop_back();
  if (!explanation.by.empty()) text += " by " + explanation.by;
  if (explanation.since != 0) text += " since " + utcText(explanation.since);
  if (!explanation.where.empty()) text += " (" + explanation.where + ")";
  if (!explanation.advice.empty()) text += "; " + explanation.advice;
  return shownText(text) + ".";
}

namespace {

struct ExplainRequest : ShareRequest {
  std::optional<std::string> host;  ///< of the station that is refused
};

const char* kindOf(const Subject& subject) {
  constexpr const char* kKinds[] = {"project", "room", "edit", "log", "file"};
  return kKinds[static_cast<std::size_t>(subject.kind)];
}

JsonValue objectOf(const Subject& subject, const Explanation& explanation) {
  JsonValue object = JsonValue::object({textMember("path", subject.path),
                                        {"kind", kindOf(subject)},
                                        {"object", shownText(explanation.object)},
                                        {"state", explanation.state},
                                        {"by", shownText(explanation.by)},
                                        {"since", ""},
                                        {"where", shownText(explanation.where)},
                                        {"advice", shownText(explanation.advice)},
                                        {"text", sentenceOf(explanation)}});
  if (explanation.since != 0) object.set("since", utcText(explanation.since));
  return object;
}

/// A refusal of several lines, each without control characters.
ToolStatus refuse(const std::string& message) {
  std::istringstream lines(message);
  std::string line;
  std::getline(lines, line);
  toolProblem(eToolUsage, line);
  while (std::getline(lines, line)) std::cerr << shownText(line) << '\n';
  return eToolUsage;
}

ToolStatus explainPath(const ExplainRequest& request) {
  const std::string path = directoryOf(request.path);
  std::vector<std::string> words{"--projects", projectsDirectoryOf(path)};
  if (request.host) words.insert(words.end(), {"--host", *request.host});
  const auto options = stationOptions(words);
  if (!options) return toolProblem(eToolUsage, options.error().message);
  const ToolHost host(options->projectsDirectory);
  const auto subject = subjectAt(path);
  if (!subject) return refuse(subject.error().message);
  const Explanation explanation = explain(*subject, options->host);
  if (request.asJson) {
    printJson(objectOf(*subject, explanation));
  } else {
    std::cout << sentenceOf(explanation) << '\n';
  }
  return explanation.isFree() ? eToolDone : eToolFinding;
}

}  // namespace

void addExplainCommand(CommandLine& line) {
  addShareCommand<ExplainRequest>(
      line,
      {"explain", "Say why a project, room or edit cannot be taken or changed, and what to do",
       [](CommandOptions& options, ExplainRequest& request) {
         options.word("PATH", request.path,
                      "A project's folder, a lock file, a room's or edit's file, or one made "
                      "of names: DIR/Feature/Sound");
         options.text("--host", "NAME", request.host,
                      "The host name of the station that is refused; this machine's by "
                      "default");
         options.flag("--json", request.asJson, "One JSON object instead of a sentence");
         options.footer(
             "Takes nothing. Exit status: 0 when nothing stands in the way; 1 when it does.");
       },
       explainPath});
}

}  // namespace korvel
