#include "app/commands/Completion.h"

#include <gtest/gtest.h>

using namespace korvel;

namespace {

using Words = std::vector<std::string>;

Result<JsonValue> noAnswer(const Arguments&) { return JsonValue(); }

TEST(Completion, OffersNextWordsOfCommandsAndThenObjects) {
  CommandTable table;
  for (const char* name : {"edit list", "edit trim", "edit open", "state", "sleep"}) {
    table.add({name, "", "", 0, 9, noAnswer});
  }
  const Words objects{"E0001", "Scene 1", "Scene 2", "Intro", "E0002"};
  struct Row {
    const char* line;
    Words offered;
  };
  const Row rows[] = {
      {"", {"edit", "sleep", "state"}},
      {"s", {"sleep", "state"}},
      {"ed", {"edit"}},
      {"edit ", {"list", "open", "trim"}},
      {"edit t", {"trim"}},
      {"edit trim E", {"E0001", "E0002"}},
      {"edit trim Sc", {"\"Scene 1\"", "\"Scene 2\""}},
      {"edit trim \"Scene ", {"\"Scene 1\"", "\"Scene 2\""}},
      {"edit trim \"In", {"\"Intro\""}},
      {"edit trim E0001 I", {"Intro"}},
      {"edit trim x", {}},
      {"noAnswer ", {}},
  };
  for (const Row& row : rows)
    EXPECT_EQ(completions(row.line, table, objects), row.offered) << row.line;
}

TEST(Completion, TheLastWordKnowsQuotesAndEscapes) {
  struct Row {
    const char* line;
    const char* word;
  };
  for (const Row& row :
       {Row{"", ""}, Row{"edit", "edit"}, Row{"edit ", ""}, Row{"a \"b c", "\"b c"},
        Row{"a b\\ c", "b\\ c"}, Row{"a 'b' c", "c"}, Row{"a\\", "a\\"}}) {
    EXPECT_EQ(lastWord(row.line), row.word) << row.line;
  }
}

TEST(Completion, TheCommonBeginningIsWhatAllShare) {
  EXPECT_EQ(commonBeginning({}), "");
  EXPECT_EQ(commonBeginning({"state"}), "state");
  EXPECT_EQ(commonBeginning({"sleep", "state"}), "s");
  EXPECT_EQ(commonBeginning({"edit", "state"}), "");
}

}  // namespace
