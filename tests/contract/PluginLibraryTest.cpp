#include <gtest/gtest.h>

#include <regex>
#include <set>

#include "tests/doc/SourceText.h"

using namespace korvel;

// What the host's loader sees of ProjectShare.so.

namespace {

using Names = std::set<std::string>;

/// The matches of an expression's first group in the lines that a command prints.
Names found(const std::string& command, const std::string& expression) {
  Names names;
  for (const std::string& line : linesOf(command)) {
    std::smatch match;
    if (std::regex_search(line, match, std::regex(expression))) names.insert(match[1]);
  }
  return names;
}

TEST(PluginLibraryTest, ItExportsItsEntryAndTheMessagePanelsRegistrationAlone) {
  const std::string command = std::string(KV_NM) + " -D -C --defined-only " + KV_PLUGIN;
  EXPECT_EQ(found(command, R"(^\S+ \w (.+)$)"),
            (Names{"Messager::registerTypes()", "kvPluginInstance"}));
}

TEST(PluginLibraryTest, ItsNameHasNoPrefix) {
  const std::string path = KV_PLUGIN;
  EXPECT_EQ(path.substr(path.rfind('/') + 1), "ProjectShare.so");
}

#ifndef KV_SANITIZED
TEST(PluginLibraryTest, ItNeedsTheCppLibraryAndTheCLibraryAlone) {
  const std::string command = std::string(KV_READELF) + " -d --wide " + KV_PLUGIN;
  EXPECT_EQ(found(command, R"(\(NEEDED\).*\[(.*)\])"), (Names{"libstdc++.so.6", "libc.so.6"}));
}
#endif

}  // namespace
