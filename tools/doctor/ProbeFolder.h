#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/os/iFileManager.h"
#include "station/base/Json.h"
#include "station/base/Result.h"
#include "tools/base/ToolHost.h"

namespace korvel {

/// The scratch folder of trials in a projects directory:
///
///     <projects directory>/.kv-doctor/     removed by the last trial that ends
///       kvd-<id>-<step>                    a trial's file
///
/// No station takes it or what is in it for a project, a lock or a marker. Destroying this removes
/// the folder, unless other trials have files in it.
class ProbeFolder {
 public:
  static constexpr const char* kName = ".kv-doctor";

  explicit ProbeFolder(const std::string& projectsDirectory)
      : path_(projectsDirectory + "/" + kName) {}
  ProbeFolder(const ProbeFolder&) = delete;
  ProbeFolder& operator=(const ProbeFolder&) = delete;
  ~ProbeFolder();

  /// Makes the folder where it is missing, and removes the files of trials that were killed more
  /// than ten minutes ago.
  Result<void> make();

  [[nodiscard]] const std::string& path() const { return path_; }

  /// The path of a trial's file; it need not exist.
  [[nodiscard]] std::string file(const std::string& id, const std::string& step) const;

 private:
  Result<void> makeOnce();
  void removeStale() const;

  std::string path_;
  std::string mark_;  ///< a file that keeps the folder from being removed by another trial
};

/// A text that no other trial has: 8 hex digits.
std::string newTrialId();

/// A file that is removed when this is destroyed, if it is there.
class ProbeFile {
 public:
  explicit ProbeFile(std::string path) : path_(std::move(path)) {}
  ProbeFile(const ProbeFile&) = delete;
  ProbeFile& operator=(const ProbeFile&) = delete;
  ~ProbeFile();

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

/// Messages between the trials of two machines: small files in the probe folder. Each is written
/// once, as a whole, under a name of its own. So no cache of a network file system holds an older
/// version, and no lock is needed.
///
///     kvd-<who wrote it>-<step>      kvd-6f1c22ab-here
///
/// Letters are found by listing the folder, never by looking for one in vain. What this one wrote
/// is removed with it.
class FileMailbox {
 public:
  FileMailbox(const ProbeFolder& folder, std::string ownId);
  FileMailbox(const FileMailbox&) = delete;
  FileMailbox& operator=(const FileMailbox&) = delete;
  ~FileMailbox();

  [[nodiscard]] const std::string& ownId() const { return ownId_; }

  /// Writes a letter; false where the share does not take it.
  bool post(const std::string& step, const JsonValue& letter = JsonValue::object());

  /// The letter of this step by another trial, as soon as it is there; nothing after `patience`.
  [[nodiscard]] std::optional<JsonValue> await(const std::string& id, const std::string& step,
                                               std::chrono::milliseconds patience) const;

  /// The trials, other than this one, that have written this step.
  [[nodiscard]] std::set<std::string> writersOf(const std::string& step) const;

 private:
  /// Sets the folder's time now and then. A letter that came within the same tick of the server's
  /// clock as the last listing leaves that time unchanged; a network file system's cache would then
  /// not list again for up to a minute.
  void touchNowAndThen() const;

  const ProbeFolder& folder_;
  std::string ownId_;
  mutable std::chrono::steady_clock::time_point nextTouch_;
  std::vector<std::string> written_;
};

/// How an exclusive open came out.
struct OpenOutcome {
  Kv::Ptr<iFile> file;  ///< open where it was won
  eFileError problem = eFileError::eNone;
};

/// Opens a file exclusively, as a station takes a lock; makes it where it is missing.
using ExclusiveOpen = std::function<OpenOutcome(const std::string& path)>;

/// The station's own file manager.
OpenOutcome openAsStationsDo(const std::string& path);

/// A process that holds a file exclusively until it is killed or this is destroyed.
class LockHolder {
 public:
  /// Waits until the process holds the file or could not take it.
  LockHolder(const ExclusiveOpen& open, const std::string& path);
  [[nodiscard]] bool isHolding() const { return problem_ == eFileError::eNone; }
  [[nodiscard]] eFileError problem() const { return problem_; }

  /// kill -9.
  void kill() { child_.kill(); }

 private:
  ChildProcess child_;
  eFileError problem_ = eFileError::eOther;
};

/// Opens until it is won or `patience` is over; how long it took, or nothing.
std::optional<std::chrono::milliseconds> timeUntilFree(const ExclusiveOpen& open,
                                                       const std::string& path,
                                                       std::chrono::milliseconds patience);

/// Why a file could not be opened exclusively, and what to do: "the file system offers no locks,
/// ...". Not for one that is held.
std::string refusalText(eFileError problem);

}  // namespace korvel
