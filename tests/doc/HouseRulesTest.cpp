#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/doc/SourceText.h"

// What keeps the house easy to find one's way in: pages name files that exist, files are few, and
// comments say enough.

using namespace korvel;

namespace {

namespace fs = std::filesystem;

const fs::path kHouseFolder = KV_SOURCE_DIR;

std::vector<fs::path> pages() {
  std::vector<fs::path> found{kHouseFolder / "README.md"};
  for (const auto& entry : fs::directory_iterator(kHouseFolder / "docs")) {
    if (entry.path().extension() == ".md") found.push_back(entry.path());
  }
  return found;
}

bool exists(const std::string& named) {
  const std::vector<std::string> endings{"", ".h", ".cpp"};
  return std::any_of(endings.begin(), endings.end(), [&named](const std::string& ending) {
    return fs::exists(kHouseFolder / (named + ending));
  });
}

/// "XCommands.cpp" and "corpus/NAME" stand for any; "Json*" for several.
bool isPattern(const std::string& named) {
  static const std::regex kPlaceholder(R"([*]|/X[A-Z]|/NAME)");
  return std::regex_search(named, kPlaceholder);
}

std::vector<fs::path> productFiles(const std::string& room, const std::string& ending) {
  std::vector<fs::path> files = sourcesBelow(kHouseFolder / room);
  std::erase_if(files, [&ending](const fs::path& file) { return file.extension() != ending; });
  return files;
}

/// How many of the files' lines hold a comment, in percent; empty lines do not count.
double commentShare(const std::vector<fs::path>& files) {
  std::size_t lines = 0;
  std::size_t comments = 0;
  for (const fs::path& file : files) {
    std::istringstream text(readText(file));
    for (std::string line; std::getline(text, line);) {
      if (line.find_first_not_of(' ') == line.npos) continue;
      ++lines;
      if (line.find("//") != line.npos) ++comments;
    }
  }
  return 100.0 * static_cast<double>(comments) /
         static_cast<double>(std::max<std::size_t>(lines, 1));
}

}  // namespace

TEST(HouseRules, FilesThatPagesNameExist) {
  static const std::regex kPath(
      R"((^|[^\w/.-])((station|app|tools|host|ProjectShare|tests|scripts|packaging|docs)/[\w/.*-]*[\w*]))");
  for (const fs::path& page : pages()) {
    const std::string text = readText(page);
    for (std::sregex_iterator match(text.begin(), text.end(), kPath), end; match != end; ++match) {
      const std::string named = (*match)[2];
      EXPECT_TRUE(exists(named) || isPattern(named)) << page.filename() << " names " << named;
    }
  }
}

TEST(HouseRules, WhatAPageSaysIsInAFileIsThere) {
  static const std::regex kPlace(R"(`(\w+)` in `([\w/.]+)`)");
  int places = 0;
  for (const fs::path& page : pages()) {
    const std::string text = readText(page);
    for (std::sregex_iterator match(text.begin(), text.end(), kPlace), end; match != end; ++match) {
      if (!fs::is_regular_file(kHouseFolder / (*match)[2].str())) continue;
      const std::string source = readText(kHouseFolder / (*match)[2].str());
      EXPECT_TRUE(hasWord(source, (*match)[1])) << page.filename() << ": " << match->str();
      ++places;
    }
  }
  EXPECT_GE(places, 20);
}

TEST(HouseRules, TheProductHasFewFiles) {
  std::size_t files = 0;
  for (const char* room : {"host", "ProjectShare", "station", "app", "tools"}) {
    files += sourcesBelow(kHouseFolder / room).size();
  }
  EXPECT_LE(files, 340u) << "a file is a thought: does the newest belong to a neighbour?";
}

TEST(HouseRules, TheBuildIsToldInFewLines) {
  std::size_t lines = 0;
  for (const std::string& file :
       linesOf("cd '" KV_SOURCE_DIR "' && find . -path ./build -prune -o "
               "\\( -name CMakeLists.txt -o -name '*.cmake' \\) -print")) {
    const std::string text = readText(kHouseFolder / file);
    lines += static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  }
  EXPECT_GE(lines, 300u) << "the files were not found";
  EXPECT_LE(lines, 650u) << "a target is one call of kv_target";
}

TEST(HouseRules, CommentsSayEnough) {
  constexpr double kHostHeaders = 45;  // percent; they are read without the sources
  constexpr double kSources = 5;
  EXPECT_GE(commentShare(productFiles("host", ".h")), kHostHeaders);
  for (const char* room : {"ProjectShare", "station", "app", "tools"}) {
    EXPECT_GE(commentShare(productFiles(room, ".cpp")), kSources) << room;
  }
}
