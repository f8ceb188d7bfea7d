#include "station/keep/RecoveryFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <uuid/uuid.h>
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <functional>
#include <iterator>
#include <utility>

#include "station/base/Strings.h"
#include "station/os/FolderListing.h"
#include "station/os/SharedFiles.h"

namespace korvel {

RecoveryWriter::~RecoveryWriter() {
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
  }
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
}

void RecoveryWriter::add(Job job) {
  {
    const std::lock_guard lock(mutex_);
    // The thread first: where there is none to be had, no job must wait for it.
    if (!thread_.joinable()) thread_ = std::thread([this] { work(); });
    jobs_.push_back(std::move(job));
  }
  changed_.notify_all();
}

void RecoveryWriter::finish() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return jobs_.empty() && !isBusy_; });
}

void RecoveryWriter::work() {
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [this] { return !jobs_.empty() || isEnding_; });
    // Also when ending: what is queued is written first.
    if (jobs_.empty()) return;
    const Job job = std::move(jobs_.front());
    jobs_.pop_front();
    isBusy_ = true;
    lock.unlock();
    try {
      job();
    } catch (const std::exception&) {
      // Without memory this change is not kept. Each change writes the edit whole, so the next one
      // makes up for it.
    }
    lock.lock();
    isBusy_ = false;
    changed_.notify_all();
  }
}

