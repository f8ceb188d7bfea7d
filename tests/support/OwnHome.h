#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

extern char** environ;

namespace korvel {

/// A home folder of the test program's own, so that it and the programs that it starts see nothing
/// of what is configured or installed for the person who runs it. Removed at the end.
class OwnHome {
 public:
  OwnHome() {
    std::vector<std::string> foreign;
    for (char** entry = environ; *entry; ++entry) {
      const std::string text = *entry;
      if (text.rfind("XDG_", 0) == 0 || text.rfind("WIRESHARK_", 0) == 0) {
        foreign.push_back(text.substr(0, text.find('=')));
      }
    }
    for (const std::string& name : foreign) ::unsetenv(name.c_str());
    std::string pattern = std::filesystem::temp_directory_path() / "kv-home-XXXXXX";
    if (const char* made = ::mkdtemp(pattern.data())) folder_ = made;
    ::setenv("HOME", folder_.c_str(), 1);
    // The network analyser looks into the system's folder of plug-ins, too.
    ::setenv("WIRESHARK_PLUGIN_DIR", folder_.c_str(), 1);
  }
  OwnHome(const OwnHome&) = delete;
  OwnHome& operator=(const OwnHome&) = delete;
  ~OwnHome() {
    std::error_code ignored;
    if (::getpid() == maker_ && !folder_.empty()) std::filesystem::remove_all(folder_, ignored);
  }

 private:
  const pid_t maker_ = ::getpid();
  std::string folder_;
};

}  // namespace korvel
