#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "tests/fakes/ScratchFolder.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/fuzz/Parsers.h"

namespace korvel {

// All parsers in one program. "--parser=NAME" picks one; "--list" names them all.

namespace {

constexpr std::string_view kPick = "--parser=";

const Parsers& allParsers() {
  static const Parsers all = [] {
    Parsers parsers;
    addStationParsers(parsers);
    addAppParsers(parsers);
    addToolParsers(parsers);
    return parsers;
  }();
  return all;
}

const Parser* picked = nullptr;

void pick(const std::string& name) {
  const auto found = allParsers().find(name);
  if (found == allParsers().end()) mustBeEqual("parser", name, "one that --list names");
  picked = &found->second;
}

const std::string& scratch() {
  static const ScratchFolder folder("/dev/shm");
  return folder.path();
}

}  // namespace

std::string placed(const std::string& name, std::string_view bytes) {
  const std::string path = scratch() + "/" + name;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
  return path;
}

void mustBeShowable(const char* what, std::string_view text) {
  mustBeEqual(what, text, shownText(text));
}

}  // namespace korvel

using namespace korvel;

extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments) {
  StationSettings settings;
  settings.projectsDirectory = scratch();
  settings.user = settings.host = "ANNA";
  installSettings(settings);
  if (*count < 2) return 0;
  const std::string_view first = (*arguments)[1];
  if (first == "--list") {
    for (const auto& [name, parser] : allParsers()) std::puts(name.c_str());
    std::exit(0);
  }
  if (first.starts_with(kPick)) pick(std::string(first.substr(kPick.size())));
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes = inputText(data, size);
  if (!picked) mustBeEqual("parser", "none", "named by --parser=NAME");
  (*picked)(bytes);
  return 0;
}
