#include "station/project/ProjectFolder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string_view>

#include "host/base/Log.h"
#include "station/base/Events.h"
#include "station/base/Json.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/os/SharedFiles.h"
#include "station/project/Records.h"
#include "station/wire/MessageTable.h"

namespace korvel {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kRecordFile = "/project.json";
constexpr std::string_view kBuilding = ".new-";

/// Making a folder takes a moment. A station that has not finished it after this time is gone.
constexpr auto kAbandonedAfter = std::chrono::hours(1);

std::string recordPath(const Cookie& project) {
  return projectFolder(project) + std::string(kRecordFile);
}

std::string recordText(const ProjectRecord& record) {
  return writeJsonIndented(JsonValue::object({{"name", record.name},
                                              {"private", record.isPrivate},
                                              {"made", record.made},
                                              {"madeBy", record.madeBy}}));
}

Result<void> fillFolder(const std::string& building, const std::string& folder,
                        const ProjectRecord& record) {
  if (auto made = makeFolder(building); !made) return made.error();
  if (auto written = writeAtomically(building + std::string(kRecordFile), recordText(record));
      !written) {
    return written.error();
  }
  // Last, so that other stations never list a project without its record.
  if (std::rename(building.c_str(), folder.c_str()) != 0) {
    return errorFromErrno(errno, "make", folder);
  }
  return {};
}

bool isBuilding(const std::string& name) {
  if (!name.starts_with(kBuilding)) return false;
  const Cookie cookie(name.substr(kBuilding.size()).c_str(), false);
  return cookie.getType() == CookieTypeProject;
}

/// Removes what stations left that were killed while they made a project. Ages are told by the
/// share's own clock: `made` is a folder that was written to just now.
void removeAbandoned(const std::string& made) {
  std::error_code problem;
  const auto now = fs::last_write_time(made, problem);
  const auto names = listFresh(settings().projectsDirectory);
  if (problem || !names) return;
  for (const std::string& name : *names) {
    if (!isBuilding(name)) continue;
    const fs::path path = settings().projectsDirectory + "/" + name;
    const auto since = fs::last_write_time(path, problem);
    // Another station may be making it at this moment.
    if (problem || now - since < kAbandonedAfter) continue;
    fs::remove_all(path, problem);
    if (!problem) Log("Removed %s, which a station left that ended too soon.\n", path.string());
  }
}

}  // namespace

std::string projectFolder(const Cookie& project) {
  return settings().projectsDirectory + "/" + project.asString().str();
}

Result<std::vector<Cookie>> listProjectFolders() {
  const auto names = listFresh(settings().projectsDirectory);
  if (!names) {
    Error problem = names.error();
    problem.message +=
        " This is the projects directory: see whether the share is mounted, or start the "
        "station with another.";
    return problem;
  }
  std::vector<Cookie> projects;
  for (const std::string& name : *names) {
    const Cookie cookie(name.c_str(), false);
    if (cookie.getType() == CookieTypeProject) projects.push_back(cookie);
  }
  std::sort(projects.begin(), projects.end());
  return projects;
}

Cookie cookieNamedBy(std::string_view fileName, std::string_view ending) {
  // No cookie's text is as long; a text on the stack costs a large folder no memory.
  std::array<char, 64> stem{};
  if (!fileName.ends_with(ending) || fileName.size() - ending.size() >= stem.size()) return {};
  fileName.copy(stem.data(), fileName.size() - ending.size());
  return Cookie(stem.data(), false);
}

bool isProjectFile(std::string_view name) {
  return name == kRecordFile.substr(1) || !cookieNamedBy(name, kEditEnding).isNull() ||
         !cookieNamedBy(name, kRecordEnding).isNull();
}

std::string pathInNamedProject(const std::string& fileName) {
  const ReceivedMessage* const message = currentMessage();
  const Cookie named(message ? message->fields.project.c_str() : "", false);
  if (named.getType() != CookieTypeProject) return {};
  return projectFolder(named) + "/" + fileName;
}

