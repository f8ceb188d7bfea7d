#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "tests/doc/SourceText.h"

using namespace korvel;

// Who may include whom. The folders' order is the product's architecture: the plug-in knows the
// host's interfaces alone, so that it can be built against another host; the station reaches the
// plug-in as any host does.

namespace {

namespace fs = std::filesystem;

const fs::path kHouse = KV_SOURCE_DIR;

/// A folder, and the folders whose headers it may include.
const std::map<std::string, std::set<std::string>> kMayInclude = {
    {"host", {"host"}},
    {"ProjectShare", {"ProjectShare", "host"}},
    {"station", {"station", "host"}},
    {"app", {"app", "station", "host"}},
    {"tools", {"tools", "app", "station", "ProjectShare", "host"}},
};

struct Include {
  std::string name;
  bool quoted;
};

std::vector<Include> includesOf(const fs::path& file) {
  static const std::regex kInclude(R"(^\s*#\s*include\s*([<"])([^>"]+)[>"])");
  std::vector<Include> includes;
  std::istringstream text(readText(file));
  for (std::string line; std::getline(text, line);) {
    std::smatch found;
    if (std::regex_search(line, found, kInclude)) includes.push_back({found[2], found[1] == "\""});
  }
  return includes;
}

std::string firstFolder(const std::string& include) {
  const auto slash = include.find('/');
  return slash == include.npos ? "" : include.substr(0, slash);
}

class IncludeWallsTest : public testing::TestWithParam<std::string> {};

TEST_P(IncludeWallsTest, AFolderIncludesOnlyWhatStandsBelowIt) {
  const auto& allowed = kMayInclude.at(GetParam());
  for (const fs::path& file : sourcesBelow(kHouse / GetParam())) {
    for (const Include& include : includesOf(file)) {
      if (!include.quoted) continue;
      EXPECT_TRUE(allowed.count(firstFolder(include.name))) << file << " includes " << include.name;
      EXPECT_TRUE(fs::exists(kHouse / include.name)) << file << " includes " << include.name;
    }
  }
}

TEST(IncludeWalksTest, IncludesAreFoundInEveryLayer) {
  for (const char* folder : {"host", "ProjectShare", "station", "app"}) {
    std::size_t seen = 0;
    for (const fs::path& file : sourcesBelow(kHouse / folder)) seen += includesOf(file).size();
    EXPECT_GT(seen, 10U) << folder;
  }
}

TEST_P(IncludeWallsTest, NoFolderReachesAnotherByAnglesOrByTheTests) {
  for (const fs::path& file : sourcesBelow(kHouse / GetParam())) {
    for (const Include& include : includesOf(file)) {
      const std::string folder = firstFolder(include.name);
      EXPECT_FALSE(folder == "tests" || folder == "..") << file << " includes " << include.name;
      EXPECT_FALSE(!include.quoted && kMayInclude.count(folder))
          << file << " includes " << include.name;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Folders, IncludeWallsTest,
                         testing::Values("host", "ProjectShare", "station", "app", "tools"),
                         [](const auto& folder) { return folder.param; });

TEST(StandardLibraryAloneTest, TheSeamAndThePlugInIncludeNothingElseByAngles) {
  // Headers of C, of the system and of other libraries have an ending or a folder.
  for (const char* folder : {"host", "ProjectShare"}) {
    for (const fs::path& file : sourcesBelow(kHouse / folder)) {
      for (const Include& include : includesOf(file)) {
        if (include.quoted) continue;
        EXPECT_EQ(include.name.find_first_of("./"), std::string::npos)
            << file << " includes " << include.name;
      }
    }
  }
}

TEST(SocketsAndLocksTest, OfTheStationOnlyItsNetworkAndFileFoldersUseThemDirectly) {
  const std::set<std::string> guarded = {"sys/socket.h", "netinet/in.h", "sys/file.h"};
  for (const char* folder : {"host", "ProjectShare", "station"}) {
    for (const fs::path& file : sourcesBelow(kHouse / folder)) {
      const std::string path = fs::relative(file, kHouse).generic_string();
      if (path.rfind("station/net/", 0) == 0 || path.rfind("station/os/", 0) == 0) continue;
      for (const Include& include : includesOf(file)) {
        EXPECT_FALSE(guarded.count(include.name)) << path << " includes " << include.name;
      }
    }
  }
}

}  // namespace
