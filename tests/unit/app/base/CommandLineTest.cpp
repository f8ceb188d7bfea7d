#include "app/base/Options.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace korvel;

namespace {

using Words = std::vector<std::string>;

struct LineRow {
  const char* line;
  Words words;
};

const LineRow kLines[] = {
    {"", {}},
    {"   \t ", {}},
    {"quit", {"quit"}},
    {"  edit   list  ", {"edit", "list"}},
    {"edit list\r", {"edit", "list"}},
    {"a\tb", {"a", "b"}},
    {"# nothing but a comment", {}},
    {"edit list # a comment", {"edit", "list"}},
    {"room#1 x", {"room#1", "x"}},
    {"'#' \"#\"", {"#", "#"}},
    {"\\# x", {"#", "x"}},
    {"say \"<All>\" 'hello you'", {"say", "<All>", "hello you"}},
    {"a\"b c\"d", {"ab cd"}},
    {"''", {""}},
    {"\"\" x", {"", "x"}},
    {"'it''s'", {"its"}},
    {"'a\\b'", {"a\\b"}},
    {"\"a\\\"b\"", {"a\"b"}},
    {"\"a\\\\b\"", {"a\\b"}},
    {"\"a\\nb\"", {"a\\nb"}},
    {"a\\ b", {"a b"}},
    {"a\\\\b", {"a\\b"}},
    {"\\'x\\'", {"'x'"}},
    {"\"it's\"", {"it's"}},
    {"'say \"x\"'", {"say \"x\""}},
    {"h\xC3\xA4user \"20 \xE2\x82\xAC\"", {"h\xC3\xA4user", "20 \xE2\x82\xAC"}},
    {"\xFF\xAC", {"\xFF\xAC"}},
};

TEST(CommandLine, SplitsAsAShellDoes) {
  for (const LineRow& row : kLines) {
    const auto words = splitCommandLine(row.line);
    ASSERT_TRUE(words) << row.line << ": " << words.error().message;
    EXPECT_EQ(*words, row.words) << row.line;
  }
}

struct WrongRow {
  const char* line;
  const char* part;
};

const WrongRow kWrongLines[] = {
    {"edit \"Scene", "quote \" is never closed (column 6)"},
    {"it's", "quote ' is never closed (column 3)"},
    {"\"", "(column 1)"},
    {"a 'b' \"c\\\"", "(column 7)"},
    {"a\\", "backslash at the end"},
};

TEST(CommandLine, ATildeAtTheBeginningOfAWordIsTheUsersFolder) {
  ::setenv("HOME", "/home/anna", 1);
  const LineRow rows[] = {{"edit import ~/film.otio", {"edit", "import", "/home/anna/film.otio"}},
                          {"~", {"/home/anna"}},
                          {"a~ ~b", {"a~", "~b"}},
                          {"'~/x' \\~/x", {"~/x", "~/x"}}};
  for (const LineRow& row : rows) {
    const auto words = splitCommandLine(row.line);
    ASSERT_TRUE(words) << row.line;
    EXPECT_EQ(*words, row.words) << row.line;
  }
  EXPECT_EQ(*splitCommandLine(quotedWord("~/x")), Words{"~/x"});
}

TEST(CommandLine, AnUnbalancedQuoteIsAnErrorThatNamesThePlace) {
  for (const WrongRow& row : kWrongLines) {
    const auto words = splitCommandLine(row.line);
    ASSERT_FALSE(words) << row.line;
    EXPECT_EQ(words.error().code, ErrorCode::eUsage) << row.line;
    EXPECT_NE(words.error().message.find(row.part), std::string::npos) << words.error().message;
  }
}

TEST(CommandLine, AQuotedWordIsReadBackAsItWas) {
  for (const char* word :
       {"plain", "", "two words", "it's", "say \"x\"", "a\\b", "#1", "\t", "\xC3\xA4"}) {
    const auto words = splitCommandLine("x " + quotedWord(word));
    ASSERT_TRUE(words) << word;
    EXPECT_EQ(*words, (Words{"x", word})) << quotedWord(word);
  }
}

TEST(CommandLine, AWordThatNeedsNoQuotesGetsNone) { EXPECT_EQ(quotedWord("E0001-ff"), "E0001-ff"); }

}  // namespace