namespace {

Result<ProjectRecord> parseProjectRecord(const Cookie& project, const Result<std::string>& bytes) {
  if (!bytes) return bytes.error();
  const std::string path = recordPath(project);
  const auto json = parseJson(*bytes);
  const std::string complaint = "The record of project " + project.asString().str() +
                                " cannot be read; it is left as it is, repair or remove " + path;
  if (!json) return Error{ErrorCode::eBadContent, complaint + ": " + json.error().message, path};
  const JsonValue& name = (*json)["name"];
  if (!name.isString() || name.asString().empty()) {
    return Error{ErrorCode::eBadContent, complaint + ": it holds no name.", path};
  }
  return ProjectRecord{name.asString(), (*json)["private"].asBool(), (*json)["made"].asString(),
                       (*json)["madeBy"].asString()};
}

/// How many projects are looked at before they are handed on. A share that hangs is to show soon,
/// and what is told of locks is to be as young as the look at their folder.
constexpr std::size_t kProjectsAtOnce = 4 * kMostInFlight;

std::string cachedName(const Cookie& project) {
  return project.asString().str() + std::string(kRecordFile);
}

/// Those of the names that are not in the folder, which was looked at a moment ago.
std::vector<std::string_view> missingIn(const std::string& folder,
                                        const std::vector<std::string_view>& names) {
  std::vector<std::string_view> missing;
  for (const std::string_view name : names) {
    if (isSurelyGone(folder + "/" + std::string(name))) missing.push_back(name);
  }
  return missing;
}

}  // namespace

Result<ProjectRecord> readProjectRecord(const Cookie& project) {
  return parseProjectRecord(project, readFresh(recordPath(project), kLargestList));
}

/// What was found of one project.
struct ProjectRecords::Look {
  Cookie project;
  Result<ProjectRecord> record = Error();
  Result<FileStamp> folder = Error();
  std::vector<std::string_view> missing = {};
  StampedContent read = {};  ///< without bytes where nothing was read, or nothing that can be kept
};

ProjectRecords::ProjectRecords() : cache_(settings().cache, settings().projectsDirectory) {}

Result<void> ProjectRecords::forEach(const Take& take, const std::vector<std::string_view>& asked,
                                     Asked of) {
  // Before the projects are listed: a moment that has passed by the share's clock.
  const auto directory = stampOfFolder(settings().projectsDirectory);
  const auto projects = listProjectFolders();
  if (!projects) return projects.error();
  const bool mayOpen =
      (asked.empty() || of == Asked::eOfPrivate) && isFreshOnceOpened(settings().projectsDirectory);
  std::mutex cacheMutex;
  const auto lookAtOne = [&](const Cookie& project) {
    auto read = mayOpen ? opened(project, directory, cacheMutex) : std::nullopt;
    Look look = read ? std::move(*read) : lookAtProject(project, cacheMutex);
    const bool isAsked = of == Asked::eOfAll || !look.record || look.record->isPrivate;
    if (asked.empty() || !isAsked) return look;
    if (!look.folder) look.folder = stampOfFolder(projectFolder(project));
    if (look.folder) look.missing = missingIn(projectFolder(project), asked);
    return look;
  };
  for (std::size_t from = 0; from < projects->size(); from += kProjectsAtOnce) {
    std::vector<Look> looks(std::min(kProjectsAtOnce, projects->size() - from));
    // Looking waits for the share and is done by several threads; `take` is the caller's.
    inFlight(looks.size(),
             [&](std::size_t each) { looks[each] = lookAtOne((*projects)[from + each]); });
    for (const Look& look : looks) {
      if (directory) keep(look, *directory);
      std::optional<LookedAfresh> looked;
      if (look.folder) looked.emplace(projectFolder(look.project), look.missing);
      take(look.project, look.record);
    }
  }
  cache_.save();
  return {};
}

bool ProjectRecords::isHeld(const Cookie& project, std::mutex& cacheMutex) const {
  const std::lock_guard lock(cacheMutex);
  return cache_.holds(cachedName(project));
}

