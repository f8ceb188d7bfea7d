#include <filesystem>
#include <iostream>
#include <string>

#include "app/tour/Tour.h"

/// kv-tour: plays the tour in a temporary folder with the kv-station that lies beside it, and
/// removes the folder. With --gui the stations open windows.
int main(int argc, char** argv) {
  const std::string option = argc > 1 ? argv[1] : "";
  if (argc > 2 || (!option.empty() && option != "--gui")) {
    std::cerr << "usage: kv-tour [--gui]\n";
    return 2;
  }
  const auto windows = option.empty() ? Tour::Windows::eNone : Tour::Windows::eSideBySide;
  namespace fs = std::filesystem;
  std::error_code problem;
  const fs::path here = fs::read_symlink("/proc/self/exe", problem).parent_path();
  std::string pattern = (fs::temp_directory_path() / "kv-tour-XXXXXX").string();
  if (!::mkdtemp(pattern.data())) {
    std::cerr << "kv-tour: cannot make a folder " << pattern << "; set TMPDIR to one with room\n";
    return 2;
  }
  const bool whole = Tour((here / "kv-station").string(), pattern, windows).play();
  fs::remove_all(pattern, problem);
  return whole ? 0 : 1;
}
