#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

/// A new empty folder for one test, removed with all that is in it when the test ends.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "kvtest-XXXXXX").string();
    path_ = ::mkdtemp(name.data());
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  /// Without a trailing separator.
  [[nodiscard]] const std::string& path() const { return path_; }

  [[nodiscard]] std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};
