#include <filesystem>
#include <iostream>
#include <string>

#include "tests/tour/Tour.h"

using namespace korvel;

namespace korvel {

namespace {

constexpr const char* kUsage =
    "usage: kv-tour [--gui]\n"
    "Three stations share a new project on this machine; prints what each sends, receives and\n"
    "applies. With --gui they open windows. Exit status: 0 when everything arrived, else 1; 2 for "
    "a\n"
    "usage error.\n";

}  // namespace

}  // namespace korvel

/// kv-tour: plays the tour in a temporary folder with the kv-station that lies beside it, and
/// removes the folder. With --gui the stations open windows.
int main(int argc, char** argv) {
  const std::string option = argc > 1 ? argv[1] : "";
  if (option == "--help" || option == "-h") return std::cout << kUsage, 0;
  if (option == "--version") return std::cout << "kv-tour " KV_VERSION " (Project Share)\n", 0;
  if (argc > 2 || (!option.empty() && option != "--gui")) {
    std::cerr << kUsage;
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
