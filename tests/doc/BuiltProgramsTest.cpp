#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/fakes/ScratchFolder.h"
#include "tests/share/ProgramRun.h"
#include "tests/support/ElfFile.h"

using namespace korvel;

namespace {

std::filesystem::path programFolder() { return std::filesystem::path(KV_SHARE).parent_path(); }

// An empty element stands for the folder that a program is run in: run in a hostile folder, it
// would load that folder's libraries.
TEST(BuiltPrograms, LookForLibrariesBesideThemselvesAlone) {
  std::size_t programs = 0;
  for (const auto& entry : std::filesystem::directory_iterator(programFolder())) {
    if (!entry.is_regular_file()) continue;
    const ElfFile program(entry.path().string());
    if (!program.isElf()) continue;
    ++programs;
    for (const std::string& folder : program.searchFolders()) {
      EXPECT_TRUE(folder.starts_with("$ORIGIN"))
          << entry.path() << " looks in \"" << folder << "\"";
    }
  }
  EXPECT_GE(programs, 3u);
}

TEST(BuiltPrograms, FindTheirLibraryBesideThemselves) {
  const auto folders = ElfFile(KV_SHARE).searchFolders();
  ASSERT_FALSE(folders.empty());
  EXPECT_EQ(folders.front(), "$ORIGIN");
}

// A fresh clone, on a machine where nothing can be built.
TEST(RunScript, ShowsTheHelpOfTheProgramsWithoutABuild) {
  const ScratchFolder clone;
  std::filesystem::copy_file(KV_SOURCE_DIR "/run", clone / "run");
  std::filesystem::create_directories(clone / "docs");
  std::filesystem::copy(KV_SOURCE_DIR "/docs/man", clone / "docs/man");
  for (const std::vector<std::string>& words : {std::vector<std::string>{"share", "--help"},
                                                {"share"},
                                                {"share", "help"},
                                                {"share", "locks", "--help"},
                                                {"station", "-h"}}) {
    std::vector<std::string> line{clone / "run"};
    line.insert(line.end(), words.begin(), words.end());
    const ProgramRun help = runProgram(line);
    EXPECT_EQ(help.status, 0) << help.errors;
    const std::string wanted = words[0] == "share" ? "kv-share locks" : "--projects";
    EXPECT_NE(help.output.find(wanted), std::string::npos) << help.output.substr(0, 500);
    EXPECT_FALSE(std::filesystem::exists(clone / "build"));
  }
}

}  // namespace
