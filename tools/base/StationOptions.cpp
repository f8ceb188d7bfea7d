#include "tools/base/StationOptions.h"

#include "app/base/Options.h"

namespace korvel {

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
