#include "tests/bench/BenchShare.h"

#include <mntent.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string_view>

#include "station/base/StationSettings.h"

namespace korvel {

BenchShare::BenchShare() {
  use(memory_ / "open");
  std::ofstream(projectFolder() + "/project.json") << R"({"name": "Bench", "private": false})";
  if (!projects_.enter("Bench")) std::abort();
}

BenchShare& BenchShare::instance() {
  static BenchShare share;
  return share;
}

std::optional<std::string> BenchShare::disk() const {
  if (fileSystemOf(disk_.path()) == "tmpfs") return std::nullopt;
  return disk_.path();
}

void BenchShare::use(const std::string& projectsDirectory) {
  StationSettings with;
  with.projectsDirectory = projectsDirectory;
  with.user = with.host = "ANNA";
  installSettings(with);
  std::filesystem::create_directories(projectFolder());
}

std::string BenchShare::projectFolder() const {
  return settings().projectsDirectory + "/" + project_.asString().str();
}

std::string BenchShare::fileSystemOf(const std::string& path) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> table(::setmntent("/proc/self/mounts", "r"),
                                                              ::endmntent);
  std::string name = "unknown";
  std::size_t longest = 0;
  while (const mntent* entry = table ? ::getmntent(table.get()) : nullptr) {
    const std::string_view mount = entry->mnt_dir;
    const bool isUnder = path.starts_with(mount) &&
                         (mount == "/" || path.size() == mount.size() || path[mount.size()] == '/');
    if (!isUnder || mount.size() < longest) continue;
    longest = mount.size();
    name = entry->mnt_type;
  }
  return name;
}

}  // namespace korvel
