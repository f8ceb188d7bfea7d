#include <gtest/gtest.h>

#include <algorithm>

#include "ProjectShare/NetMessage.h"
#include "tests/fakes/FakeHost.h"
#include "tests/support/WireFields.h"

using namespace korvel;

namespace {

/// What logging a wire text writes under "Sent", without the lines that every message has.
std::string logged(const std::string& text) {
  testing::internal::CaptureStdout();
  FakeHost host;
  const NetMessage message{lightweight(wire(text))};
  testing::internal::GetCapturedStdout();
  host.logLines.clear();
  message.log("Sent");
  std::string lines;
  for (const std::string& line : host.logLines) {
    EXPECT_EQ(line.rfind("both: ", 0), 0u) << "to the log and the console: " << line;
    lines += line.substr(6);
  }
  const std::string head = "Sent :\n{\n   Project : P0001\n";
  EXPECT_EQ(lines.substr(0, head.size()), head);
  EXPECT_EQ(lines.substr(lines.size() - 2), "}\n");
  return lines.substr(head.size(), lines.size() - head.size() - 2);
}

TEST(NetMessageLog, NamesTheTypeAndItsFields) {
  const std::string cookie = "   Cookie  : E0001\n";
  const struct {
    const char* text;
    std::string lines;
  } rows[] = {
      {"d|1|P0001|E0001|1;0;2;0;|",
       "   Type    : EditModification\n" + cookie + "   Details : 1;0;2;0;\n"},
      {"d|2|P0001|E0001|", "   Type    : EditSaved\n" + cookie},
      {"d|3|P0001|E0001|", "   Type    : EditDeleted\n" + cookie},
      {"d|5|P0001|E0001|BOB|", "   Type    : PermissionsChange\n" + cookie + "   Data    : BOB\n"},
      {"d|6|P0001|E0001|", "   Type    : RoomChange\n" + cookie},
      {"d|7|P0001|E0001|2|", "   Type    : ContainerModification\n" + cookie + "   Details : 2\n"},
      {"d|8|P0001|/a.mov|", "   Type    : AddMaterial\n   Data    : /a.mov\n"},
      {"d|9|P0001|/a.mov|", "   Type    : RemoveMaterial\n   Data    : /a.mov\n"},
      {"d|14|P0001|E0001|", "   Type    : EditCreated\n" + cookie},
      {"d|15|P0001|E0001|3|", "   Type    : ContainerModification\n" + cookie + "   Details : 3\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(logged(row.text), row.lines);
  }
}

TEST(NetMessageLog, CookiesAreWrittenInFull) {
  FakeHost host;
  NetMessage message(NetMessage::eEditSaved, Cookie("E123456789-ff00", false));
  message.projectCookie = Cookie("P123456789-ff00", false);
  ASSERT_NE(message.projectCookie.asString(true).str(), "P123456789-ff00");
  message.log("Sent");
  for (const char* const line :
       {"both:    Project : P123456789-ff00\n", "both:    Cookie  : E123456789-ff00\n"}) {
    EXPECT_EQ(std::ranges::count(host.logLines, line), 1) << line;
  }
}

TEST(NetMessageLog, TypesWithoutANameShowTheirProjectAlone) {
  for (const char* text : {"d|0|P0001|E0001|", "d|4|P0001|E0001|", "d|16|P0001|E0001|"})
    EXPECT_EQ(logged(text), "") << text;
}

TEST(NetMessageLog, ASourceIsShownWhereThereIsOne) {
  for (const char* text : {"d|10|P0001|anna|BOB|hello|", "d|11|P0001|anna|BOB|G0002|",
                           "d|12|P0001|anna|BOB|E0001|", "d|13|P0001|anna|12|beep|"})
    EXPECT_EQ(logged(text), "   Source  : anna\n") << text;
  EXPECT_EQ(logged("d|10|P0001||BOB|hello|"), "");
}

TEST(NetMessageLog, TheHeadingIsTheCallers) {
  FakeHost host;
  NetMessage(NetMessage::eEditSaved, Cookie()).log("Received %s");
  ASSERT_EQ(host.logLines.size(), 6u);
  EXPECT_EQ(host.logLines[0], "both: Received %s :\n");
  EXPECT_EQ(host.logLines[1], "both: {\n");
  EXPECT_EQ(host.logLines[5], "both: }\n");
}

}  // namespace
