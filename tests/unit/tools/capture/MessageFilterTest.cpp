#include "tools/capture/HeardMessage.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tools/capture/MessageLine.h"

using namespace korvel;

namespace {

HeardMessage heard(std::string text, std::uint32_t sender = 0x0A000005, int port = 41000) {
  std::replace(text.begin(), text.end(), '|', '\xAC');
  HeardMessage message;
  message.sender = {sender};
  message.senderPort = static_cast<std::uint16_t>(port);
  message.bytes = text;
  return message;
}

bool takes(MessageFilter& filter, const HeardMessage& message) {
  return filter.takes(message, readMessage(message.bytes));
}

struct FilterRow {
  const char* what;
  FilterWords words;
  const char* text;
  bool isTaken;
};

TEST(MessageFilter, TakesWhatIsMeant) {
  const FilterRow rows[] = {
      {"no words", {}, "x", true},
      {"a type by name", {{"edit-saved"}, {}, {}, {}}, "d|2|P0001|E0001|", true},
      {"another type", {{"edit-saved"}, {}, {}, {}}, "d|3|P0001|E0001|", false},
      {"one of two types", {{"9", "3"}, {}, {}, {}}, "d|3|P0001|E0001|", true},
      {"what monitor calls not valid", {{"not valid"}, {}, {}, {}}, "x", true},
      {"a message is not that", {{"not valid"}, {}, {}, {}}, "d|3|P0001|E0001|", false},
      {"a number without a name", {{"unknown"}, {}, {}, {}}, "d|77|P0001|E0001|", true},
      {"a name as monitor shows it", {{"EditSaved"}, {}, {}, {}}, "d|2|P0001|E0001|", true},
      {"a project", {{}, {"P0001"}, {}, {}}, "d|3|P0001|E0001|", true},
      {"another project", {{}, {"P0002"}, {}, {}}, "d|3|P0001|E0001|", false},
      {"a sending user", {{}, {}, {"ann"}, {}}, "d|10||ANN|<All>|hi|", true},
      {"an addressed user", {{}, {}, {"Bob"}, {}}, "d|10||ANN|BOB|hi|", true},
      {"an owner", {{}, {}, {"bob"}, {}}, "d|5|P0001|E0001|BOB|", true},
      {"a user in a text", {{}, {}, {"hi"}, {}}, "d|10||ANN|BOB|hi|", false},
      {"an address", {{}, {}, {}, {"10.0.0.5"}}, "x", true},
      {"an address and port", {{}, {}, {}, {"10.0.0.5:41000"}}, "x", true},
      {"another port", {{}, {}, {}, {"10.0.0.5:41001"}}, "x", false},
      {"a network", {{}, {}, {}, {"10.0.0.0/24"}}, "x", true},
      {"another network", {{}, {}, {}, {"10.0.1.0/24"}}, "x", false},
  };
  for (const FilterRow& row : rows) {
    auto filter = MessageFilter::of(row.words);
    ASSERT_TRUE(filter) << row.what;
    EXPECT_EQ(takes(*filter, heard(row.text)), row.isTaken) << row.what;
  }
}

TEST(MessageFilter, KnowsASenderThatNamedItselfBefore) {
  auto filter = MessageFilter::of({{}, {}, {"ANN"}, {}});
  ASSERT_TRUE(filter);
  EXPECT_FALSE(takes(*filter, heard("d|2|P0001|E0001|")));
  EXPECT_TRUE(takes(*filter, heard("d|10||ANN|<All>|hi|")));
  EXPECT_TRUE(takes(*filter, heard("d|2|P0001|E0001|")));
  EXPECT_FALSE(takes(*filter, heard("d|2|P0001|E0001|", 0x0A000005, 41001)));
}

TEST(MessageFilter, ExplainsAWordThatMakesNoSense) {
  const std::pair<FilterWords, const char*> rows[] = {
      {{{"edit-savd"}, {}, {}, {}}, "did you mean edit-saved?"},
      {{{}, {"Film"}, {}, {}}, "\"Film\" is no cookie"},
      {{{}, {}, {}, {"anna"}}, "\"anna\" is no sender"},
      {{{}, {}, {}, {"10.0.0.5:x"}}, "is no sender"},
  };
  for (const auto& [words, said] : rows) {
    const auto filter = MessageFilter::of(words);
    ASSERT_FALSE(filter) << said;
    EXPECT_NE(filter.error().message.find(said), std::string::npos) << filter.error().message;
  }
}

TEST(MessageLine, LinesUpWhateverIsShown) {
  MessageLine line(Colours::eNone);
  const HeardMessage texts[] = {heard("d|2|P0001|E0001|"), heard("d|7|P0001|E0001|3|"),
                                heard("d|2||E0001|", 0xFFFFFFFF, 65535), heard("d|3|P0001|E0001|")};
  for (const HeardMessage& each : texts) {
    EXPECT_EQ(line.of(each, readMessage(each.bytes)).find("E0001"), line.heading().find("object"))
        << line.of(each, readMessage(each.bytes));
  }
}

TEST(MessageLine, SaysWhatHappenedInWords) {
  const std::pair<const char*, const char*> rows[] = {
      {"d|2|P0001|E0001|", "E0001"},
      {"d|1|P0001|E0001|2;0;0;;A|", "E0001  2;0;0;;A"},
      {"d|5|P0001|E0001|BOB|", "E0001  owner BOB"},
      {"d|7|P0001|G0001|3|", "G0001  destroyed"},
      {"d|15|P0001|F0001|9|", "F0001  9"},
      {"d|8|P0001|//s/a.mov|", "//s/a.mov"},
      {"d|10||ANN|BOB|hi|", "ANN to BOB: hi"},
      {"d|13||ANN|12|beep|", "ANN to machine 12: beep"},
  };
  for (const auto& [text, said] : rows) {
    EXPECT_EQ(objectText(readMessage(heard(text).bytes)), said) << text;
  }
}

TEST(MessageLine, NeverSendsAControlCharacterOfAMessageToTheTerminal) {
  MessageLine line(Colours::eNone);
  for (const char* const text : {"d|10|\x1b[2J|A\x1b]0;x\x07|\x9b"
                                 "31m|\r\n\x7f\xc2\x9b|",
                                 "\x1b[2J", "d\n"}) {
    const HeardMessage message = heard(text);
    const std::string shown = line.of(message, readMessage(message.bytes));
    EXPECT_TRUE(std::all_of(shown.begin(), shown.end(), [](char byte) {
      return (byte & 0xFF) >= 0x20 && byte != 0x7F;
    })) << shown;
    EXPECT_EQ(shown.find("\xc2\x9b"), std::string::npos) << shown;
  }
}

TEST(MessageLine, ColoursOnlyWhereAskedTo) {
  const HeardMessage message = heard("d|2|P0001|E0001|");
  EXPECT_NE(MessageLine(Colours::eTerminal).of(message, readMessage(message.bytes)).find("\033["),
            std::string::npos);
  EXPECT_EQ(MessageLine(Colours::eNone).of(message, readMessage(message.bytes)).find("\033["),
            std::string::npos);
}

}  // namespace
