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

}  // namespace
