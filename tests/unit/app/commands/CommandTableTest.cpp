#include <gtest/gtest.h>

#include <chrono>

#include "app/commands/Command.h"
#include "station/base/Strings.h"

using namespace korvel;

namespace {

Result<JsonValue> nothing(Station&, const Arguments&) { return JsonValue(); }

CommandTable someCommands() {
  CommandTable table;
  for (const char* name : {"edit list", "edit trim", "edit", "state", "room enter", "quit"}) {
    table.add({name, "", "", 0, 0, nothing});
  }
  return table;
}

TEST(NearestName, CountsLettersThatMustChange) {
  struct Row {
    const char* a;
    const char* b;
    std::size_t distance;
  };
  for (const Row& row :
       {Row{"", "", 0}, Row{"a", "", 1}, Row{"", "abc", 3}, Row{"state", "state", 0},
        Row{"stat", "state", 1}, Row{"stxte", "state", 1}, Row{"satte", "state", 1},
        Row{"edti lsit", "edit list", 2}, Row{"kitten", "sitting", 3}}) {
    EXPECT_EQ(editDistance(row.a, row.b), row.distance) << row.a << " " << row.b;
    EXPECT_EQ(editDistance(row.b, row.a), row.distance) << row.b << " " << row.a;
  }
}

TEST(NearestName, NothingIsNearWhenAThirdOfTheLettersDiffers) {
  EXPECT_EQ(nearestName("stte", {"quit", "state"}), "state");
  EXPECT_EQ(nearestName("xyz", {"quit", "state"}), "");
  EXPECT_EQ(nearestName("", {"quit"}), "");
}

TEST(CommandTable, PeopleReadTheTimesOfClipsAsTimecode) {
  const auto clip = [](double rate) {
    return JsonValue::object({{"name", "Quay"}, {"start", 60.06}, {"end", 61.061}, {"rate", rate}});
  };
  JsonValue clips = JsonValue::array();
  clips.append(clip(30000.0 / 1001));
  clips.append(JsonValue::object({{"start", 1.5}}));
  const JsonValue shown = withTimecodes(JsonValue::object({{"clips", clips}}))["clips"];
  EXPECT_EQ(writeJson(shown.elements()[0]),
            R"({"name":"Quay","start":"00:01:00;02","end":"00:01:01;02",)"
            R"("length":"00:00:01;00","rate":29.97002997002997})");
  EXPECT_EQ(writeJson(shown.elements()[1]), R"({"start":1.5})");
}

TEST(CommandTable, MegabytesThatAreNoCommandAreAnsweredAtOnce) {
  const CommandTable table = someCommands();
  const auto begin = std::chrono::steady_clock::now();
  std::size_t nameWords = 0;
  EXPECT_EQ(table.nearest({std::string(20'000'000, 'x')}), "");
  EXPECT_EQ(table.find(std::vector<std::string>(400'000, "x"), nameWords), nullptr);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

TEST(CommandTable, TheLongestNameIsFound) {
  const CommandTable table = someCommands();
  std::size_t count = 0;
  ASSERT_NE(table.find({"edit", "trim", "E0001"}, count), nullptr);
  EXPECT_EQ(table.find({"edit", "trim", "E0001"}, count)->name, "edit trim");
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(table.find({"edit", "other"}, count)->name, "edit");
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(table.find({"Edit"}, count), nullptr);
  EXPECT_EQ(table.find({}, count), nullptr);
}

TEST(CommandTable, TheNearestNameIsSuggestedWhateverFollowsIt) {
  CommandTable table;
  for (const char* name : {"edit list", "edit trim", "state", "room enter"}) {
    table.add({name, "", "", 0, 0, nothing});
  }
  EXPECT_EQ(table.nearest({"edit", "tirm", "Scene 1", "0", "5"}), "edit trim");
  EXPECT_EQ(table.nearest({"rom", "enter", "Sound"}), "room enter");
  EXPECT_EQ(table.nearest({"sttae"}), "state");
  EXPECT_EQ(table.nearest({"frobnicate"}), "");
}

/// Why a line is not run, of commands as the console has them.
std::string problemOf(const std::string& line) {
  CommandTable table;
  table.add({"edit list", "", "", 0, 0, nothing});
  table.add({"edit open", "E", "", 1, 1, nothing});
  table.add({"edit delete", "E...", "", 1, Command::kAnyNumber, nothing});
  table.add({"edit compare", "E [V [W]]", "", 1, 3, nothing});
  table.add({"panel open", "", "", 0, 0, nothing});
  table.add({"project enter", "P [--save|--discard]", "", 1, 2, nothing});
  table.add({"say", "USER TEXT", "", 2, 2, nothing});
  const auto problem = readCall(table, line).problem;
  return problem ? problem->message : std::string();
}

TEST(CommandTable, SaysWhatWasMostLikelyMeant) {
  struct Row {
    const char* line;
    const char* part;
  };
  for (const Row& row :
       {Row{"say BEN good morning, all", "did you mean: say BEN \"good morning, all\""},
        Row{"project enter Harbour at dawn --save",
            "did you mean: project enter \"Harbour at dawn\" --save"},
        Row{"project enter Harbour dawn", "did you mean: project enter \"Harbour dawn\""},
        Row{"say BEN", "needs more words"},
        Row{"open \"Night scene\"",
            "did you mean \"edit open \"Night scene\"\" or \"panel open \"Night scene\"\"?"},
        Row{"delete Scene", "did you mean \"edit delete Scene\"?"},
        Row{"edti", "there are edit compare, edit delete, edit list, edit open."},
        Row{"edti lsit", "did you mean \"edit list\"?"}, Row{"exit", "\"quit\" ends"},
        Row{"create project X", "\"help\" lists all."}}) {
    EXPECT_NE(problemOf(row.line).find(row.part), std::string::npos)
        << row.line << ": " << problemOf(row.line);
  }
  for (const char* const line : {"edit delete A B C", "edit compare A 1 2",
                                 "project enter A --save", "say BEN \"good morning\""}) {
    EXPECT_EQ(problemOf(line), "") << line;
  }
}

}  // namespace
