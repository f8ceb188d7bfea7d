#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace korvel {

/// Looks for files beside the host thread, each until it is there or kLongest is over. A share that
/// hangs keeps nobody waiting but its own thread. Any thread.
class FileLookout {
 public:
  using Found = std::function<void()>;

  FileLookout();
  FileLookout(const FileLookout&) = delete;
  FileLookout& operator=(const FileLookout&) = delete;

  /// Nothing is called afterwards. A look that hangs is left to itself.
  ~FileLookout();

  /// Has `found` called on the lookout's thread once something exists at `path`; never when nothing
  /// comes.
  void await(const std::string& path, Found found);

 private:
  class Looks;

  std::shared_ptr<Looks> looks_;
  std::thread thread_;
};

}  // namespace korvel