/// A record that is not known here, where its file is fresh once it is opened: its folder need not
/// be asked. One that was not at rest is, since only its folder tells how late it is by the share's
/// clock.
std::optional<ProjectRecords::Look> ProjectRecords::opened(const Cookie& project,
                                                           const Result<FileStamp>& directory,
                                                           std::mutex& cacheMutex) const {
  if (!directory || isHeld(project, cacheMutex)) return std::nullopt;
  auto read = readStamped(recordPath(project), kLargestList);
  // Another file system may be mounted on the project's folder.
  const bool isAlike = read && read->stamp.device == directory->device;
  if (!isAlike || !isAtRest(read->stamp, directory->changed)) return std::nullopt;
  Look look{project};
  look.record = parseProjectRecord(project, read->bytes);
  look.read = std::move(*read);
  return look;
}

ProjectRecords::Look ProjectRecords::lookAtProject(const Cookie& project,
                                                   std::mutex& cacheMutex) const {
  const std::string path = recordPath(project);
  const std::string name = cachedName(project);
  Look look{project};
  look.folder = stampOfFolder(projectFolder(project));
  if (!look.folder) {
    look.record = readProjectRecord(project);
    return look;
  }
  // The folder's answer is enough: a question more for each file would double the list's.
  if (const auto stamp = isHeld(project, cacheMutex) ? knownStampOfFile(path) : Error()) {
    const std::lock_guard lock(cacheMutex);
    if (const auto* const kept = cache_.find(name, *stamp)) {
      look.record = parseProjectRecord(project, std::string(*kept));
      return look;
    }
  }
  if (auto read = readStamped(path, kLargestList)) {
    look.read = std::move(*read);
    look.record = parseProjectRecord(project, look.read.bytes);
  } else {
    look.record = readProjectRecord(project);
  }
  return look;
}

/// A file that was not at rest may have changed within the same tick of the share's clock: its
/// stamp would not tell, and the cache would keep the old text for good.
void ProjectRecords::keep(const Look& look, const FileStamp& directory) {
  if (!look.record || look.read.bytes.empty()) return;
  const FileStamp& stamp = look.read.stamp;
  const FileStamp& folder = look.folder ? *look.folder : directory;
  const bool isAlike = stamp.device == directory.device && stamp.device == folder.device;
  const std::int64_t moment = std::max(directory.changed, folder.changed);
  if (!isAlike || look.read.bytes.size() > kLongestKept || !isAtRest(stamp, moment)) return;
  cache_.put(cachedName(look.project), stamp, look.read.bytes);
}

Result<void> makeProjectFolder(const Cookie& project, const ProjectRecord& record) {
  const std::string building =
      settings().projectsDirectory + "/" + std::string(kBuilding) + project.asString().str();
  auto filled = fillFolder(building, projectFolder(project), record);
  if (filled) {
    removeAbandoned(projectFolder(project));
  } else {
    // What cannot be removed is removed by the next project made an hour later or more.
    std::error_code ignored;
    fs::remove_all(building, ignored);
  }
  return filled;
}

void SeenDirectory::addProof(const std::string& file) {
  const std::lock_guard lock(mutex_);
  proofs_.insert(file);
}

Result<void> SeenDirectory::check() {
  const auto now = stampOfFolder(path_);
  if (!now) return now.error();
  const std::lock_guard lock(mutex_);
  const bool isSame = seen_ && seen_->device == now->device && seen_->inode == now->inode;
  if (seen_ && !isSame && !holdsProof()) {
    return Error{ErrorCode::eNotFound,
                 "Another folder stands in the place of the projects directory " + path_ +
                     " that this station started with, so nothing is written there. See whether "
                     "the share is mounted; where it was really replaced, start the station anew.",
                 path_};
  }
  seen_ = *now;
  return {};
}

bool SeenDirectory::holdsProof() const {
  return std::ranges::any_of(
      proofs_, [this](const std::string& file) { return existsFresh(path_ + "/" + file); });
}

std::string timeForRecord() { return utcText(std::time(nullptr)); }

}  // namespace korvel
