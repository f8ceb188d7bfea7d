#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/ElfFile.h"

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

}  // namespace
