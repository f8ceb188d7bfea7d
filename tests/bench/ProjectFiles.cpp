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

}  // namespace korvel
