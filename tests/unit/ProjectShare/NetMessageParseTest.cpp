#include <gtest/gtest.h>

#include <sstream>

#include "ProjectShare/NetMessage.h"
#include "tests/fakes/FakeHost.h"
#include "tests/support/WireFields.h"

using namespace korvel;

namespace {

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;
using namespace std::string_literals;

constexpr const char* kWarning =
    "both: WARNING!! : Unexpected net message version. Please ensure that all machines are running "
    "the same version of Korvel software\n";

struct Row {
  std::string text;     ///< "|" stands for the separator byte
  std::string record;   ///< as summary() gives it
  std::string reports;  ///< "warning", and of each assertion its condition and line, in order
};

/// "assertion failed valid_ at ProjectShare/NetMessage line 31" becomes "valid_ 31 ".
std::string shortened(const std::string& printed) {
  std::istringstream lines(printed);
  std::string result;
  for (std::string line; std::getline(lines, line);) {
    const std::string lead = "assertion failed ";
    EXPECT_EQ(line.rfind(lead, 0), 0u) << line;
    const bool isRange = line.find(" at misc/NumRange line ") != std::string::npos;
    EXPECT_TRUE(isRange || line.find(" at ProjectShare/NetMessage line ") != std::string::npos);
    result += line.substr(lead.size(), line.find(" at ") - lead.size()) +
              line.substr(line.rfind(' ')) + " ";
  }
  return result;
}

std::string reportsOf(const FakeHost& host, const std::string& printed) {
  std::string reports;
  for (const std::string& line : host.logLines) {
    if (line == kWarning) reports += "warning ";
  }
  return reports + shortened(printed);
}

void check(const Row& row) {
  SCOPED_TRACE(row.text);
  const FakeHost host;
  CaptureStdout();
  const NetMessage message{lightweight(wire(row.text))};
  EXPECT_EQ(reportsOf(host, GetCapturedStdout()), row.reports);
  EXPECT_EQ(summary(message), row.record);
}

TEST(NetMessageParse, ReadsTheVersionAndTheHead) {
  const Row rows[] = {
      {"", "0  ", "warning "},
      {"|", "0  ", "warning "},
      {"||", "0  ", "warning "},
      {"||||||", "0  ", "warning "},
      {"d", "0  ", ""},
      {"d|", "0  ", ""},
      {"|d", "0  ", ""},
      {"dd", "0  ", "warning "},
      {"dd|2|P0001|E0001|", "0  ", "warning "},
      {"e|2|P0001|E0001|", "0  ", "warning "},
      {"D|2|P0001|E0001|", "0  ", "warning "},
      {" d|2|P0001|E0001|", "0  ", "warning "},
      {"x", "0  ", "warning "},
      {"d\0|2|P0001|E0001|"s, "0  ", "warning "},
      {"|d|2|P0001|E0001|", "2 P0001 E0001", ""},
      {"||d|2|P0001|E0001|", "0  ", "warning "},
      {"d|8", "0  ", ""},
      {"d|8|P0001", "0  ", ""},
      {"d|8|P0001|", "0  ", ""},
      {"d|8|P0001||", "8 P0001 ", ""},
      {"d|99|P0001|", "0  ", ""},
      {"d||||", "0  ", "false 197 "},
      {"d|2||E0001|", "2  E0001", ""},
      {"d|2|no cookie|E0001|", "2  E0001", ""},
      {"d|2|P0001|no cookie|", "2 P0001 ", ""},
      {"d|2|P0001|E0001", "2 P0001 E0001", ""},
      {"d|2|P0001|E0001|more|and more|", "2 P0001 E0001", ""},
      {"d|2|P0001|E0001-ff00|", "2 P0001 E0001-ff00", ""},
  };
  for (const Row& row : rows) check(row);
}

TEST(NetMessageParse, ReadsTheTypeAsANumberAtTheStartOfItsField) {
  const Row rows[] = {
      {"d|0|P0001|E0001|", "0 P0001 ", "false 197 "},
      {"d|x|P0001|E0001|", "0 P0001 ", "false 197 "},
      {"d|x2|P0001|E0001|", "0 P0001 ", "false 197 "},
      {"d|2x|P0001|E0001|", "2 P0001 E0001", ""},
      {"d| 2|P0001|E0001|", "2 P0001 E0001", ""},
      {"d|+2|P0001|E0001|", "2 P0001 E0001", ""},
      {"d|02|P0001|E0001|", "2 P0001 E0001", ""},
      {"d|0x2|P0001|E0001|", "0 P0001 ", "false 197 "},
      {"d|-2|P0001|E0001|", "-2 P0001 ", "false 197 "},
      {"d|16|P0001|E0001|", "16 P0001 ", "false 197 "},
      {"d|99|P0001|E0001|a|b|", "99 P0001 ", "false 197 "},
      {"d|2147483647|P0001|E0001|", "2147483647 P0001 ", "false 197 "},
      {"d|99999999999999999999999|P0001|E0001|", "-1 P0001 ", "false 197 "},
      {"d|9223372036854775810|P0001|E0001|", "-1 P0001 ", "false 197 "},
  };
  for (const Row& row : rows) check(row);
}

TEST(NetMessageParse, ReadsCookieTypesFromFieldThree) {
  for (const std::string type : {"2", "3", "4", "6", "14"}) {
    check({"d|" + type + "|P0001|E0001|", type + " P0001 E0001", ""});
    check({"d|" + type + "|P0001||", type + " P0001 ", ""});
    check({"d|" + type + "|P0001|E0001|ignored|", type + " P0001 E0001", ""});
  }
}

TEST(NetMessageParse, ReadsModifications) {
  const Row rows[] = {
      {"d|1|P0001|E0001|1;1;2.5;0%2F1;|", "1 P0001 E0001 modification=1;1;2.5;0%2F1;", ""},
      {"d|1|P0001|E0001|2;0;0;;Reel%202", "1 P0001 E0001 modification=2;0;0;;Reel%202", ""},
      {"d|1|P0001|E0001|", "1 P0001 E0001", "false 149 "},
      {"d|1|P0001||", "1 P0001 ", "false 149 "},
      {"d|1|P0001|E0001||", "1 P0001 E0001", ""},
      {"d|1|P0001|E0001|garbage|", "1 P0001 E0001", ""},
      {"d|1|P0001|E0001|1;9;4;;|", "1 P0001 E0001 modification=1;4;9;;", "false 123 "},
      {"d|1|P0001|E0001|1;inf;-inf;;|", "1 P0001 E0001 modification=1;-inf;inf;;", "false 123 "},
      {"d|1|P0001|E0001|1;nan;3;;|", "1 P0001 E0001 modification=1;nan;3;;", ""},
      {"d|1|P0001|E0001|53;0;0;;|rest|", "1 P0001 E0001 modification=53;0;0;;", ""},
  };
  for (const Row& row : rows) check(row);
}

TEST(NetMessageParse, ReadsPermissions) {
  const Row rows[] = {
      {"d|5|P0001|E0001|BOB|", "5 P0001 E0001 data=BOB", ""},
      {"d|5|P0001|E0001||", "5 P0001 E0001", ""},
      {"d|5|P0001|E0001|", "5 P0001 E0001", "false 142 "},
      {"d|5|P0001|E0001|BO\0B|"s, "5 P0001 E0001 data=BO\0B"s, ""},
      {"d|5|P0001|E0001|\xFF\xC3|", "5 P0001 E0001 data=\xFF\xC3", ""},
      {"d|5|P0001|E0001|BOB|EVE|", "5 P0001 E0001 data=BOB", ""},
  };
  for (const Row& row : rows) check(row);
}

TEST(NetMessageParse, ReadsContainerChangesOfBinsRacksAndFilters) {
  for (const std::string type : {"7", "15"}) {
    const std::string head = "d|" + type + "|P0001|G0002|";
    const std::string read = type + " P0001 G0002";
    const Row rows[] = {
        {head + "0|", read, ""},
        {head + "1|", read + " container=1", ""},
        {head + "2|", read + " container=2", ""},
        {head + "3|", read + " container=3", ""},
        {head + "|", read, ""},
        {head + "x|", read, ""},
        {head + "3x|", read + " container=3", ""},
        {head, read, "false 166 "},
        {head + "4|", "0 P0001 G0002 container=4", "valid_ 31 false 162 "},
        {head + "9|", "0 P0001 G0002 container=9", "valid_ 31 false 162 "},
        {head + "-1|", "0 P0001 G0002 container=4294967295", "valid_ 31 false 162 "},
    };
    for (const Row& row : rows) check(row);
  }
}

TEST(NetMessageParse, ReadsMaterialPaths) {
  for (const std::string type : {"8", "9"}) {
    check({"d|" + type + "|P0001|//store/a.mov|", type + " P0001  data=//store/a.mov", ""});
    check({"d|" + type + "|P0001|//store/a b\xC3\xBC|", type + " P0001  data=//store/a b\xC3\xBC",
           ""});
    check({"d|" + type + "|P0001|cut|here|", type + " P0001  data=cut", ""});
  }
}

TEST(NetMessageParse, ReadsUserMessagesAndActionRequests) {
  for (const std::string type : {"10", "13"}) {
    const std::string head = "d|" + type + "|P0001|";
    const std::string read = type + " P0001 ";
    const Row rows[] = {
        {head + "anna|BOB|hello|", read + " data=hello target=BOB source=anna", ""},
        {head + "anna|BOB||", read + " target=BOB source=anna", ""},
        {head + "||hello|", read + " data=hello", ""},
        {head + "anna|BOB|cut|here|", read + " data=cut target=BOB source=anna", ""},
        {head + "anna|BOB|", read, ""},
        {head + "anna|", read, ""},
    };
    for (const Row& row : rows) check(row);
  }
}

TEST(NetMessageParse, ReadsTheCookieOfATransferFromTheTargetsField) {
  for (const std::string type : {"11", "12"}) {
    const std::string head = "d|" + type + "|P0001|anna|";
    check({head + "BOB|G0002|", type + " P0001  source=anna", ""});
    check({head + "G0099|G0002|", type + " P0001 G0099 source=anna", ""});
    check({head + "G0099|", type + " P0001 G0099 source=anna", ""});
    check({head, type + " P0001  source=anna", ""});
  }
}

TEST(NetMessageParse, TheVersionWarningIsWordedExactly) {
  const FakeHost host;
  const NetMessage message{lightweight(wire("e|2|P0001|E0001|"))};
  EXPECT_EQ(host.logLines, std::vector<std::string>{kWarning});
}

TEST(NetMessageParse, AVeryLongTextIsReadWhole) {
  const FakeHost host;
  const std::string path(65000, 'x');
  const NetMessage message{lightweight(wire("d|8|P0001|") + path + wire("|"))};
  EXPECT_EQ(message.data.str(), path);
  const NetMessage separators{lightweight(wire("d|8") + std::string(65000, '\xAC'))};
  EXPECT_EQ(summary(separators), "8  ");
}

}  // namespace
