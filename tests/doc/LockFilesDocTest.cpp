#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/ToolRun.h"

using namespace korvel;

namespace {

/// A line that the page types, and what it shows after it.
struct Step {
  std::string command;
  std::string shown;
};

/// The steps of the page's worked example: its indented lines, commands behind "$ ".
std::vector<Step> stepsOf(const std::string& page) {
  std::vector<Step> steps;
  std::istringstream lines(page.substr(page.find("## Worked example")));
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("    ", 0) != 0) continue;
    const std::string text = line.substr(4);
    if (text.rfind("$ ", 0) == 0) {
      steps.push_back({text.substr(2), {}});
    } else if (!steps.empty()) {
      steps.back().shown += text + "\n";
    }
  }
  return steps;
}

TEST(LockFilesPage, ItsWorkedExampleGoesAsItSays) {
  const std::string page = contentOf(KV_SOURCE_DIR "/docs/lock-files.md");
  ASSERT_NE(page.find("## Worked example"), std::string::npos);
  const auto steps = stepsOf(page);
  ASSERT_GE(steps.size(), 8u);
  const TestFolder folder;
  const std::string path = "PATH='" KV_PROGRAM_DIR "':\"$PATH\"; ";
  for (const Step& step : steps) {
    const std::string line = "cd '" + folder.path() + "'; " + path + step.command;
    const std::string script = folder.write("step", line);
    const std::string run = "sh '" + script + "' >'" + folder / "shown" + "' 2>&1";
    EXPECT_EQ(std::system(run.c_str()), 0) << step.command;
    EXPECT_EQ(contentOf(folder / "shown"), step.shown) << step.command;
  }
}

}  // namespace
