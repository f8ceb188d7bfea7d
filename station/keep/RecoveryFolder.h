#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "station/base/Json.h"
#include "station/base/Result.h"
#include "station/os/Posix.h"

namespace korvel {

/// Writes recovery files on a thread of its own, in order, so that the host thread does not wait
/// for the disk. Any thread.
class RecoveryWriter {
 public:
  using Job = std::function<void()>;

  RecoveryWriter() = default;
  RecoveryWriter(const RecoveryWriter&) = delete;
  RecoveryWriter& operator=(const RecoveryWriter&) = delete;

  /// Does what is queued, then ends.
  ~RecoveryWriter();

  void add(Job job);

  /// Waits until everything that was added before is done.
  void finish();

 private:
  void work();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Job> jobs_;
  bool isBusy_ = false;
  bool isEnding_ = false;
  std::thread thread_;  ///< runs from the first job on
};

/// The unsaved state of one object, as a recovery file holds it.
struct UnsavedState {
  std::string path;    ///< of its file
  std::string object;  ///< the cookie
  std::string name;
  std::string user;      ///< whose changes they are
  std::string changed;   ///< when it was last changed, "2024-05-31T12:00:00Z"
  std::size_t hash = 0;  ///< of the file that it was made of
  long number = 0;       ///< that one's number among the object's saves
  JsonValue content;
  std::string problem;  ///< why the file cannot be read; empty when it can
};

/// The unsaved changes of one project, on this machine: what this station has unsaved now, and what
/// stations left that are gone.
///
///     <root>/<hash of the projects directory>-<project>/<session>/lock        held by its station
///                                                                 E1234.json
///
/// Folders have the mode 0700, files 0600. A session whose lock is free belongs to a station that
/// is gone. A session's name begins with a hash of the user's. Host thread; files are written on
/// another.
class RecoveryFolder {
 public:
  /// `root` is the folder of all; empty keeps nothing, and problem() says so.
  explicit RecoveryFolder(std::string root) : root_(std::move(root)) {}
  RecoveryFolder(const RecoveryFolder&) = delete;
  RecoveryFolder& operator=(const RecoveryFolder&) = delete;
  ~RecoveryFolder() { leave(); }

  /// Begins with a project: takes the sessions of stations that are gone, so that no other station
  /// takes them too.
  void enter(const std::string& projectsDirectory, const std::string& project,
             const std::string& user);

  /// Leaves the project. Kept changes stay on the disk for the next time; an empty session is
  /// removed.
  void leave();

  /// Keeps an object's state, in place of what was kept of it. Written soon; whether that succeeded
  /// shows in problem().
  void keep(const UnsavedState& state, const std::string& contentText);

  /// Forgets what this session keeps of an object.
  void forget(const std::string& object);

  /// Moves what this session keeps of an object to what is left, as if its station were gone.
  void setAside(const std::string& object);

  /// What the user left, without the content: the newest first. What cannot be read is there with
  /// its problem.
  [[nodiscard]] std::vector<UnsavedState> left();

  /// The whole of it.
  static UnsavedState read(const std::string& path);

  /// Removes the file of what was left.
  static Result<void> remove(const UnsavedState& state);

  /// Waits until everything is on the disk.
  void finish() { writer_.finish(); }

  /// Whether a project is entered.
  [[nodiscard]] bool isEntered() const { return !user_.empty(); }

  [[nodiscard]] bool isKeeping() const { return !folder_.empty(); }

  /// Why an object's latest state is not kept, in a sentence; empty while all are.
  [[nodiscard]] std::string problem() const;

  /// The objects whose latest state is not kept.
  [[nodiscard]] std::vector<std::string> unkept() const;

  /// Calls this each time that problem() may have changed; any thread. To be set before enter().
  void onResult(std::function<void()> told) { told_ = std::move(told); }

 private:
  struct Session {
    std::string folder;
    Descriptor lock;
  };

  void takeDeadSessions();
  Result<void> openSession();
  void write(const std::string& object, const std::string& text);
  void note(const std::string& object, const Result<void>& written);

  std::string root_;
  std::string folder_;  ///< of the project; empty outside of one
  std::string user_;    ///< how the names of the user's sessions begin
  std::unique_ptr<Session> own_;
  std::vector<Session> dead_;
  std::function<void()> told_;
  mutable std::mutex problemMutex_;
  std::map<std::string, std::string> problems_;  ///< of the objects that are not kept
  RecoveryWriter writer_;
};

}  // namespace korvel
