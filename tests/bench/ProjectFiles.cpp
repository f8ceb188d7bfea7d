#include "tests/bench/ProjectFiles.h"

#include <filesystem>
#include <fstream>

#include "station/edit/OtioDocument.h"
#include "tests/bench/peer/Payload.h"

namespace korvel {

void writeBenchProject(const std::string& projectsDirectory, std::uint32_t edits) {
  const std::string folder = projectsDirectory + "/" + kBenchProject;
  std::filesystem::create_directories(folder);
  std::ofstream(folder + "/project.json") << R"({"name": "Bench", "private": false})";
  const std::string placeholder = benchEdit(0);
  OtioDocument document = OtioDocument::blank(placeholder);
  document.adopt(2, {});
  document.setSetting("OWNER", "ANNA");
  std::string text = document.text();
  const std::size_t name = text.find(placeholder);
  for (std::uint32_t number = 0; number < edits; ++number) {
    text.replace(name, placeholder.size(), benchEdit(number));
    std::ofstream(folder + "/" + benchEdit(number) + ".otio") << text;
  }
}

void writeBenchLongEdit(const std::string& projectsDirectory, std::uint32_t clips) {
  const auto time = [](int frames) {
    return R"({"OTIO_SCHEMA": "RationalTime.1", "rate": 24, "value": )" + std::to_string(frames) +
           "}";
  };
  std::ofstream file(projectsDirectory + "/" + kBenchProject + "/" + kBenchLongEdit + ".otio");
  file << R"({"OTIO_SCHEMA": "Timeline.1", "name": "Long", "metadata": {}, "tracks": )"
       << R"({"OTIO_SCHEMA": "Stack.1", "children": [)"
       << R"({"OTIO_SCHEMA": "Track.1", "kind": "Video", "name": "V1", "children": [)";
  for (std::uint32_t clip = 0; clip < clips; ++clip) {
    file << (clip == 0 ? "" : ",\n") << R"({"OTIO_SCHEMA": "Clip.1", "name": "Clip-)" << clip
         << R"(", "source_range": {"OTIO_SCHEMA": "TimeRange.1", "start_time": )" << time(0)
         << R"(, "duration": )" << time(2400) << "}}";
  }
  file << "]}]}}";
}

}  // namespace korvel
