#include "app/commands/Command.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/fakes/ScratchFolder.h"

using namespace korvel;

namespace {

using Words = std::vector<std::string>;

Result<JsonValue> noAnswer(Station&, const Arguments&) { return JsonValue(); }

TEST(Completion, OffersNextWordsOfCommandsAndThenObjects) {
  CommandTable table;
  for (const char* name : {"edit list", "edit trim", "edit open", "state", "sleep"}) {
    table.add({name, "", "", 0, 9, noAnswer});
  }
  const Words objects{"E0001",
                      "Scene 1",
                      "Scene 2",
                      "Intro",
                      "E0002",
                      "S\x1B[2J",
                      "S\xC2\x9B"
                      "31m"};
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
    EXPECT_EQ(completions(row.line, table, [&](const std::string&) { return objects; }),
              row.offered)
        << row.line;
}

TEST(Completion, OffersWhatTheUsageCallsAnArgument) {
  CommandTable table;
  table.add({"project enter", "P", "", 1, 1, noAnswer});
  table.add({"edit give", "E USER", "", 2, 2, noAnswer});
  table.add({"bin add", "X COOKIE...", "", 2, 9, noAnswer});
  const Candidates candidates = [](const std::string& argument) -> Words {
    if (argument == "P") return {"Harbour at dawn", "Spot", "Sx", "small"};
    if (argument == "USER") return {"ANNA"};
    return {"an " + argument};
  };
  const std::pair<const char*, Words> rows[] = {
      {"project enter Har", {"\"Harbour at dawn\""}},
      {"project enter Harbour\\ at", {"\"Harbour at dawn\""}},
      {"project enter har", {"\"Harbour at dawn\""}},
      {"project enter \"HARBOUR A", {"\"Harbour at dawn\""}},
      {"project enter sp", {"Spot"}},
      {"project enter S", {"Spot", "Sx"}},
      {"project enter s", {"small"}},
      {"edit give a", {"\"an E\""}},
      {"edit give E0001 A", {"ANNA"}},
      {"bin add B1 E1 E2 an", {"\"an COOKIE\""}}};
  for (const auto& [line, offered] : rows)
    EXPECT_EQ(completions(line, table, candidates), offered) << line;
}

TEST(Completion, OffersFilesWhereAFileIsMeant) {
  const ScratchFolder folder;
  std::ofstream(folder / "film.otio") << "{}";
  std::filesystem::create_directories(folder / "my media");
  ::setenv("HOME", folder.path().c_str(), 1);
  CommandTable table;
  table.add({"edit import", "FILE", "", 1, 1, noAnswer});
  const Candidates none = [](const std::string&) { return Words(); };
  EXPECT_EQ(completions("edit import " + folder.path() + "/f", table, none),
            Words{folder / "film.otio"});
  EXPECT_EQ(completions("edit import ~/f", table, none), Words{folder / "film.otio"});
  EXPECT_EQ(completions("edit import ~/my", table, none),
            Words{"\"" + folder / "my media" + "/\""});
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
