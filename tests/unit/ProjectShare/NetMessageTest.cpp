#include "ProjectShare/NetMessage.h"

#include <gtest/gtest.h>

#include <limits>

#include "tests/fakes/FakeServices.h"
#include "tests/support/Cookies.h"
#include "tests/support/WireFields.h"

using namespace korvel;

namespace {

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;
using Text = LightweightString<char>;

constexpr const char* kNotModification =
    "assertion failed t != eEditModification at ProjectShare/NetMessage line ";

NetMessage::Type typeOf(int number) { return static_cast<NetMessage::Type>(number); }

class NetMessageTest : public testing::Test {
 protected:
  FakeHost host_;
};

/// Runs a constructor with every type from 0 to 17; returns the types that made it report, which
/// must be `report` and nothing else.
template <typename Build>
std::string refusedTypes(const std::string& report, Build build) {
  std::string refused;
  for (int number = 0; number <= 17; ++number) {
    CaptureStdout();
    const NetMessage message = build(typeOf(number));
    const std::string printed = GetCapturedStdout();
    EXPECT_EQ(message.type, typeOf(number)) << "the record is built with the type all the same";
    if (printed.empty()) continue;
    EXPECT_EQ(printed, report) << "type " << number;
    refused += (refused.empty() ? "" : " ") + std::to_string(number);
  }
  return refused;
}

TEST_F(NetMessageTest, ATypeAndACookieMayBeAnyTypeButAnEditModification) {
  const auto refused = refusedTypes(kNotModification + std::string("46\n"),
                                    [](auto type) { return NetMessage(type, kEdit); });
  EXPECT_EQ(refused, "1");
}

TEST_F(NetMessageTest, ATypeACookieAndATextMayBeAnyTypeButAnEditModification) {
  const auto refused = refusedTypes(kNotModification + std::string("55\n"),
                                    [](auto type) { return NetMessage(type, kEdit, Text("x")); });
  EXPECT_EQ(refused, "1");
}

TEST_F(NetMessageTest, ATypeAndATextMustBeMaterial) {
  const auto refused = refusedTypes(
      "assertion failed t == eAddMaterial || t == eRemoveMaterial at ProjectShare/NetMessage line "
      "63\n",
      [](auto type) { return NetMessage(type, Text("/m/a.mov")); });
  EXPECT_EQ(refused, "0 1 2 3 4 5 6 7 10 11 12 13 14 15 16 17");
}

TEST_F(NetMessageTest, ATypeAndTwoTextsMustBeAUserMessageOrAnActionRequest) {
  const auto refused = refusedTypes(
      "assertion failed t == eUserMessage || t == eActionRequest at ProjectShare/NetMessage line "
      "73\n",
      [](auto type) { return NetMessage(type, Text("BOB"), Text("hello")); });
  EXPECT_EQ(refused, "0 1 2 3 4 5 6 7 8 9 11 12 14 15 16 17");
}

TEST_F(NetMessageTest, ATypeATextAndACookieMustBeATransfer) {
  const auto refused = refusedTypes(
      "assertion failed t == eBinTransfer || t == eClipTransfer at ProjectShare/NetMessage line "
      "83\n",
      [](auto type) { return NetMessage(type, Text("BOB"), kEdit); });
  EXPECT_EQ(refused, "0 1 2 3 4 5 6 7 8 9 10 13 14 15 16 17");
}

TEST_F(NetMessageTest, AnEditModificationBuiltFromATypeAloneHoldsADefaultModification) {
  CaptureStdout();
  const NetMessage message(NetMessage::eEditModification, kEdit);
  EXPECT_EQ(GetCapturedStdout(), kNotModification + std::string("46\n"));
  EXPECT_EQ(summary(message), "1 P0001 E0001");
}

TEST_F(NetMessageTest, EachConstructorSetsItsFieldsAndTheCurrentProjectAlone) {
  EditModification trim(eModTrim);
  trim.range_ = NumRange<double>(1, 2.5);
  trim.subject_ = "0/1";
  const struct {
    NetMessage message;
    const char* fields;
  } rows[] = {
      {{NetMessage::eEditSaved, kEdit}, "2 P0001 E0001"},
      {{NetMessage::ePermissionsChange, kEdit, Text("BOB")}, "5 P0001 E0001 data=BOB"},
      {{NetMessage::eAddMaterial, Text("/m/a.mov")}, "8 P0001  data=/m/a.mov"},
      {{NetMessage::eUserMessage, Text("BOB"), Text("hi")}, "10 P0001  data=hi target=BOB"},
      {{NetMessage::eActionRequest, Text("12"), Text("beep")}, "13 P0001  data=beep target=12"},
      {{NetMessage::eBinTransfer, Text("BOB"), kEdit}, "11 P0001 E0001 target=BOB"},
      {{kEdit, ContainerModification(ContainerModification::eReload)}, "7 P0001 E0001 container=2"},
      {{kEdit, trim}, "1 P0001 E0001 modification=1;1;2.5;0%2F1;"},
  };
  for (const auto& row : rows) EXPECT_EQ(summary(row.message), row.fields);
}

TEST_F(NetMessageTest, ARecordBuiltHereHasNoSourceWhateverItsType) {
  const FakeProjectShare share(L"anna");
  for (int number = 0; number <= 15; ++number) {
    CaptureStdout();
    EXPECT_TRUE(NetMessage(typeOf(number), kEdit).source.empty());
    EXPECT_TRUE(NetMessage(typeOf(number), Text("a"), Text("b")).source.empty());
    EXPECT_TRUE(NetMessage(typeOf(number), Text("a"), kEdit).source.empty());
    GetCapturedStdout();
  }
}

TEST_F(NetMessageTest, InitTakesTheProjectThatIsCurrentNow) {
  NetMessage message(NetMessage::eEditSaved, kEdit);
  host_.project.current = Cookie("P0002", false);
  EXPECT_EQ(message.projectCookie.asString(), "P0001");
  message.init();
  EXPECT_EQ(message.projectCookie.asString(), "P0002");
}

TEST_F(NetMessageTest, AModificationWhoseRangeRunsBackwardsIsPutInOrderAndReported) {
  EditModification trim(eModTrim);
  trim.range_.start = 9;
  trim.range_.end = 4;
  CaptureStdout();
  const NetMessage message(kEdit, trim);
  EXPECT_EQ(GetCapturedStdout(), "assertion failed false at misc/NumRange line 123\n");
  EXPECT_EQ(message.editModification.range_.start, 4);
  EXPECT_EQ(message.editModification.range_.end, 9);
  EXPECT_EQ(trim.range_.start, 9) << "the original is left alone";
}

TEST_F(NetMessageTest, AModificationIsCopiedFieldByField) {
  EditModification rename(eModRename);
  rename.range_ = NumRange<double>(-std::numeric_limits<double>::infinity(), 7);
  rename.subject_ = "0/2";
  rename.value_ = "Größe; 50 %";
  const NetMessage message(kEdit, rename);
  EXPECT_EQ(message.editModification.asString(), rename.asString());
}

TEST_F(NetMessageTest, ACopyHoldsEveryFieldAndIsItsOwn) {
  NetMessage message{lightweight(wire("d|10|P0001|anna|BOB|hi|"))};
  const NetMessage copy = message;
  message.data += "!";
  message.type = NetMessage::eNone;
  EXPECT_EQ(summary(copy), "10 P0001  data=hi target=BOB source=anna");
}

}  // namespace
