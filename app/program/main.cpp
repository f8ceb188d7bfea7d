#include <dlfcn.h>

#include <filesystem>

#include "app/base/OptionTable.h"
#include "app/program/StationProgram.h"

using namespace korvel;

namespace {

Error noWindow(const std::string& why) {
  return {
      ErrorCode::eSystem,
      "--gui: " + why + "; install project-share-window, or leave --gui out to use the terminal.",
      {}};
}

/// Loads the window's library for as long as the program runs: the toolkit cannot be taken out of
/// a process again.
MadeWindow loadWindow() {
  const std::string file = libraryFolder() + "/" + kWindowLibrary;
  std::error_code problem;
  if (!std::filesystem::exists(file, problem)) {
    return noWindow("the window is not installed (there is no " + file + ")");
  }
  void* const library = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (!library) return noWindow(std::string("the window cannot be loaded (") + ::dlerror() + ")");
  const auto entry = reinterpret_cast<WindowEntry>(::dlsym(library, kWindowEntry));
  if (!entry) return noWindow(file + " is no window");
  MadeWindow made = std::unique_ptr<iStationWindow>();
  entry(KV_VERSION, &made);
  return made;
}

}  // namespace

int main(int argc, char** argv) { return runKvStation(argc, argv, loadWindow); }
