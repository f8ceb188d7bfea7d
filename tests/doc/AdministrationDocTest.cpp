#include <gtest/gtest.h>

#include <regex>
#include <set>

#include "tests/doc/SourceText.h"

using namespace korvel;

namespace {

const std::string kRoot = KV_SOURCE_DIR;

using Names = std::set<std::string>;

/// What stands in a text where the pattern's only group is.
Names found(const std::string& text, const std::string& pattern) {
  const std::regex wanted(pattern);
  Names names;
  for (std::sregex_iterator each(text.begin(), text.end(), wanted), end; each != end; ++each) {
    names.insert((*each)[1]);
  }
  return names;
}

TEST(Administration, EveryCheckOfDoctorHasALine) {
  Names checks;
  for (const auto& source : sourcesBelow(kRoot + "/tools/doctor")) {
    const std::string text = readText(source);
    checks.merge(found(text, R"rx(\bcheck\("([a-z ]+)")rx"));
    checks.merge(found(text, R"rx(\{"(?:share|network|station|other machine)",\s*"([a-z ]+)")rx"));
    checks.merge(found(text, R"rx(\bnamed\("([a-z ]+)")rx"));
  }
  ASSERT_GE(checks.size(), 9u);
  const Names lines = found(readText(kRoot + "/docs/administration.md"),
                            R"rx(\n\| (?:share|network|station|other machine) \| ([a-z ]+) \|)rx");
  EXPECT_EQ(disagreement(lines, checks), "");
}

TEST(Administration, ItNamesOnlyCommandsThatThereAre) {
  Names commands = found(readText(kRoot + "/docs/man/kv-share.1"), R"(\.SS kv\\-share ([a-z]+))");
  const Names named = found(readText(kRoot + "/docs/administration.md"), "kv-share ([a-z]+)[ `]");
  ASSERT_GE(named.size(), 5u);
  for (const std::string& name : named) EXPECT_TRUE(commands.count(name)) << name;
}

}  // namespace
