#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

namespace korvel {

/// A new empty folder for one test, removed with all that is in it when the test ends.
class ScratchFolder {
 public:
  ScratchFolder() : ScratchFolder(std::filesystem::temp_directory_path()) {}

  /// In another folder than the system's for temporary files, if that can be written to.
  explicit ScratchFolder(const std::filesystem::path& parent) {
    std::string name = (parent / "kvtest-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
      name = (std::filesystem::temp_directory_path() / "kvtest-XXXXXX").string();
      if (::mkdtemp(name.data()) == nullptr) std::abort();
    }
    path_ = name;
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

}  // namespace korvel
