#include "station/os/WrittenFiles.h"

#include <sys/stat.h>

#include "station/os/Posix.h"

namespace korvel {

void WrittenFiles::remember(const std::string& path, const std::string& content) {
  if (content.size() > kMaxSize) return forget(path);
  const std::lock_guard lock(mutex_);
  contents_[path] = content;
}

void WrittenFiles::forget(const std::string& path) {
  const std::lock_guard lock(mutex_);
  contents_.erase(path);
}

bool WrittenFiles::isRewritten(int descriptor, const std::string& path) {
  const std::lock_guard lock(mutex_);
  const auto found = contents_.find(path);
  struct stat status {};
  if (found == contents_.end() || ::fstat(descriptor, &status) != 0) return false;
  if (static_cast<std::size_t>(status.st_size) != found->second.size()) return true;
  std::string content;
  return readAll(descriptor, content) && content != found->second;
}

}  // namespace korvel
