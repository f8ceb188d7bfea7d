#include <gtest/gtest.h>

#include "ProjectShare/NetMessage.h"
#include "tests/fakes/FakeServices.h"
#include "tests/support/Cookies.h"
#include "tests/support/WireFields.h"

using namespace korvel;

namespace {

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;
using Text = LightweightString<char>;

constexpr const char* kWriterReport =
    "assertion failed false at ProjectShare/NetMessage line 293\n";

class NetMessageWireTest : public testing::Test {
 protected:
  FakeHost host_;
  FakeProjectShare share_{L"anna"};
};

NetMessage filterMessage(ContainerModification::eValue value) {
  NetMessage message(NetMessage::eFilterModification, Cookie("F0003", false));
  message.containerModification.value_ = value;
  message.containerModification.valid_ = false;
  return message;
}

EditModification rename() {
  EditModification modification(eModRename);
  modification.value_ = "Reel 2";
  return modification;
}

TEST_F(NetMessageWireTest, EveryTypeIsWrittenAsItsFields) {
  const struct {
    NetMessage message;
    const char* text;
  } rows[] = {
      {{kEdit, rename()}, "d|1|P0001|E0001|2;0;0;;Reel%202|"},
      {{NetMessage::eEditSaved, kEdit}, "d|2|P0001|E0001|"},
      {{NetMessage::eEditDeleted, kEdit}, "d|3|P0001|E0001|"},
      {{NetMessage::ePermissionsChange, kEdit, Text("BOB")}, "d|5|P0001|E0001|BOB|"},
      {{NetMessage::ePermissionsChange, kEdit}, "d|5|P0001|E0001||"},
      {{NetMessage::eRoomChange, Cookie("P0001", false)}, "d|6|P0001|P0001|"},
      {{kBin, ContainerModification(ContainerModification::eRewritten)}, "d|7|P0001|G0002|1|"},
      {{NetMessage::eAddMaterial, Text("//store/a.mov")}, "d|8|P0001|//store/a.mov|"},
      {{NetMessage::eRemoveMaterial, Text("//store/a.mov")}, "d|9|P0001|//store/a.mov|"},
      {{NetMessage::eUserMessage, Text("BOB"), Text("hello")}, "d|10|P0001|anna|BOB|hello|"},
      {{NetMessage::eBinTransfer, Text("BOB"), kBin}, "d|11|P0001|anna|BOB|G0002|"},
      {{NetMessage::eClipTransfer, Text("BOB"), kEdit}, "d|12|P0001|anna|BOB|E0001|"},
      {{NetMessage::eActionRequest, Text("12"), Text("beep")}, "d|13|P0001|anna|12|beep|"},
      {{NetMessage::eEditCreated, kEdit}, "d|14|P0001|E0001|"},
      {filterMessage(ContainerModification::eDestroyed), "d|15|P0001|F0003|3|"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    CaptureStdout();
    EXPECT_EQ(row.message.asString().str(), wire(row.text));
    EXPECT_EQ(GetCapturedStdout(), "");
  }
}

TEST_F(NetMessageWireTest, TypesThatNobodySendsAreReportedAndWrittenWithTheirCookie) {
  for (const int number : {0, 4, 16, 99, -1}) {
    SCOPED_TRACE(number);
    const NetMessage message(static_cast<NetMessage::Type>(number), kEdit);
    CaptureStdout();
    EXPECT_EQ(message.asString().str(), wire("d|" + std::to_string(number) + "|P0001|E0001|"));
    EXPECT_EQ(GetCapturedStdout(), kWriterReport);
  }
}

TEST_F(NetMessageWireTest, EveryTypeIsWrittenWithItsCookiesInFull) {
  const Cookie whole("E123456789-ff00", false);
  ASSERT_NE(whole.asString(true).str(), whole.asString(false).str());
  for (int number = 0; number <= 17; ++number) {
    SCOPED_TRACE(number);
    CaptureStdout();
    NetMessage message(static_cast<NetMessage::Type>(number), whole);
    message.projectCookie = Cookie("P123456789-ff00", false);
    const std::string text = message.asString().str();
    GetCapturedStdout();
    EXPECT_NE(text.find(wire("|P123456789-ff00|")), text.npos) << text;
    const bool hasNoCookie =
        number == NetMessage::eAddMaterial || number == NetMessage::eRemoveMaterial ||
        number == NetMessage::eUserMessage || number == NetMessage::eActionRequest;
    EXPECT_EQ(text.find(wire("|E123456789-ff00|")) == text.npos, hasNoCookie) << text;
  }
}

TEST_F(NetMessageWireTest, TheSenderIsTheLocalUserNeverTheSourceField) {
  share_.user = L"J\u00fcrgen";
  NetMessage message(NetMessage::eUserMessage, Text("BOB"), Text("hi"));
  message.source = "somebody else";
  EXPECT_EQ(message.asString().str(), wire("d|10|P0001|J\xC3\xBCrgen|BOB|hi|"));
}

TEST(NetMessageWithoutService, WritesAnEmptySender) {
  const FakeHost host;
  const NetMessage message(NetMessage::eActionRequest, Text("12"), Text("beep"));
  EXPECT_EQ(message.asString().str(), wire("d|13|P0001||12|beep|"));
}

TEST_F(NetMessageWireTest, NullCookiesAreEmptyFields) {
  host_.project.current = Cookie();
  EXPECT_EQ(NetMessage(NetMessage::eEditSaved, Cookie()).asString().str(), wire("d|2|||"));
}

TEST_F(NetMessageWireTest, WhatIsWrittenReadsBackForEveryTypeButTransfers) {
  const NetMessage rows[] = {
      {kEdit, rename()},
      {NetMessage::eEditSaved, kEdit},
      {NetMessage::eEditDeleted, kEdit},
      {NetMessage::eProjdbRecChange, kEdit},
      {NetMessage::ePermissionsChange, kEdit, Text("BOB")},
      {NetMessage::eRoomChange, Cookie("P0001", false)},
      {kBin, ContainerModification(ContainerModification::eDestroyed)},
      {NetMessage::eAddMaterial, Text("//store/day 1/a.b.mov")},
      {NetMessage::eRemoveMaterial, Text("//store/\xC3\xBC.mov")},
      {NetMessage::eUserMessage, Text("<All>"), Text("lunch?\n\ttoday")},
      {NetMessage::eActionRequest, Text("12"), Text("beep")},
      {NetMessage::eEditCreated, kEdit},
      filterMessage(ContainerModification::eReload),
  };
  for (NetMessage message : rows) {
    const NetMessage read(message.asString());
    if (!read.source.empty()) message.source = "anna";
    EXPECT_EQ(summary(read), summary(message));
  }
}

TEST_F(NetMessageWireTest, ATransferReadsItsTargetAsTheCookieAndHasNoTarget) {
  const NetMessage toBob(NetMessage::eBinTransfer, Text("BOB"), kBin);
  EXPECT_EQ(summary(NetMessage(toBob.asString())), "11 P0001  source=anna");
  const NetMessage toCookie(NetMessage::eClipTransfer, Text("E0099"), kEdit);
  EXPECT_EQ(summary(NetMessage(toCookie.asString())), "12 P0001 E0099 source=anna");
}

TEST_F(NetMessageWireTest, AUserMessageThatHoldsTheSeparatorArrivesCutThere) {
  const NetMessage message(NetMessage::eUserMessage, Text("BOB"), Text("costs \xE2\x82\xAC 5"));
  EXPECT_EQ(NetMessage(message.asString()).data, "costs \xE2\x82");
}

TEST_F(NetMessageWireTest, ACookieFieldMayBeOfAnyLength) {
  for (const std::size_t digits : {4U, 31U, 32U, 33U, 62U, 63U, 64U, 5000U}) {
    const std::string field = 'E' + std::string(digits, '1');
    const NetMessage message(lightweight(wire("d|2|P0001|" + field + "|")));
    EXPECT_EQ(message.cookie.asString().str(), digits <= 32 ? field : "") << digits;
    EXPECT_EQ(message.projectCookie.asString().str(), "P0001") << digits;
  }
}

TEST_F(NetMessageWireTest, ZeroBytesInATextAreWrittenWhole) {
  const std::string words("a\0b", 3);
  const NetMessage message(NetMessage::eUserMessage, Text("BOB"), lightweight(words));
  EXPECT_EQ(message.asString().str(), wire("d|10|P0001|anna|BOB|") + words + wire("|"));
  EXPECT_EQ(NetMessage(message.asString()).data.str(), words);
}

}  // namespace
