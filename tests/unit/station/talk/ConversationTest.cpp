#include "station/talk/Conversation.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "station/base/StationSettings.h"
#include "station/talk/Asks.h"
#include "tests/fakes/ScratchFolder.h"

using namespace korvel;

namespace {

class ConversationTest : public testing::Test {
 protected:
  [[nodiscard]] std::string folderPath() const { return folder_ / "conversations"; }

  [[nodiscard]] Conversation conversation(const std::string& user = "ANNA") const {
    return {folderPath(), user, "/projects"};
  }

  static Said words(const std::string& from, const std::string& to, const std::string& text) {
    return {1, Said::Kind::eWords, from, to, text, {}, {}, from == "ANNA"};
  }

  /// The one file that there is.
  [[nodiscard]] std::string file() const {
    std::string found;
    for (const auto& each : std::filesystem::directory_iterator(folderPath())) {
      if (each.path().extension() == ".jsonl") found = each.path();
    }
    return found;
  }

  static std::string bytesOf(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  static void put(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
  }

  ScratchFolder folder_;
};

TEST_F(ConversationTest, WhatWasSaidIsThereAfterARestart) {
  {
    Conversation before = conversation();
    before.add(words("ANNA", "BEN", "lunch?"));
    before.add(words("BEN", "ANNA", "at one \xE2\x82\xAC \xF0\x9F\x8D\x95"));
    before.add(words("CARLA", kEverybody, "fire drill"));
  }
  const Conversation after = conversation();
  ASSERT_EQ(after.all().size(), 3u);
  EXPECT_EQ(after.all()[1].text, "at one \xE2\x82\xAC \xF0\x9F\x8D\x95");
  EXPECT_TRUE(after.all()[0].isOwn);
  EXPECT_EQ(after.listed("ben").elements().size(), 3u);
  EXPECT_EQ(after.listed("CARLA").elements().size(), 1u);
  EXPECT_TRUE(conversation("BEN").all().empty());
}

TEST_F(ConversationTest, TheFileIsForItsUserAlone) {
  conversation().add(words("ANNA", "BEN", "secret"));
  struct stat status {};
  ASSERT_EQ(::stat(file().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST_F(ConversationTest, ACutLineIsPassedOverAndNothingIsLostBehindIt) {
  {
    Conversation before = conversation();
    before.add(words("ANNA", "BEN", "first"));
    before.add(words("ANNA", "BEN", "second"));
  }
  const std::string bytes = bytesOf(file());
  put(file(), bytes.substr(0, bytes.size() - 9));
  conversation().add(words("ANNA", "BEN", "third"));
  const Conversation after = conversation();
  ASSERT_EQ(after.all().size(), 2u);
  EXPECT_EQ(after.all()[0].text, "first");
  EXPECT_EQ(after.all()[1].text, "third");
}

TEST_F(ConversationTest, AFileOfAnothersIsSetAside) {
  conversation().add(words("ANNA", "BEN", "mine"));
  const std::string path = file();
  put(path, R"({"conversation":1,"user":"EVE","projects":"/projects"})"
            "\n");
  conversation().add(words("ANNA", "BEN", "new"));
  EXPECT_NE(bytesOf(path + ".set-aside").find("EVE"), std::string::npos);
  ASSERT_EQ(conversation().all().size(), 1u);
  EXPECT_EQ(conversation().all()[0].text, "new");
}

TEST_F(ConversationTest, VeryMuchIsBoundedInMemoryAndOnDisk) {
  const std::string text(100'000, 'x');
  Conversation talk = conversation();
  for (int i = 0; i < 150; ++i) talk.add(words("BEN", "ANNA", std::to_string(i) + text));
  std::size_t bytes = 0;
  for (const Said& each : talk.all()) bytes += each.text.size();
  EXPECT_LE(bytes, Conversation::kMostBytes);
  EXPECT_LT(std::filesystem::file_size(file()), 4 * Conversation::kMostBytes);
  const Conversation after = conversation();
  ASSERT_FALSE(after.all().empty());
  EXPECT_EQ(after.all().back().text.substr(0, 3), "149");
  for (int i = 0; i < 3000; ++i) talk.add(words("BEN", "ANNA", "short"));
  EXPECT_EQ(talk.all().size(), Conversation::kMostSaid);
}

TEST_F(ConversationTest, AFileThatWasRemovedIsBegunAnew) {
  Conversation talk = conversation();
  talk.add(words("ANNA", "BEN", "first"));
  std::filesystem::remove(file());
  talk.add(words("ANNA", "BEN", "second"));
  ASSERT_EQ(conversation().all().size(), 1u);
  EXPECT_EQ(conversation().all()[0].text, "second");
}

TEST_F(ConversationTest, WhatCannotBeWrittenIsKeptInMemory) {
  put(folder_ / "file", "");
  Conversation talk(folder_ / "file", "ANNA", "/projects");
  talk.add(words("ANNA", "BEN", "still here"));
  EXPECT_EQ(talk.all().size(), 1u);
  Conversation nowhere({}, "ANNA", "/projects");
  nowhere.add(words("ANNA", "BEN", "here, too"));
  EXPECT_EQ(nowhere.all().size(), 1u);
}

TEST(WordsTest, WordsThatBeginWithASmallDAreSentSoThatPanelsShowThem) {
  EXPECT_EQ(wordsToSend("dinner?"), " dinner?");
  EXPECT_EQ(wordsToSend("Dinner?"), "Dinner?");
  EXPECT_EQ(wordsAsTyped(" dinner?"), "dinner?");
  EXPECT_EQ(wordsAsTyped(" Dinner?"), " Dinner?");
  EXPECT_EQ(wordsAsTyped(" "), " ");
  EXPECT_EQ(carriedWords("10 \xE2\x82\xAC, \xC3\xA4"), "10 ?, \xC3\xA4");
}

NotedAsk askFor(const std::string& name, const std::string& text) {
  return {"0123456789abcdef", "ANNA", "edit", "E0001", name, "P1", text, 7};
}

TEST(AskWordsTest, AnAskReadsBackAsItWasWritten) {
  for (const std::string text : {"", "please", "the \"last\" one: [now]", "a [kept x edit E1 0]"}) {
    for (const std::string name : {"Reel", "the \"best\"", "[x]", ""}) {
      const NotedAsk ask = askFor(name, text);
      const auto read = readAskWords(composeAskWords("BEN", AskWords::What::eGiven, ask));
      ASSERT_TRUE(read) << name << " " << text;
      EXPECT_EQ(read->what, AskWords::What::eGiven);
      EXPECT_EQ(read->ask.id, ask.id);
      EXPECT_EQ(read->ask.object, "E0001");
      EXPECT_EQ(read->ask.text, text);
      EXPECT_EQ(read->ask.name, name);
    }
  }
}

TEST(ConversationCopiesTest, WhatTheNetworkBroughtTwiceIsShownOnceAndWhatIsSaidAgainTwice) {
  installSettings({});
  Conversation conversation({}, "ANNA", "/projects");
  const auto start = std::chrono::steady_clock::now();
  const auto hear = [&](const std::string& from, int milliseconds) {
    ReceivedMessage message;
    message.fields.type = MessageType::eUserMessage;
    message.fields.valid = true;
    message.fields.source = "BEN";
    message.fields.target = "<All>";
    message.fields.data = message.wireText = "hello";
    message.from = from;
    message.arrived = start + std::chrono::milliseconds(milliseconds);
    conversation.noteDelivered(message);
    return conversation.all().size();
  };
  EXPECT_EQ(hear("10.0.0.2:4000", 0), 1u);
  EXPECT_EQ(hear("10.0.0.2:4000", 5), 1u);
  EXPECT_EQ(hear("10.0.0.3:4000", 6), 2u) << "another's";
  EXPECT_EQ(hear("10.0.0.2:4000", 2000), 3u);
}

TEST(AskWordsTest, TheLaterOfTwoAsksHasTheGreaterIdentifier) {
  const std::string first = newAskId("");
  EXPECT_EQ(first.size(), 16u);
  std::string last = first;
  for (int i = 0; i < 1000; ++i) {
    const std::string next = newAskId(last);
    ASSERT_LT(last, next);
    last = next;
  }
  EXPECT_EQ(newAskId("f000000000000000"), "f000000000000001") << "the clock was set back";
}

TEST(AskWordsTest, OtherWordsAreNoAsks) {
  for (const std::string words :
       {"", "hello", "see [here]", " [ask 1 edit E1 0]", "x [ask 0123456789abcdef edit E1]",
        "x [ask 0123456789abcdef cat E1 0]", "x [ask 0123456789abcdef edit E1 99]",
        "x [ask 0123456789abcdef edit E1 -1]", "x [take 0123456789abcdef edit E1 0]",
        "x [ask 0123456789abcdeF edit E1 0]", "x [ask 0123456789abcdef edit E1 0] y"}) {
    EXPECT_FALSE(readAskWords(words)) << words;
  }
}

}  // namespace
