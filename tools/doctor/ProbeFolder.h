#pragma once

#include <string>

#include "station/base/Result.h"

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

}  // namespace korvel
