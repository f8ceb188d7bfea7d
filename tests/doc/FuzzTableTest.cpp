#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>
#include <string>

#include "tests/doc/SourceText.h"

// The table of parsers in docs/development.md names every fuzz target with its corpus, and nothing
// else; every target is built, and every corpus is used.

using namespace korvel;

namespace {

namespace fs = std::filesystem;

const fs::path kFuzzFolder = fs::path(KV_SOURCE_DIR) / "tests/fuzz";

using Names = std::set<std::string>;

/// What the expression's groups hold at each place where it is found, joined by blanks.
Names found(const std::string& text, const std::string& expression) {
  const std::regex regex(expression);
  Names names;
  for (std::sregex_iterator at(text.begin(), text.end(), regex), end; at != end; ++at) {
    std::string name = (*at)[1];
    for (std::size_t group = 2; group < at->size(); ++group) name += " " + (*at)[group].str();
    names.insert(name);
  }
  return names;
}

std::string fuzzBuild() { return readText(kFuzzFolder / "CMakeLists.txt"); }

/// The parsers that share a program, as the build lists them.
Names sharedParsers() {
  std::smatch list;
  const std::string text = fuzzBuild();
  std::regex_search(text, list, std::regex(R"(foreach\(parser ([^)]*)\))"));
  return found(list[1], R"((\w+))");
}

/// Every target with its corpus.
Names builtTargets() {
  Names targets = found(fuzzBuild(), R"(\nkv_add_fuzz\((\w+) (\w+))");
  for (const std::string& parser : sharedParsers()) targets.insert(parser + " " + parser);
  return targets;
}

Names tableTargets() {
  const std::string page = readText(fs::path(KV_SOURCE_DIR) / "docs/development.md");
  const std::size_t table = page.find("| what is read | target | corpus |");
  return found(page.substr(table, page.find("\n\n", table) + 1 - table),
               R"(\| `(\w+)` \| `(\w+)` \|\n)");
}

}  // namespace

TEST(FuzzTable, NamesEveryTargetWithItsCorpusAndNothingElse) {
  EXPECT_GT(builtTargets().size(), 20u);
  EXPECT_EQ(tableTargets(), builtTargets());
}

TEST(FuzzTable, EveryParserOfTheSharedProgramIsATarget) {
  Names parsers;
  for (const char* const file : {"StationParsers.cpp", "AppParsers.cpp", "ToolParsers.cpp"}) {
    parsers.merge(found(readText(kFuzzFolder / file), R"re(\{"(\w+)", check\w+\})re"));
  }
  EXPECT_EQ(parsers, sharedParsers());
}

TEST(FuzzTable, EveryCorpusHasFilesAndATarget) {
  Names used;
  for (const std::string& target : builtTargets()) used.insert(target.substr(target.find(' ') + 1));
  Names kept;
  for (const auto& folder : fs::directory_iterator(kFuzzFolder / "corpus")) {
    kept.insert(folder.path().filename());
    EXPECT_FALSE(fs::is_empty(folder.path())) << folder.path();
  }
  EXPECT_EQ(kept, used);
}
