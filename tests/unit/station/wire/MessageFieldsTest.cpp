#include "station/wire/MessageTable.h"

#include <gtest/gtest.h>

using namespace korvel;

namespace {

/// A wire text from one where "|" stands for the separator.
std::string wire(std::string text) {
  for (char& letter : text) {
    if (letter == '|') letter = kFieldSeparator;
  }
  return text;
}

using Fields = std::vector<std::string>;

struct SplitRow {
  const char* text;
  Fields fields;
};

TEST(MessageFields, AreSplitAsEveryStationSplitsThem) {
  const SplitRow rows[] = {
      {"", {""}},
      {"d", {"d"}},
      {"|", {""}},
      {"||", {""}},
      {"|d", {"d"}},
      {"d|", {"d"}},
      {"d|2", {"d", "2"}},
      {"d|2|", {"d", "2"}},
      {"d||2|", {"d", "", "2"}},
      {"d|2||", {"d", "2", ""}},
      {"|||", {"", ""}},
  };
  for (const SplitRow& row : rows) EXPECT_EQ(splitFields(wire(row.text)), row.fields) << row.text;
}

struct ReadRow {
  const char* text;
  MessageFields fields;
};

void expectSame(const MessageFields& read, const MessageFields& wanted, const char* text) {
  EXPECT_EQ(read.valid, wanted.valid) << text;
  EXPECT_EQ(read.type, wanted.type) << text;
  EXPECT_EQ(read.typeName, wanted.typeName) << text;
  EXPECT_EQ(read.project, wanted.project) << text;
  EXPECT_EQ(read.cookie, wanted.cookie) << text;
  EXPECT_EQ(read.source, wanted.source) << text;
  EXPECT_EQ(read.target, wanted.target) << text;
  EXPECT_EQ(read.data, wanted.data) << text;
  EXPECT_EQ(read.modification, wanted.modification) << text;
  EXPECT_EQ(read.container, wanted.container) << text;
}

TEST(MessageFields, AreReadWhereEachTypeHasThem) {
  const ReadRow rows[] = {
      {"d|1|P1|E1|2;0;0;;a|",
       {true, 1, "EditModification", "P1", "E1", "", "", "", "2;0;0;;a", ""}},
      {"d|2|P1|E1|", {true, 2, "EditSaved", "P1", "E1", "", "", "", "", ""}},
      {"d|3|P1|E1|", {true, 3, "EditDeleted", "P1", "E1", "", "", "", "", ""}},
      {"d|4|P1|E1|", {true, 4, "ProjdbRecChange", "P1", "E1", "", "", "", "", ""}},
      {"d|5|P1|E1||", {true, 5, "PermissionsChange", "P1", "E1", "", "", "", "", ""}},
      {"d|6|P1|P1|", {true, 6, "RoomChange", "P1", "P1", "", "", "", "", ""}},
      {"d|7|P1|G1|3|", {true, 7, "ContainerModification", "P1", "G1", "", "", "", "", "3"}},
      {"d|8|P1|//m/a|", {true, 8, "AddMaterial", "P1", "", "", "", "//m/a", "", ""}},
      {"d|9|P1|//m/a|", {true, 9, "RemoveMaterial", "P1", "", "", "", "//m/a", "", ""}},
      {"d|10|P1|ann|<All>|hi|", {true, 10, "UserMessage", "P1", "", "ann", "<All>", "hi", "", ""}},
      {"d|11|P1|ann|bob|G1|", {true, 11, "BinTransfer", "P1", "G1", "ann", "bob", "", "", ""}},
      {"d|12|P1|ann|bob|E1|", {true, 12, "ClipTransfer", "P1", "E1", "ann", "bob", "", "", ""}},
      {"d|13|P1|ann|12|run|", {true, 13, "ActionRequest", "P1", "", "ann", "12", "run", "", ""}},
      {"d|14|P1|E1|", {true, 14, "EditCreated", "P1", "E1", "", "", "", "", ""}},
      {"d|15|P1|F1|2|", {true, 15, "FilterModification", "P1", "F1", "", "", "", "", "2"}},
  };
  for (const ReadRow& row : rows) {
    expectSame(readMessage(wire(row.text)), row.fields, row.text);
  }
}

TEST(MessageFields, OfATextThatNoStationTakesAreInvalid) {
  const char* const rows[] = {
      "",
      "x",
      "d",
      "dx|2|P1|E1|",
      "d|2|P1|",
      "d|8|P1|",
      "d|0|P1|E1|",
      "d|16|P1|E1|",
      "d|x|P1|E1|",
      "d|1|P1|E1|",
      "d|7|P1|G1|",
      "d|7|P1|G1|4|",
      "d|15|P1|F1|-1|",
      "d|10|P1|ann|bob|",
      "d|99999999999999999999|P|E|",
      "|d|2|",
      "|d|2|P1|E1|",
      "d|13|P1|ann|12|",
  };
  for (const char* row : rows) EXPECT_FALSE(readMessage(wire(row)).valid) << row;
}

TEST(MessageFields, OfATextOnWhichStationsActAllTheSameAreValid) {
  const char* const rows[] = {"d|5|P1|E1|",
                              "d|15|P1|F1|",
                              "d|11|P1|ann|",
                              "d|11|P1|ann|bob|",
                              "d|12|P1|ann|",
                              "d|12|P1|ann|bob|",
                              "d|2|P1|E1|more|more|more|"};
  for (const char* row : rows) EXPECT_TRUE(readMessage(wire(row)).valid) << row;
}

TEST(MessageFields, TellWhereATextWasCutByASeparatorInIt) {
  EXPECT_FALSE(readMessage(wire("d|10|P1|ann|bob|hi|")).isCut());
  EXPECT_TRUE(readMessage(wire("d|10|P1|ann|bob|20 \xE2\x82| please|")).isCut());
  EXPECT_FALSE(readMessage(wire("d|16|P1|E1|a|b|c|")).isCut());
}

TEST(MessageFields, ATypeIsReadAloneAsInTheWholeMessage) {
  for (const char* text : {"", "d", "|d|2|", "||d|2|", "d|2", "d|", "d|16|P1|E1|", "d|x|P1|",
                           "e|2|", "dd|2|", "d|-1|", "d| 3|P1|E1|", "d|10|P1|a|b|c|"}) {
    EXPECT_EQ(typeOnWire(wire(text)), readMessage(wire(text)).type) << text;
  }
}

TEST(MessageFields, EndAtAZeroByte) {
  const auto fields = readMessage(wire("d|8|P1|one") + std::string("\0two", 4));
  EXPECT_TRUE(fields.valid);
  EXPECT_EQ(fields.data, "one");
}

TEST(MessageFields, KeepBytesThatAreNotUtf8) {
  EXPECT_EQ(readMessage(wire("d|8|P1|\xFF\xFE|")).data, "\xFF\xFE");
}

TEST(MessageFields, OfARequestReadBackAsComposed) {
  const std::string text = composeActionRequest("P1", "ann", 12, "refresh");
  EXPECT_EQ(text, wire("d|13|P1|ann|12|refresh|"));
  EXPECT_TRUE(readMessage(text).valid);
}

TEST(MessageType, EveryRowStandsAtItsNumber) {
  int number = MessageType::kFirst;
  for (const MessageType& type : messageTypes()) {
    EXPECT_EQ(type.number, number) << type.name;
    EXPECT_EQ(messageType(number), &type);
    EXPECT_STREQ(messageTypeName(number++), type.name);
    EXPECT_GE(type.fields().size(), 1u) << type.name;
    EXPECT_LE(type.actedFrom, type.fields().size()) << type.name;
    // Four fields are asked for of every message; only beyond them can there be fewer.
    EXPECT_EQ(type.fewer != nullptr, type.fields().size() > 1) << type.name;
  }
  EXPECT_EQ(number, MessageType::kLast + 1);
  for (const int none : {-1, 0, 16}) EXPECT_EQ(messageType(none), nullptr) << none;
}

TEST(MessageFields, NameOfANumberWithoutOneIsUnknown) {
  EXPECT_STREQ(messageTypeName(16), "unknown");
  EXPECT_STREQ(messageTypeName(-1), "unknown");
}

}  // namespace
