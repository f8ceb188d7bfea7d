#include "tests/bench/BenchShare.h"

#include <filesystem>
#include <fstream>

#include "station/base/StationSettings.h"

BenchShare::BenchShare() {
  StationSettings settings;
  settings.projectsDirectory = folder_.path();
  settings.user = "ANNA";
  settings.host = "ANNA";
  installSettings(settings);
  std::filesystem::create_directory(projectFolder());
}

BenchShare& BenchShare::instance() {
  static BenchShare share;
  return share;
}

std::string BenchShare::projectFolder() const { return folder_ / project_.asString().str(); }

std::string BenchShare::file(int number, int markers) const {
  return folder_ / ("USER" + std::to_string(number) + (number < markers ? ".cli" : ".dat"));
}

void BenchShare::fill(int files, int markers) const {
  for (int number = 0; number < files; ++number) std::ofstream(file(number, markers));
}

void BenchShare::clear(int files, int markers) const {
  for (int number = 0; number < files; ++number) std::filesystem::remove(file(number, markers));
}
