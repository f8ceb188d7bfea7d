#include "tools/base/ToolHost.h"

#include <filesystem>

#include "app/base/Options.h"
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

Result<StationSettings> stationOptions(const std::vector<std::string>& words) {
  constexpr std::string_view kProgram = "kv-station: ";
  std::vector<const char*> arguments{"kv-share"};
  for (const std::string& word : words) arguments.push_back(word.c_str());
  const auto read = readOptions(static_cast<int>(arguments.size()), arguments.data());
  if (const auto* const options = std::get_if<Options>(&read)) return options->station;
  std::string problem = std::get<ProgramEnd>(read).text;
  if (problem.starts_with(kProgram)) problem.erase(0, kProgram.size());
  return Error{ErrorCode::eUsage, problem, {}};
}

}  // namespace korvel
