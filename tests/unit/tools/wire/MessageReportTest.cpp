#include "tools/wire/MessageReport.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "station/base/Strings.h"
#include "station/wire/MessageTable.h"

using namespace korvel;

namespace {

/// A wire text from one where "|" stands for the separator.
std::string wire(std::string text) {
  std::replace(text.begin(), text.end(), '|', kFieldSeparator);
  return text;
}

struct WarningRow {
  const char* text;
  const char* said;
};

TEST(MessageReport, SaysWhatStationsMakeOfAFaultyMessage) {
  const WarningRow rows[] = {
      {"", "the datagram is empty"},
      {"x|2|P0001|E0001|", "does not begin with \"d\""},
      {"|d|2|P0001|E0001|", "does not begin with \"d\""},
      {"dx|2|P0001|E0001|", "the version is \"dx\", not \"d\""},
      {"d|8|P0001|", "too few fields (3, at least 4 are needed)"},
      {"d|x|P0001|E0001|", "the type \"x\" is no number and is read as 0"},
      {"d|0|P0001|E0001|",
       "there is no type 0: stations report \"false\" (NetMessage line 197) and do nothing"},
      {"d|16|P0001|E0001|",
       "there is no type 16: stations report \"false\" (NetMessage line 197, and Receiver line "
       "417)"},
      {"d|1|P0001|E0001|",
       "too few fields (4 of 5): stations report \"false\" (NetMessage line 149)"},
      {"d|5|P0001|E0001|", "NetMessage line 142"},
      {"d|7|P0001|G0001|", "NetMessage line 166"},
      {"d|15|P0001|F0001|", "NetMessage line 166) and read all filters again"},
      {"d|11|P0001|ann|", "too few fields (4 of 6): stations log what there is of them"},
      {"d|12|P0001|ann|bob|", "too few fields (5 of 6): stations log what there is of them"},
      {"d|10|P0001|ann|bob|", "too few fields (5 of 6): stations read none of them"},
      {"d|7|P0001|G0001|4|", "none of 0 to 3"},
      {"d|7|P0001|G0001|-1|", "none of 0 to 3"},
      {"d|7|P0001|G0001|x|", "the container value \"x\" is no number"},
      {"d|11|P0001|ann|bob|G0001|",
       "the recipient's field, \"bob\", and never the object's, \"G0001\""},
      {"d|12|P0001|ann|bob|E0001|",
       "the recipient's field, \"bob\", and never the object's, \"E0001\""},
      {"d|13|P0001|ann|bob|run|", "the machine \"bob\" is no number"},
      {"d|2|nonsense|E0001|", "the project \"nonsense\" is no cookie"},
      {"d|2|P0001|nonsense|", "the cookie \"nonsense\" is no cookie"},
      {"d|1|P0001|E0001|nonsense|", "the modification \"nonsense\" is not of its text form"},
      {"d|1|P0001|E0001|1;5;2;0;|", "the modification's range ends before it starts"},
      {"d|8|P0001|a|b|", "1 field(s) more than the type has"},
      {"d|8|P0001|a\xE2\x82|", "field 3 holds bytes that are not UTF-8"},
  };
  for (const auto& row : rows) {
    const auto warnings = warningsAbout(wire(row.text));
    EXPECT_TRUE(
        std::any_of(warnings.begin(), warnings.end(),
                    [&](const auto& warning) { return warning.find(row.said) != warning.npos; }))
        << row.text << ": " << row.said;
  }
}

TEST(MessageReport, SaysNothingOfASoundMessage) {
  for (const char* text :
       {"d|1|P0001|E0001|1;1;2;0;|", "d|2|P0001|E0001|", "d|5|P0001|E0001||", "d|6|P0001|P0001|",
        "d|7|P0001|G0001|3|", "d|8|P0001|//media/a b.mxf|", "d|10|P0001|ann|<All>|hello|",
        "d|13|P0001|ann|12|refresh|", "d|14||E0001|", "d|15|P0001|F0001|2|"}) {
    EXPECT_EQ(warningsAbout(wire(text)), std::vector<std::string>{}) << text;
  }
}

TEST(MessageReport, SaysWhereAZeroByteEndsTheMessage) {
  const std::string text = wire("d|8|P0001|a") + std::string("\0b", 2);
  ASSERT_EQ(warningsAbout(text).size(), 1u);
  EXPECT_EQ(warningsAbout(text)[0].find("a zero byte at offset 11"), 0u);
}

TEST(MessageReport, SaysThatAMessageIsTooLargeForADatagram) {
  const auto warnings = warningsAbout(wire("d|8|P0001|" + std::string(65'507, 'x') + "|"));
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_EQ(warnings[0].find("larger than a datagram"), 0u);
}

TEST(MessageReport, HasTheKeysOfEveryMessageInOrder) {
  std::string keys;
  const JsonValue report = describeMessage(wire("d|2|P0001|E0001|"));
  for (const auto& [key, value] : report.members()) keys += key + " ";
  EXPECT_EQ(
      keys,
      "type type_name project cookie data target source container modification valid warnings ");
}

TEST(MessageReport, GivesBytesThatAreNotUtf8InHex) {
  const JsonValue report = describeMessage(wire("d|8|P0001|a\xFF|"));
  EXPECT_EQ(report["data_hex"].asString(), "61ff");
  EXPECT_EQ(report.find("data"), nullptr);
}

TEST(MessageReport, ControlCharactersOfANameAreNotShownRaw) {
  const auto warnings = warningsAbout(wire("d|2|\x1B[2J|E0001|"));
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_EQ(warnings[0].find('\x1B'), std::string::npos);
}

struct TypeRow {
  const char* text;
  std::optional<int> type;
};

TEST(MessageTypes, AreNumbersOrNamesHoweverTheyAreWritten) {
  const TypeRow rows[] = {{"2", 2},
                          {"eEditSaved", 2},
                          {"EditSaved", 2},
                          {"edit-saved", 2},
                          {"editsaved", 2},
                          {"edit_saved", 2},
                          {"16", 16},
                          {"filter-modification", 15},
                          {"eUserMessage", 10},
                          {"edit-save", {}},
                          {"", {}},
                          {"2x", {}}};
  for (const auto& row : rows) EXPECT_EQ(messageTypeOf(row.text), row.type) << row.text;
}

TEST(MessageTypes, EveryNameOfferedIsKnown) {
  int type = 0;
  for (const auto& name : messageTypeNames()) EXPECT_EQ(messageTypeOf(name), ++type) << name;
  EXPECT_EQ(type, 15);
}

}  // namespace
