#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <utility>

#include "tests/doc/SourceText.h"

// The order of the folders inside each room. It is read from the one table in docs/development.md,
// so the page and the check cannot differ.

using namespace korvel;

namespace {

namespace fs = std::filesystem;

const fs::path kSources = KV_SOURCE_DIR;

/// The name that the table gives to the files which lie in the room itself, not in a folder of it.
constexpr const char* kOwnFiles = "(own files)";

using Edges = std::set<std::pair<std::string, std::string>>;

/// Of one room: the level of each folder; a folder may include those of lower levels only.
using Levels = std::map<std::string, std::size_t>;

std::vector<std::string> split(const std::string& text, const std::string& separator) {
  std::vector<std::string> parts;
  std::size_t begin = 0;
  while (true) {
    const std::size_t end = text.find(separator, begin);
    parts.push_back(text.substr(begin, end - begin));
    if (end == text.npos) return parts;
    begin = end + separator.size();
  }
}

/// From a row such as "| station | base · os · notify, ui · (own files) |".
std::map<std::string, Levels> roomsOf(const std::string& page) {
  std::map<std::string, Levels> rooms;
  static const std::regex kRow(R"(^\| (\w+) \| ([^|]*) \|$)");
  std::istringstream text(page.substr(page.find("| part | its folders")));
  for (std::string line; std::getline(text, line) && !line.empty();) {
    std::smatch row;
    if (!std::regex_match(line, row, kRow) || row[1] == "part") continue;
    std::size_t level = 0;
    for (const std::string& folders : split(row[2], " · ")) {
      for (const std::string& folder : split(folders, ", ")) rooms[row[1]][folder] = level;
      ++level;
    }
  }
  return rooms;
}

const std::map<std::string, Levels>& rooms() {
  static const auto kRooms = roomsOf(readText(kSources / "docs/development.md"));
  return kRooms;
}

/// The folder of "ROOM/FOLDER/File.h" inside its room.
std::string folderOf(const std::string& path) {
  const auto parts = split(path, "/");
  return parts.size() > 2 ? parts[1] : kOwnFiles;
}

/// Calls `use(file, include)` for each include of a file by a file of one room.
template <typename Use>
void forEachInclude(const std::string& room, Use use) {
  static const std::regex kInclude(R"re(^\s*#\s*include\s*"([^"]+)")re");
  for (const fs::path& file : sourcesBelow(kSources / room)) {
    std::istringstream text(readText(file));
    for (std::string line; std::getline(text, line);) {
      std::smatch found;
      if (!std::regex_search(line, found, kInclude)) continue;
      use(fs::relative(file, kSources).generic_string(), std::string(found[1]));
    }
  }
}

/// Which folders of a room include which others of it.
Edges edgesOf(const std::string& room) {
  Edges edges;
  forEachInclude(room, [&](const std::string& file, const std::string& include) {
    if (include.rfind(room + "/", 0) == 0 && folderOf(file) != folderOf(include)) {
      edges.emplace(folderOf(file), folderOf(include));
    }
  });
  return edges;
}

bool reaches(const Edges& edges, const std::string& from, const std::string& to,
             std::set<std::string>& seen) {
  for (const auto& [user, used] : edges) {
    if (user != from || !seen.insert(used).second) continue;
    if (used == to || reaches(edges, used, to, seen)) return true;
  }
  return false;
}

/// The folders that include themselves by way of others.
std::set<std::string> circlesIn(const Edges& edges) {
  std::set<std::string> found;
  for (const auto& edge : edges) {
    std::set<std::string> seen;
    if (reaches(edges, edge.first, edge.first, seen)) found.insert(edge.first);
  }
  return found;
}

TEST(FolderOrderTest, AFolderIncludesOnlyThoseBeforeIt) {
  for (const auto& [room, levels] : rooms()) {
    std::size_t seen = 0;
    forEachInclude(room, [&, &room = room, &levels = levels](const std::string& file,
                                                             const std::string& include) {
      if (include.rfind(room + "/", 0) != 0) return;
      const std::string from = folderOf(file);
      const std::string to = folderOf(include);
      ASSERT_TRUE(levels.count(from)) << file << ": its folder is not in the table";
      ASSERT_TRUE(levels.count(to)) << include << ": its folder is not in the table";
      EXPECT_TRUE(from == to || levels.at(to) < levels.at(from)) << file << " includes " << include;
      ++seen;
    });
    EXPECT_GT(seen, 20u) << room;
  }
}

TEST(FolderOrderTest, TheTableNamesEveryFolderThatHoldsSourcesAndNoOther) {
  ASSERT_EQ(rooms().size(), 3u) << "docs/development.md has a row each for station, app and tools";
  for (const auto& [room, levels] : rooms()) {
    std::set<std::string> named;
    std::set<std::string> there;
    for (const auto& level : levels) named.insert(level.first);
    for (const fs::path& file : sourcesBelow(kSources / room)) {
      there.insert(folderOf(fs::relative(file, kSources).generic_string()));
    }
    EXPECT_EQ(named, there) << room;
  }
}

TEST(FolderOrderTest, NoFoldersFormACircle) {
  for (const char* room : {"host", "station", "app", "tools"}) {
    const Edges edges = edgesOf(room);
    EXPECT_GT(edges.size(), 3u) << room;
    EXPECT_EQ(circlesIn(edges), std::set<std::string>{}) << room;
  }
}

TEST(FolderOrderTest, CirclesAreFoundHoweverLong) {
  EXPECT_TRUE(circlesIn({{"a", "b"}, {"b", "c"}, {"a", "c"}}).empty());
  EXPECT_EQ(circlesIn({{"a", "b"}, {"b", "c"}, {"c", "b"}}), (std::set<std::string>{"b", "c"}));
  EXPECT_EQ(circlesIn({{"a", "b"}, {"b", "c"}, {"c", "a"}}).size(), 3u);
}

TEST(FolderOrderTest, OfTheConsoleTheToolsIncludeItsOptionsAlone) {
  forEachInclude("tools", [](const std::string& file, const std::string& include) {
    if (include.rfind("app/", 0) != 0) return;
    EXPECT_EQ(include.rfind("app/base/Option", 0), 0u) << file << " includes " << include;
  });
}

}  // namespace
