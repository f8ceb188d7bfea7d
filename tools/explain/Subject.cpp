#include "tools/explain/Explanation.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/edit/EditSummary.h"
#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"
#include "station/project/Names.h"
#include "station/project/ProjectFolder.h"
#include "station/project/Projects.h"
#include "tools/base/ToolHost.h"

namespace korvel {

namespace {

constexpr std::string_view kRoomFolder = "rooms/";

/// The cookie that a name is the whole text of; else the null cookie.
Cookie cookieOf(const std::string& name) {
  Cookie cookie(name.c_str(), false);
  return cookie.asString().str() == name ? cookie : Cookie();
}

bool isProject(const std::string& name) {
  const Cookie cookie = cookieOf(name);
  return !cookie.isNull() && cookie.getType() == CookieTypeProject;
}

bool holdsProjects(const std::string& folder) {
  const auto names = listFresh(folder);
  if (!names) return false;
  for (const std::string& name : *names) {
    if (isProject(name)) return true;
  }
  return false;
}

std::string withoutEndings(std::string name, std::initializer_list<std::string_view> endings) {
  for (const std::string_view ending : endings) {
    if (name.ends_with(ending)) name.resize(name.size() - ending.size());
  }
  return name;
}

Error nothingThere(const std::string& path, const std::string& why) {
  return {ErrorCode::eNotFound, inQuotes(path) + " " + why, path};
}

/// The refusal of a name that several things have; `choices` are their paths, a line each.
Error severalOf(const std::string& word, const std::string& choices) {
  return {ErrorCode::eUsage,
          "several things are called " + inQuotes(word) + "; name one by its path:" + choices,
          word};
}

Subject subjectIn(const Cookie& project) {
  return {
      Subject::Kind::eProject, settings().projectsDirectory, project, {}, projectFolder(project)};
}

Subject roomOf(const Cookie& project, const std::string& fileName) {
  Subject room = subjectIn(project);
  room.kind = Subject::Kind::eRoom;
  room.name = roomNameOf(fileName);
  room.path += "/" + std::string(kRoomFolder) + fileName + std::string(kLockEnding);
  return room;
}

Subject editOf(const Cookie& project, const Cookie& edit) {
  Subject subject = subjectIn(project);
  subject.kind = edit.getType() == CookieTypeEdit ? Subject::Kind::eEdit : Subject::Kind::eLog;
  subject.name = edit.asString().str();
  subject.path += "/" + subject.name + std::string(kEditEnding);
  return subject;
}

/// The project of this name, or whose cookie begins so. A whole cookie stands for itself: that its
/// folder is missing is explained.
Result<Cookie> projectNamed(const std::string& word) {
  const Cookie whole = isProject(word) ? cookieOf(word) : Cookie();
  if (!whole.isNull() && existsFresh(projectFolder(whole))) return whole;
  std::vector<Cookie> found;
  std::vector<NamedObject> all;
  const auto take = [&](const Cookie& project, const Result<ProjectRecord>& record) {
    shareAnswered();
    if (record && record->name == word) found.push_back(project);
    all.push_back({project, record ? record->name : std::string()});
  };
  if (!ProjectRecords().forEach(take)) {
    if (!whole.isNull()) return whole;
    return nothingThere(
        word, "is no project: the folder " + settings().projectsDirectory + " cannot be read");
  }
  if (found.size() == 1) return found.front();
  if (found.size() > 1) {
    std::string choices;
    for (const Cookie& project : found) choices += "\n  " + projectFolder(project);
    return severalOf(word, choices);
  }
  const Result<Cookie> begun = resolveBegun(
      word, all, nothingThere(word, "is no project of " + settings().projectsDirectory));
  const bool isMissing = !begun && begun.error().code == ErrorCode::eNotFound;
  return isMissing && !whole.isNull() ? whole : begun;
}

/// The edits and logs of the project; without a name where the file cannot be read.
std::vector<NamedObject> editsOf(const Cookie& project) {
  std::vector<NamedObject> edits;
  const std::string folder = projectFolder(project);
  const auto files = listFresh(folder);
  if (!files) return edits;
  for (const std::string& file : *files) {
    if (!file.ends_with(kEditEnding)) continue;
    const Cookie edit = cookieOf(withoutEndings(file, {kEditEnding}));
    if (edit.isNull()) continue;
    const auto bytes = readListed(folder + "/" + file);
    shareAnswered();
    const auto summary = bytes ? readEditSummary(*bytes) : Result<EditSummary>(Error{});
    edits.push_back({edit, summary ? summary->name : std::string()});
  }
  return edits;
}

/// The project's rooms, by name alone.
std::vector<NamedObject> roomsOf(const Cookie& project) {
  std::vector<NamedObject> rooms;
  const auto files = listFresh(projectFolder(project) + "/rooms");
  if (!files) return rooms;
  for (const std::string& file : *files) {
    const std::string name = roomNameOf(withoutEndings(file, {kRecordEnding}));
    if (file.ends_with(kRecordEnding) && !name.empty()) rooms.push_back({{}, name});
  }
  return rooms;
}

/// The rooms, edits and logs of the project that have this name.
std::vector<Subject> namedIn(const Cookie& project, const std::vector<NamedObject>& edits,
                             const std::string& word) {
  std::vector<Subject> found;
  const std::string folder = projectFolder(project);
  const auto fileName = roomFileName(word);
  if (fileName && (existsFresh(folder + "/rooms/" + *fileName + std::string(kRecordEnding)) ||
                   existsFresh(folder + "/rooms/" + *fileName + std::string(kLockEnding)))) {
    found.push_back(roomOf(project, *fileName));
  }
  for (const NamedObject& each : edits) {
    if (each.name == word) found.push_back(editOf(project, each.cookie));
  }
  std::ranges::sort(found, {}, &Subject::path);
  return found;
}

/// What lies under a project's folder: "", "Lock", "rooms/Sound.lck", "E0001.otio", "Sound".
Result<Subject> subjectUnder(const Cookie& project, const std::string& rest) {
  Subject subject = subjectIn(project);
  if (rest.empty() || rest == "Lock" || rest == "Lock.inf" || rest == "project.json") {
    return subject;
  }
  if (rest.starts_with(kRoomFolder)) {
    // In this order: an information file is called NAME.lck.inf.
    const std::string name = withoutEndings(rest.substr(kRoomFolder.size()),
                                            {kInformationEnding, kLockEnding, kRecordEnding});
    if (!roomNameOf(name).empty()) return roomOf(project, name);
    if (const auto fileName = roomFileName(name)) return roomOf(project, *fileName);
  }
  const Cookie cookie = cookieOf(withoutEndings(rest, {kEditEnding}));
  const bool isEditFile = rest.ends_with(kEditEnding) ||
                          existsFresh(subject.path + "/" + rest + std::string(kEditEnding));
  if (!cookie.isNull() && isEditFile) return editOf(project, cookie);
  std::vector<NamedObject> known = editsOf(project);
  const auto named = namedIn(project, known, rest);
  if (named.size() == 1) return named.front();
  if (named.size() > 1) {
    std::string choices;
    for (const Subject& each : named) choices += "\n  " + each.path;
    return severalOf(rest, choices);
  }
  // Never outside of the project's folder.
  if (rest.find("..") != rest.npos || !existsFresh(subject.path + "/" + rest)) {
    for (NamedObject& room : roomsOf(project)) known.push_back(std::move(room));
    const Result<Cookie> begun = resolveBegun(
        rest, known,
        nothingThere(rest, "is no room, edit or file of project " + project.asString().str() +
                               " (kv-share locks " + subject.base + " shows projects and rooms)"));
    return begun ? editOf(project, *begun) : Result<Subject>(begun.error());
  }
  subject.kind = Subject::Kind::eFile;
  subject.name = rest;
  subject.path += "/" + rest;
  return subject;
}

}  // namespace

std::string projectsDirectoryOf(const std::string& path) {
  // By the text first, which needs no answer of the share.
  for (std::string folder = path; folder.size() > 1; folder = folderOf(folder)) {
    if (isProject(nameOf(folder))) return folderOf(folder);
  }
  const std::string parent = folderOf(path);
  return holdsProjects(parent) || !holdsProjects(folderOf(parent)) ? parent : folderOf(parent);
}

Result<Subject> subjectAt(const std::string& path) {
  const std::string& base = settings().projectsDirectory;
  const std::string inside = path.substr(base == "/" ? 1 : base.size() + 1);
  const std::size_t slash = inside.find('/');
  const auto project = projectNamed(inside.substr(0, slash));
  if (!project) return project.error();
  return subjectUnder(*project, slash == inside.npos ? "" : inside.substr(slash + 1));
}

}  // namespace korvel
