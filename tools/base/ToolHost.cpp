#include "tools/base/ToolHost.h"

#include <filesystem>

#include "station/base/StationSettings.h"
#include "station/os/SharedFiles.h"

namespace korvel {

namespace {

HostThread& withDirectory(const std::string& projectsDirectory, HostThread& hostThread) {
  StationSettings with;
  with.projectsDirectory = projectsDirectory;
  installSettings(with);
  return hostThread;
}

}  // namespace

ToolHost::ToolHost(const std::string& projectsDirectory)
    : network_(withDirectory(projectsDirectory, hostThread_)), os_(network_) {}

Result<void> ToolHost::checkDirectory() const {
  const auto names = listFresh(settings().projectsDirectory);
  if (names) return {};
  return names.error();
}

std::string directoryOf(const std::string& word) {
  std::error_code error;
  std::string path = std::filesystem::absolute(word, error).lexically_normal().string();
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace korvel