namespace {

namespace fs = std::filesystem;

constexpr const char* kLock = "/lock";

/// A project's or user's name may hold characters that a file name cannot, so its hash stands for
/// it.
std::string hashText(const std::string& name) {
  char text[20];
  std::snprintf(text, sizeof text, "%016llx-", static_cast<unsigned long long>(hash64(name)));
  return text;
}

/// The same directory has the same name on each start, by whichever path it is named.
std::string keyOf(const std::string& directory, const std::string& project) {
  std::error_code problem;
  const fs::path canonical = fs::weakly_canonical(directory, problem);
  return hashText(problem ? directory : canonical.string()) + project;
}

std::string uniqueName() {
  uuid_t bytes;
  uuid_generate_random(bytes);
  char name[37];
  uuid_unparse_lower(bytes, name);
  return name;
}

/// Makes a folder and those above it, each for this user alone.
bool makePrivate(const std::string& folder) {
  if (::mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST) return true;
  if (errno != ENOENT || folder.find('/', 1) == std::string::npos) return false;
  return makePrivate(folderOf(folder)) && (::mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST);
}

/// Opens the lock of a session and takes it. Not open while the session's station lives.
Descriptor takeLock(const std::string& folder) {
  Descriptor lock(
      ::open((folder + kLock).c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!lock.isOpen() || !tryLock(lock.get())) return {};
  return lock;
}

bool isOwnFolder(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         status.st_uid == ::geteuid();
}

bool isStateFile(const std::string& name) {
  return name.ends_with(kRecordEnding) && name[0] != '.';
}

std::vector<std::string> stateFilesOf(const std::string& folder) {
  std::vector<std::string> files;
  const auto names = listFresh(folder);
  if (!names) return files;
  std::ranges::copy_if(*names, std::back_inserter(files), isStateFile);
  return files;
}

/// Removes a session's folder if it keeps nothing.
void removeIfEmpty(const std::string& folder) {
  if (!stateFilesOf(folder).empty()) return;
  ::unlink((folder + kLock).c_str());
  ::rmdir(folder.c_str());
}

std::string headerOf(const UnsavedState& state) {
  return writeJson(JsonValue::object({{"object", state.object},
                                      {"name", state.name},
                                      {"user", state.user},
                                      {"changed", state.changed},
                                      {"hash", std::to_string(state.hash)},
                                      {"number", state.number}}));
}

UnsavedState unreadable(const std::string& path, const std::string& why) {
  UnsavedState state;
  state.path = path;
  const std::string name = nameOf(path);
  state.object = name.substr(0, name.find_first_of(".~"));
  state.problem = why;
  return state;
}

}  // namespace

void RecoveryFolder::enter(const std::string& projectsDirectory, const std::string& project,
                           const std::string& user) {
  leave();
  user_ = hashText(user);
  if (root_.empty()) return;
  folder_ = root_ + "/" + keyOf(projectsDirectory, project);
  takeDeadSessions();
}

void RecoveryFolder::takeDeadSessions() {
  const auto names = listFresh(folder_);
  if (!names) return;
  for (const std::string& name : *names) {
    const std::string folder = folder_ + "/" + name;
    if (!name.starts_with(user_) || !isOwnFolder(folder) || stateFilesOf(folder).empty()) continue;
    Descriptor lock = takeLock(folder);
    // The lock is kept until leave(), so that a second station of this user does not offer the same
    // changes.
    if (lock.isOpen()) dead_.push_back({folder, std::move(lock)});
  }
}

void RecoveryFolder::leave() {
  // Queued jobs still write into these folders, and would fail in a folder that was removed.
  writer_.finish();
  if (own_) removeIfEmpty(own_->folder);
  for (const Session& session : dead_) removeIfEmpty(session.folder);
  own_.reset();
  dead_.clear();
  problems_.clear();
  if (!folder_.empty()) ::rmdir(folder_.c_str());  // where nothing is left in it
  folder_.clear();
  user_.clear();
}

Result<void> RecoveryFolder::openSession() {
  if (own_) return {};
  const std::string folder = folder_ + "/" + user_ + uniqueName();
  Descriptor lock;
  if (makePrivate(folder)) lock = takeLock(folder);
  if (!lock.isOpen()) {
    const Error why = errorFromErrno(errno, "make a folder in", folder_);
    // Each try has a folder of its own.
    removeIfEmpty(folder);
    return why;
  }
  own_ = std::make_unique<Session>(Session{folder, std::move(lock)});
  return {};
}

void RecoveryFolder::keep(const UnsavedState& state, const std::string& contentText) {
  if (root_.empty()) {
    return note(state.object, Error{ErrorCode::eNotFound,
                                    "There is no folder for them; set HOME, or XDG_STATE_HOME.",
                                    {}});
  }
  if (!isKeeping()) return;
  if (auto opened = openSession(); !opened) return note(state.object, opened);
  std::string text = headerOf(state);
  // The content is JSON text already. It takes the place of the header's closing brace: parsing it
  // only to write it again would hold up the host thread.
  text.pop_back();
  text += ",\"content\":" + contentText + "}\n";
  write(state.object, std::move(text));
}

void RecoveryFolder::write(const std::string& object, const std::string& text) {
  writer_.add([this, object, text, folder = own_->folder] {
    note(object, writeAtomically(folder + "/" + object + std::string(kRecordEnding), text));
  });
}

/// The text of a failure speaks of the share, which this folder is not on.
void RecoveryFolder::note(const std::string& object, const Result<void>& written) {
  {
    const std::lock_guard lock(problemMutex_);
    if (written) {
      problems_.erase(object);
    } else if (written.error().code == ErrorCode::eFull) {
      problems_[object] = "The disk is full on which " + root_ + " is.";
    } else {
      problems_[object] = written.error().message;
    }
  }
  if (told_) told_();
}

void RecoveryFolder::forget(const std::string& object) {
  writer_.add([this, object, folder = own_ ? own_->folder : std::string()] {
    if (!folder.empty()) ::unlink((folder + "/" + object + std::string(kRecordEnding)).c_str());
    const std::lock_guard lock(problemMutex_);
    problems_.erase(object);
  });
}

void RecoveryFolder::setAside(const std::string& object) {
  if (!own_) return;
  const std::string path = own_->folder + "/" + object;
  writer_.add([from = path + std::string(kRecordEnding),
               to = path + "~" + uniqueName().substr(0, 8) + std::string(kRecordEnding)] {
    ::rename(from.c_str(), to.c_str());
  });
}

UnsavedState RecoveryFolder::read(const std::string& path) {
  // Refuses a link, which readListed() would follow.
  if (const auto plain = stampOfFile(path); !plain) return unreadable(path, plain.error().message);
  const auto bytes = readListed(path);
  if (!bytes) return unreadable(path, bytes.error().message);
  auto json = parseJson(*bytes, kMostEditMemory);
  if (!json) return unreadable(path, path + " cannot be read: " + json.error().message);
  const std::string& hash = (*json)["hash"].asString();
  UnsavedState state;
  const auto [end, problem] = std::from_chars(hash.data(), hash.data() + hash.size(), state.hash);
  state.path = path;
  state.object = (*json)["object"].asString();
  state.name = (*json)["name"].asString();
  state.user = (*json)["user"].asString();
  state.changed = (*json)["changed"].asString();
  state.number = (*json)["number"].asLong();
  if (JsonValue* content = json->find("content")) state.content = std::move(*content);
  const bool isWhole = problem == std::errc{} && !state.object.empty() && state.content.isObject();
  return isWhole ? state : unreadable(path, path + " is no recovery file of this version.");
}

std::vector<UnsavedState> RecoveryFolder::left() {
  writer_.finish();
  std::vector<UnsavedState> all;
  const auto take = [&](const std::string& folder, const std::string& file) {
    all.push_back(read(folder + "/" + file));
    // Contents may be large; the one that the user takes back is read again.
    all.back().content = JsonValue();
  };
  for (const Session& session : dead_) {
    for (const std::string& file : stateFilesOf(session.folder)) take(session.folder, file);
  }
  for (const std::string& file : own_ ? stateFilesOf(own_->folder) : std::vector<std::string>()) {
    if (file.find('~') != std::string::npos) take(own_->folder, file);
  }
  std::ranges::stable_sort(all, std::greater<>(), &UnsavedState::changed);
  return all;
}

Result<void> RecoveryFolder::remove(const UnsavedState& state) { return removeFileAt(state.path); }

std::string RecoveryFolder::problem() const {
  const std::lock_guard lock(problemMutex_);
  return problems_.empty() ? std::string() : problems_.begin()->second;
}

std::vector<std::string> RecoveryFolder::unkept() const {
  const std::lock_guard lock(problemMutex_);
  std::vector<std::string> objects;
  for (const auto& [object, why] : problems_) objects.push_back(object);
  return objects;
}

}  // namespace korvel
