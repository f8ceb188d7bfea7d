#include "host/os/Files.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host/base/Text.h"
#include "station/base/StationSettings.h"
#include "tests/fakes/ScratchFolder.h"

using namespace korvel;

namespace {

LightweightString<wchar_t> wide(const std::string& text) {
  return fromUTF8(LightweightString<char>(std::string_view(text)));
}

void useProjects(const std::string& folder) {
  StationSettings settings;
  settings.projectsDirectory = folder;
  installSettings(settings);
}

using Lines = std::vector<std::string>;

Lines linesOf(const std::string& path, bool keepEmptyLines) {
  const TextFile file(wide(path), keepEmptyLines);
  Lines lines;
  for (std::size_t i = 0; i < file.getNumLines(); ++i) lines.push_back(file.getLine(i).str());
  return lines;
}

}  // namespace

TEST(FilesTest, TheProjectsDirectoryEndsWithOneSeparator) {
  useProjects("/share/projects");
  EXPECT_EQ(getProjectsBaseDirectory(), L"/share/projects/");
  useProjects("/");
  EXPECT_EQ(getProjectsBaseDirectory(), L"/");
}

TEST(FilesTest, APathIsCutBehindItsLastSeparator) {
  useProjects("/share/projects");
  struct Row {
    std::wstring path, folder, name;
  };
  for (const Row& row : std::vector<Row>{{L"/a/b/c.lck", L"/a/b/", L"c.lck"},
                                         {L"/c", L"/", L"c"},
                                         {L"/a/b/", L"/a/b/", L""},
                                         {L"c", L"/share/projects/", L"c"},
                                         {L"", L"/share/projects/", L""}}) {
    const LightweightString<wchar_t> path{std::wstring_view(row.path)};
    EXPECT_EQ(getPath(path).str(), row.folder) << toUTF8(path).str();
    EXPECT_EQ(stripPath(path).str(), row.name) << toUTF8(path).str();
  }
}

TEST(FilesTest, ExistenceIsToldForFilesAndFolders) {
  const ScratchFolder folder;
  std::ofstream(folder / "M\xC3\xBCller.lck") << "";
  EXPECT_TRUE(fileExists(wide(folder / "M\xC3\xBCller.lck")));
  EXPECT_TRUE(fileExists(wide(folder.path())));
  EXPECT_FALSE(fileExists(wide(folder / "gone")));
  EXPECT_FALSE(fileExists(wide(folder / "gone/deeper")));
  EXPECT_FALSE(fileExists(wide(folder / "M\xC3\xBCller.lck/deeper")));
  EXPECT_FALSE(fileExists({}));
  EXPECT_FALSE(fileExists(wide(folder.path() + std::string("\0x", 2))));
}

TEST(TextFileTest, LinesEndWithAnyLineEndAndBytesAreKept) {
  const ScratchFolder folder;
  struct Row {
    std::string content;
    Lines all, filled;
  };
  for (const Row& row :
       std::vector<Row>{{"", {}, {}},
                        {"a", {"a"}, {"a"}},
                        {"a\n", {"a"}, {"a"}},
                        {"a\nb\r\nc\rd", {"a", "b", "c", "d"}, {"a", "b", "c", "d"}},
                        {"\n\n", {"", ""}, {}},
                        {"a\n\nb\n", {"a", "", "b"}, {"a", "b"}},
                        {"a\r\r\nb", {"a", "", "b"}, {"a", "b"}},
                        {" a \xFF\xC3\n", {" a \xFF\xC3"}, {" a \xFF\xC3"}}}) {
    std::ofstream(folder / "list.dat", std::ios::binary) << row.content;
    EXPECT_EQ(linesOf(folder / "list.dat", true), row.all) << testing::PrintToString(row.content);
    EXPECT_EQ(linesOf(folder / "list.dat", false), row.filled)
        << testing::PrintToString(row.content);
  }
}

TEST(TextFileTest, AFileThatCannotBeReadHasNoLines) {
  const ScratchFolder folder;
  std::filesystem::create_directory(folder / "userlist.dat");
  EXPECT_TRUE(linesOf(folder / "userlist.dat", true).empty());
  EXPECT_TRUE(linesOf(folder / "gone", true).empty());
  EXPECT_TRUE(linesOf("", true).empty());
}
