#pragma once

#include <map>
#include <mutex>
#include <string>

namespace korvel {

/// What this process wrote whole into small files. A file that holds something else when it is to
/// be removed was written by another since: the information file of a lock that changed hands
/// between its release and the removal. Any thread.
class WrittenFiles {
 public:
  /// Larger contents are not remembered.
  static constexpr std::size_t kMaxSize = 4096;

  void remember(const std::string& path, const std::string& content);
  void forget(const std::string& path);

  /// Whether the open file at the path holds something else than what was remembered of it. Reads
  /// it to its end.
  bool isRewritten(int descriptor, const std::string& path);

 private:
  std::mutex mutex_;
  std::map<std::string, std::string> contents_;
};

}  // namespace korvel
