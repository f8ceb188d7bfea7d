#include "station/project/Projects.h"

#include <algorithm>

#include "host/base/Log.h"
#include "host/os/OS.h"
#include "host/project/ProjectSpacesManager.h"
#include "host/project/iPermissionsManager.h"
#include "host/project/iProjectShare.h"
#include "station/base/Events.h"
#include "station/base/HostParts.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/os/SharedFiles.h"
#include "station/project/Names.h"
#include "station/project/Rooms.h"

using namespace korvel;

namespace korvel {

ProjectListeners& ProjectListeners::instance() {
  static auto* const listeners = new ProjectListeners;
  return *listeners;
}

void ProjectListeners::add(ProjectListener* listener) { listeners_.push_back(listener); }

void ProjectListeners::remove(ProjectListener* listener) { std::erase(listeners_, listener); }

bool ProjectListeners::isListening(const ProjectListener* listener) const {
  return std::find(listeners_.begin(), listeners_.end(), listener) != listeners_.end();
}

std::string likelyName(const std::string& typed, const std::vector<std::string>& names) {
  constexpr std::size_t kShortestBeginning = 3;
  const std::string wanted = upperCased(typed);
  std::vector<std::string> begun;
  for (const std::string& name : names) {
    const std::string upper = upperCased(name);
    if (upper == wanted) return name;
    if (upper.starts_with(wanted)) begun.push_back(name);
  }
  const std::string nearest = nearestName(typed, names);
  if (!nearest.empty() || begun.empty() || typed.size() < kShortestBeginning) return nearest;
  return begun.front();
}

std::string candidateList(const std::vector<NamedObject>& objects) {
  constexpr std::size_t kMost = 8;
  std::vector<std::string> cookies;
  cookies.reserve(objects.size());
  for (const NamedObject& each : objects) cookies.push_back(each.cookie.asString().str());
  const std::size_t length = tellingLength(cookies);
  const bool isOneName = std::ranges::all_of(
      objects, [&objects](const NamedObject& each) { return each.name == objects.front().name; });
  std::vector<std::string> shown;
  for (std::size_t i = 0; i < std::min(objects.size(), kMost); ++i) {
    shown.push_back(cookies[i].substr(0, length));
    if (!isOneName) shown.back() += " (" + shownText(objects[i].name) + ")";
  }
  const std::size_t left = objects.size() - shown.size();
  return joined(shown, ", ") + (left > 0 ? " and " + std::to_string(left) + " more" : "");
}

Error severalMeant(const std::string& what, const std::string& word,
                   const std::vector<NamedObject>& objects) {
  const bool areCalledSo =
      std::ranges::all_of(objects, [&word](const NamedObject& each) { return each.name == word; });
  return {ErrorCode::eUsage,
          "Several " + what + (areCalledSo ? " are called " : " begin with ") + inQuotes(word) +
              "; name one by its cookie: " + candidateList(objects) + ".",
          {}};
}

namespace {

/// Whether the text is the beginning of the cookie's.
bool beginsCookie(const std::string& text, const Cookie& cookie) {
  return !text.empty() && upperCased(cookie.asString().str()).starts_with(upperCased(text));
}

/// Whether the only cookie that begins with a text is meant by it. A kind's letter alone says
/// nothing yet of what is meant.
bool isMeantBy(const std::string& begun) { return begun.size() > 1; }

/// Several media files may share a cookie. Whoever types it means all of them, so it counts once.
void dropSameCookies(std::vector<NamedObject>& objects) {
  std::ranges::stable_sort(objects, [](auto& a, auto& b) { return a.cookie < b.cookie; });
  const auto isSame = [](auto& a, auto& b) { return a.cookie == b.cookie; };
  objects.erase(std::unique(objects.begin(), objects.end(), isSame), objects.end());
}

}  // namespace

Result<Cookie> resolveBegun(const std::string& begun, const std::vector<NamedObject>& objects,
                            Error nothing) {
  std::vector<std::string> names;
  std::vector<NamedObject> found;
  for (const NamedObject& each : objects) {
    names.push_back(each.name);
    if (beginsCookie(begun, each.cookie)) found.push_back(each);
  }
  dropSameCookies(found);
  if (found.size() == 1 && isMeantBy(begun)) return found.front().cookie;
  if (found.size() > 1) return severalMeant("objects", begun, found);
  const std::string likely = likelyName(begun, names);
  nothing.message += likely.empty() ? "." : "; did you mean " + inQuotes(likely) + "?";
  return nothing;
}

void ProjectListeners::tellDeleted(const CookieVec& cookies, const LightweightString<char>& by) {
  for (std::size_t at = 0; at < cookies.size(); at += kMostDeleted) {
    const auto begin = cookies.begin() + static_cast<std::ptrdiff_t>(at);
    const std::size_t count = std::min(kMostDeleted, cookies.size() - at);
    const CookieVec some(begin, begin + static_cast<std::ptrdiff_t>(count));
    tell([&](ProjectListener& each) { each.handleLogsDeletion(some, by); });
  }
}

}  // namespace korvel

ProjectListener::ProjectListener() { ProjectListeners::instance().add(this); }

ProjectListener::~ProjectListener() { ProjectListeners::instance().remove(this); }

namespace korvel {

namespace {

/// How many letters of a cookie's beginning stand for it. Shorter words are likely to be names.
constexpr std::size_t kShortestCookie = 4;

constexpr const char* kLockAdvice =
    "Wait until it is left there, or enter another project (\"project list\").";

/// The refusal of a private project: why it cannot be held, and who holds it.
Error refusal(const Cookie& project, const std::string& name, eFileError reason) {
  return lockRefusal(
      "Private project " + inQuotes(name), reason,
      [&project] { return iProjectShare::instance()->getProjectLockOwner(project); }, kLockAdvice);
}

/// Whether a private project can be asked for. Asked before the open project is left, so that a
/// refusal costs nothing.
Result<void> lookBefore(const Cookie& project, const std::string& name) {
  iProjectShare* share = iProjectShare::instance();
  if (!share) {
    return Error{ErrorCode::eRefused,
                 "Private project " + inQuotes(name) +
                     " cannot be held: no plug-in guards projects. Start with \"--plugin\".",
                 {}};
  }
  if (lookAtLock(share->getProjectLockFile(project)) == LockState::eHeld) {
    return refusal(project, name, eFileError::eHeld);
  }
  return {};
}

Result<void> lock(const Cookie& project, const std::string& name) {
  iProjectShare& share = *iProjectShare::instance();
  if (share.lockProject(project)) {
    warnOfHolderName("You hold the private project " + inQuotes(name),
                     share.getProjectLockOwner(project));
    return {};
  }
  return refusal(project, name, OS().fileManager().lastError());
}

/// Whether a cookie is of one of the kinds; of any for no kinds.
bool isOfKind(const Cookie& cookie, const std::string& kinds) {
  return kinds.empty() || kinds.find(cookie.getType()) != std::string::npos;
}

/// The failure for a name that no project has, or none of those that could be read.
Error nothingCalled(const std::string& name, const std::vector<std::string>& names,
                    const Result<void>& readable) {
  std::string text = "There is no project " + inQuotes(name);
  const std::string likely = likelyName(name, names);
  if (!likely.empty()) {
    return {ErrorCode::eNotFound, text + "; did you mean " + inQuotes(likely) + "?", {}};
  }
  if (readable) return {ErrorCode::eNotFound, text + "; \"project list\" shows all.", {}};
  text += " among those that can be read; not every one can: " + readable.error().message;
  return {readable.error().code, text, readable.error().path};
}

Error notMade(const std::string& project, Error why) {
  why.message = "Project " + inQuotes(project) + " was not made: " + why.message;
  return why;
}

void flushPermissions() {
  if (auto* permissions = iPermissionsManager::instance()) permissions->flushOnProjectChange();
}

ProjectInfo infoOf(const Cookie& cookie, const Result<ProjectRecord>& record) {
  ProjectInfo info;
  info.cookie = cookie;
  if (record) {
    info.name = record->name;
    info.isPrivate = record->isPrivate;
  } else {
    info.problem = record.error().message;
  }
  // A shared project is locked by nobody. What cannot be read may be private.
  if (record && !record->isPrivate) return info;
  iProjectShare* share = iProjectShare::instance();
  info.isOccupied = share && share->isProjectOccupied(cookie);
  if (!info.isOccupied) return info;
  info.lock = lookAtLock(share->getProjectLockFile(cookie));
  info.lockOwner = shownText(share->getProjectLockOwner(cookie));
  return info;
}

}  // namespace

Projects::Projects() = default;

Projects::~Projects() = default;

void Projects::addPart(iProjectPart& part) { parts_.push_back(&part); }

Result<Cookie> Projects::create(const std::string& name, bool isPrivate) {
  if (auto checked = checkName("project", name); !checked) return checked.error();
  if (auto there = directory()->check(); !there) return notMade(name, there.error());
  const Cookie cookie = Cookie::create(CookieTypeProject);
  const ProjectRecord record{name, isPrivate, timeForRecord(), settings().user};
  if (auto made = makeProjectFolder(cookie, record); !made) return notMade(name, made.error());
  return cookie;
}

ProjectRecords& Projects::records() const {
  // Made with its first use, since it reads a file.
  if (!records_) records_ = std::make_unique<ProjectRecords>();
  return *records_;
}

std::vector<Cookie> Projects::named(const std::string& name) const {
  std::vector<Cookie> found;
  const auto read = records().forEach([&](const Cookie& cookie, const auto& record) {
    if (record && record->name == name) found.push_back(cookie);
  });
  return read ? found : std::vector<Cookie>();
}

Result<std::vector<ProjectInfo>> Projects::list() const {
  std::vector<ProjectInfo> infos;
  const auto take = [&infos](const Cookie& cookie, const auto& record) {
    infos.push_back(infoOf(cookie, record));
  };
  const auto read = records().forEach(take, {kProjectLock}, ProjectRecords::Asked::eOfPrivate);
  if (!read) return read.error();
  // An empty list is true only of the share itself.
  if (infos.empty()) {
    if (auto there = directory()->check(); !there) return there.error();
  }
  return infos;
}

Result<Projects::Found> Projects::find(const std::string& nameOrCookie) const {
  const Cookie cookie(nameOrCookie.c_str(), false);
  if (cookie.getType() == CookieTypeProject) {
    const auto isThere = isThereFresh(projectFolder(cookie));
    if (!isThere) return isThere.error();
    if (*isThere) {
      auto record = readProjectRecord(cookie);
      if (!record) return record.error();
      return Found{cookie, *record};
    }
  }
  return findByName(nameOrCookie);
}

Result<Projects::Found> Projects::findByName(const std::string& name) const {
  std::vector<Found> found;
  std::vector<Found> begun;
  std::vector<std::string> names;
  // A project whose record cannot be read may be the one that is meant: the failure then says so.
  Result<void> readable;
  const auto take = [&](const Cookie& cookie, const Result<ProjectRecord>& record) {
    if (record && record->name == name) found.push_back({cookie, *record});
    if (record && beginsCookie(name, cookie)) begun.push_back({cookie, *record});
    if (record) names.push_back(record->name);
    if (!record) readable = record.error();
  };
  if (auto read = records().forEach(take); !read) return read.error();
  if (found.empty() && (begun.size() > 1 || isMeantBy(name))) found = begun;
  if (found.size() == 1) return found.front();
  if (found.empty()) {
    if (auto there = directory()->check(); !there) return there.error();
    return nothingCalled(name, names, readable);
  }
  std::vector<NamedObject> candidates;
  candidates.reserve(found.size());
  for (const Found& each : found) candidates.push_back({each.cookie, each.record.name});
  return severalMeant("projects", name, candidates);
}

Result<void> Projects::enter(const std::string& nameOrCookie) {
  const auto found = find(nameOrCookie);
  if (!found) return found.error();
  if (current_ && current_->cookie == found->cookie) return {};
  if (found->record.isPrivate) {
    if (auto looked = lookBefore(found->cookie, found->record.name); !looked) return looked;
  }
  return takeOver(*found);
}

// The plug-in holds one private project at a time, so the open one is given up before the other is
// asked for. If another station takes that one between the look and the lock, the open project is
// entered again.
Result<void> Projects::takeOver(const Found& project) {
  const std::unique_ptr<OpenProject> before =
      current_ ? std::make_unique<OpenProject>(*current_) : nullptr;
  close();
  auto opened = open(project);
  if (opened || !before) return opened;
  const Found old{before->cookie, {before->name, before->isPrivate, {}, {}}};
  if (auto back = open(old); !back) {
    Error both = opened.error();
    both.message += " And no project is open now: " + back.error().message;
    return both;
  }
  return opened;
}

Result<void> Projects::open(const Found& project) {
  const Cookie& cookie = project.cookie;
  if (project.record.isPrivate) {
    if (auto locked = lock(cookie, project.record.name); !locked) return locked;
  }
  const auto record = readProjectRecord(cookie);
  // First: it is read while the folder is listed.
  const auto cache = std::make_shared<ReadCache>(settings().cache, projectFolder(cookie));
  auto listing = listStamped(projectFolder(cookie), isProjectFile);
  if (!record || !listing) {
    if (project.record.isPrivate) iProjectShare::instance()->unlockCurrentlyLockedProject();
    return record ? listing.error() : record.error();
  }
  std::vector<std::string> files = listing->others;
  for (const auto& [name, stamp] : listing->files) {
    if (!name.ends_with(kEditEnding)) files.push_back(name);
  }
  current_ = std::make_unique<OpenProject>(
      OpenProject{cookie, record->name, projectFolder(cookie), project.record.isPrivate,
                  std::make_shared<const FolderListing>(std::move(*listing)), cache,
                  std::make_shared<NewlyShown>()});
  directory()->addProof(cookie.asString().str() + "/project.json");
  flushPermissions();
  enterParts(files);
  ProjectListeners::instance().tell([](ProjectListener& each) { each.handleProjectEntry(); });
  return {};
}

/// A project is open whole or not at all.
void Projects::enterParts(const std::vector<std::string>& files) {
  try {
    for (iProjectPart* part : parts_) part->enter(*current_, files);
  } catch (...) {
    close();
    throw;
  }
}

// Made when it is first needed: settings() are not yet there when this is.
std::shared_ptr<SeenDirectory> Projects::directory() const {
  if (!directory_) directory_ = std::make_shared<SeenDirectory>(settings().projectsDirectory);
  return directory_;
}

Result<void> Projects::leave() {
  if (auto open = requireOpen(); !open) return open.error();
  close();
  return {};
}

void Projects::close() {
  if (!current_) return;
  ProjectListeners::instance().tell([](ProjectListener& each) { each.handleProjectExit(); });
  // In reverse: parts may use those that were entered before them. The project's lock goes last, so
  // that no other station enters while a part still writes.
  std::for_each(parts_.rbegin(), parts_.rend(), [](iProjectPart* part) { part->leave(); });
  if (current_->isPrivate && iProjectShare::instance()) {
    iProjectShare::instance()->unlockCurrentlyLockedProject();
    clearGivenUp("Private project " + inQuotes(current_->name),
                 iProjectShare::instance()->getProjectLockFile(current_->cookie));
  }
  current_.reset();
  flushPermissions();
}

Result<const OpenProject*> Projects::requireOpen() const {
  if (current_) return current();
  return Error{ErrorCode::eNoProject,
               "No project is open; \"project list\" shows them, \"project enter P\" opens one.",
               {}};
}

Result<Cookie> Projects::resolve(const std::string& nameOrCookie, const std::string& kinds) const {
  if (auto open = requireOpen(); !open) return open.error();
  const auto listed = resolveListed(nameOrCookie, kinds);
  if (listed || listed.error().code != ErrorCode::eNotFound) return listed;
  // Its message may have been lost, so the folder is asked before the user is refused.
  takeUpUnlisted();
  const auto found = resolveListed(nameOrCookie, kinds);
  if (found || found.error().code != ErrorCode::eNotFound) return found;
  // Last: a cookie's beginning never stands for an object while another object has that name.
  std::vector<NamedObject> wanted = objects();
  std::erase_if(wanted,
                [&kinds](const NamedObject& each) { return !isOfKind(each.cookie, kinds); });
  return resolveBegun(nameOrCookie, wanted, found.error());
}

/// An object found in this way counts as another station's change, whose message was lost.
void Projects::takeUpUnlisted() const {
  const auto files = listFresh(current_->folder);
  if (!files) return;
  const RemoteChangeScope remote;
  for (iProjectPart* part : parts_) part->takeUpUnlisted(*files);
}

Result<Cookie> Projects::resolveListed(const std::string& nameOrCookie,
                                       const std::string& kinds) const {
  const auto isWanted = [&kinds](const Cookie& cookie) { return isOfKind(cookie, kinds); };
  const Cookie cookie(nameOrCookie.c_str(), false);
  const bool isHeld = std::ranges::any_of(parts_, [&](auto* part) { return part->holds(cookie); });
  if (!cookie.isNull() && isHeld && isWanted(cookie)) return cookie;
  std::vector<NamedObject> found;
  for (const iProjectPart* part : parts_) part->findByName(nameOrCookie, found);
  if (found.empty() && nameOrCookie.size() >= kShortestCookie) {
    found = objects();
    std::erase_if(found, [&](const NamedObject& each) {
      return !each.cookie.asString().str().starts_with(nameOrCookie);
    });
  }
  std::erase_if(found, [&](const NamedObject& each) { return !isWanted(each.cookie); });
  dropSameCookies(found);
  if (found.size() == 1) return found.front().cookie;
  if (found.empty()) {
    return Error{ErrorCode::eNotFound,
                 "The project " + inQuotes(current_->name) + " holds no such object as " +
                     inQuotes(nameOrCookie),
                 {}};
  }
  return severalMeant("objects", nameOrCookie, found);
}

std::size_t Projects::catchUp(const FoundFiles& files) {
  std::size_t told = 0;
  if (!current_) return told;
  for (iProjectPart* part : parts_) told += part->catchUp(files);
  return told;
}

std::vector<NamedObject> Projects::objects() const {
  std::vector<NamedObject> all;
  if (!current_) return all;
  for (const iProjectPart* part : parts_) part->listObjects(all);
  return all;
}

JsonValue Projects::state() const {
  JsonValue state = JsonValue::object();
  state.set("project", JsonValue());
  if (!current_) return state;
  state.set("project", JsonValue::object({{"cookie", current_->cookie.asString().str()},
                                          {"name", current_->name},
                                          {"private", current_->isPrivate}}));
  for (const iProjectPart* part : parts_) state.set(part->stateKey(), part->state());
  return state;
}

}  // namespace korvel

Cookie get_project_cookie() {
  const OpenProject* project = hostParts().projects->current();
  return project ? project->cookie : Cookie();
}

bool ProjectSpacesManager::machineIsInNetworkMode() { return settings().networkMode; }

int ProjectSpacesManager::getCurrentProjectSpaceType() {
  const OpenProject* project = hostParts().projects->current();
  if (!project) return eNoProjectSpace;
  return project->isPrivate ? ePrivateProjectSpace : eSharedProjectSpace;
}

// Occupancy is read from the share each time it is shown, so that locks left by a dead station show
// as well. The event only says that it is time to read it again.
void ProjectSpacesManager::refreshCurrentLobby() {
  tellChanged("room", get_project_cookie(), "refreshed");
  Rooms::noteToldHere();
}
