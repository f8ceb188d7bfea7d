#include "app/base/EventSinks.h"

#include <gtest/gtest.h>

using namespace korvel;

namespace {

/// Keeps the events that it takes.
class KeptEvents : public iEventSink {
 public:
  void take(const StationEvent& event) override { events.push_back(event); }
  std::vector<StationEvent> events;
};

struct EventWriterTest : testing::Test {
  EventWriterTest() { writer.addSink(kept); }
  const JsonValue& last() { return kept.events.back().value; }
  JsonValue lastLine() { return *parseJson(kept.events.back().wholeLine()); }

  EventWriter writer;
  KeptEvents kept;
};

TEST_F(EventWriterTest, EveryEventHasItsNameAndTheMonotonicTime) {
  writer.command("refresh");
  writer.command("refresh");
  ASSERT_EQ(kept.events.size(), 2u);
  EXPECT_EQ(last()["event"].asString(), "command");
  EXPECT_EQ(last()["name"].asString(), "refresh");
  EXPECT_GT(last()["time"].asDouble(), 0);
  EXPECT_LE(kept.events[0].value["time"].asDouble(), kept.events[1].value["time"].asDouble());
}

TEST_F(EventWriterTest, TheLineIsTheSameObjectAsJson) {
  writer.notification("a \"quoted\"\nline");
  const auto read = parseJson(kept.events.back().line());
  ASSERT_TRUE(read) << kept.events.back().line();
  EXPECT_EQ(*read, last());
  EXPECT_EQ(kept.events.back().line().find('\n'), std::string::npos);
}

/// Takes what may have to be accounted for, and nothing else.
class KeptAudits : public KeptEvents {
 public:
  [[nodiscard]] bool takes(std::string_view name) const override { return name == "audit"; }
};

TEST_F(EventWriterTest, ASinkGetsTheEventsThatItTakes) {
  KeptAudits audits;
  writer.addSink(audits);
  writer.sent("d\xAC");
  writer.received("d\xAC", readMessage("d\xAC"));
  writer.log(true, "a line\n");
  writer.changed("edit", Cookie("E0001", false), "created", Origin::eLocal);
  writer.audit("keys", {});
  EXPECT_EQ(kept.events.size(), 5u);
  ASSERT_EQ(audits.events.size(), 1u);
  EXPECT_EQ(audits.events[0].name, "audit");
}

TEST_F(EventWriterTest, ALineIsWrittenForASinkThatAsks) {
  writer.command("refresh");
  EXPECT_EQ(kept.events.back().written, "");
  EXPECT_EQ(kept.events.back().line(), kept.events.back().written);
}

TEST_F(EventWriterTest, AMessageIsShownByItsFieldsAndItsBytes) {
  writer.sent(
      "d\xAC"
      "2\xACP0001\xAC"
      "E0002\xAC");
  EXPECT_EQ(last()["event"].asString(), "sent");
  EXPECT_EQ(last()["type"].asLong(), 2);
  EXPECT_EQ(last()["type_name"].asString(), "EditSaved");
  EXPECT_EQ(last()["project"].asString(), "P0001");
  EXPECT_EQ(last()["cookie"].asString(), "E0002");
  EXPECT_EQ(lastLine()["text_hex"].asString(), "64ac32ac5030303031ac4530303032ac");
  for (const char* key : {"target", "data"}) EXPECT_TRUE(last().find(key)) << key;
}

TEST_F(EventWriterTest, OfALargeDatagramTheFirstBytesAreShownAndItsLength) {
  const std::string words =
      "d\xAC"
      "8\xACP0001\xAC" +
      std::string(60'000, 'x');
  writer.received(words, readMessage(words));
  const JsonValue line = lastLine();
  EXPECT_EQ(line["text_hex"].asString().size(), 2u * 2048);
  EXPECT_EQ(line["text_bytes"].asLong(), static_cast<long>(words.size()));
  EXPECT_EQ(line["data"].asString().size(), 60'000u);
}

TEST_F(EventWriterTest, ADatagramBecomesHexadecimalOnlyForASinkThatAsks) {
  writer.sent(
      "d\xAC"
      "2\xACP0001\xAC");
  EXPECT_EQ(kept.events.back().line().find("hex"), std::string::npos);
  EXPECT_EQ(last().find("text_hex"), nullptr);
  EXPECT_NE(kept.events.back().wholeLine().find("\"text_hex\":\"64ac32ac5030303031ac\"}"),
            std::string::npos);
}

TEST_F(EventWriterTest, ANotificationNamesWhoseWordsItIs) {
  const std::string words =
      "d\xAC"
      "10\xACP0001\xAC"
      "ANNA\xAC<All>\xAClunch?\xAC";
  writer.notification("lunch?");
  EXPECT_FALSE(last().find("source"));
  {
    const RemoteChangeScope delivery;
    writer.received(words, readMessage(words));
    writer.notification("lunch?");
    EXPECT_EQ(last()["source"].asString(), "ANNA");
    EXPECT_EQ(last()["text"].asString(), "lunch?");
    writer.notification("something else");
    EXPECT_FALSE(last().find("source"));
  }
  writer.notification("lunch?");
  EXPECT_FALSE(last().find("source"));
}

TEST_F(EventWriterTest, WordsThatTheSeparatorCutAreMarked) {
  const std::string cut =
      "d\xAC"
      "10\xACP0001\xAC"
      "ANNA\xAC<All>\xAC"
      "20 \xE2\x82\xAC please\xAC";
  const RemoteChangeScope delivery;
  writer.received(cut, readMessage(cut));
  writer.notification("20 \xE2\x82");
  EXPECT_TRUE(last()["cut"].asBool());
  EXPECT_EQ(last()["text_hex"].asString(), "323020e282");
}

TEST_F(EventWriterTest, BytesThatAreNotUtf8AreGivenInHexadecimal) {
  struct Row {
    std::string text;
    const char* hex;
  };
  for (const Row& row : {Row{"\xFF", "ff"}, Row{"a\xC3", "61c3"}, Row{"\xED\xA0\x80", "eda080"},
                         Row{"\xC0\xAF", "c0af"}}) {
    writer.notification(row.text);
    EXPECT_EQ(last().find("text"), nullptr) << row.hex;
    EXPECT_EQ(last()["text_hex"].asString(), row.hex);
  }
  writer.notification("20 \xE2\x82\xAC");
  EXPECT_EQ(last()["text"].asString(), "20 \xE2\x82\xAC");
  EXPECT_EQ(last().find("text_hex"), nullptr);
}

TEST_F(EventWriterTest, AChangeSaysWhatHowAndFromWhere) {
  writer.changed("edit", Cookie("E0007", false), "reloaded", Origin::eRemote);
  EXPECT_EQ(last()["what"].asString(), "edit");
  EXPECT_EQ(last()["cookie"].asString(), "E0007");
  EXPECT_EQ(last()["how"].asString(), "reloaded");
  EXPECT_EQ(last()["origin"].asString(), "remote");
}

TEST_F(EventWriterTest, LogLinesSayWhereTheyWentAndLoseTheirEnd) {
  writer.log(true, "Sent :\n");
  EXPECT_EQ(last()["to"].asString(), "console");
  EXPECT_EQ(last()["text"].asString(), "Sent :");
  writer.log(false, "quiet");
  EXPECT_EQ(last()["to"].asString(), "file");
}

TEST_F(EventWriterTest, DroppedDatagramsAreCountedWhereThereAreAny) {
  writer.network("no route", 0);
  EXPECT_EQ(last().find("dropped"), nullptr);
  writer.network("overflow", 17);
  EXPECT_EQ(last()["dropped"].asLong(), 17);
}

TEST_F(EventWriterTest, AFullDiskIsToldOnceAndTheStationGoesOn) {
  std::vector<std::string> told;
  EventFile file([&told](const std::string& problem) { told.push_back(problem); });
  ASSERT_TRUE(file.open("/dev/full"));
  writer.addSink(file);
  for (int i = 0; i < 3; ++i) writer.command("refresh");
  ASSERT_EQ(told.size(), 1u);
  EXPECT_NE(told[0].find("/dev/full"), std::string::npos) << told[0];
  EXPECT_EQ(kept.events.size(), 3u);
}

TEST_F(EventWriterTest, AnEventFileThatCannotBeOpenedIsNamed) {
  EventFile file([](const std::string&) {});
  const auto opened = file.open("/nowhere/events");
  ASSERT_FALSE(opened);
  EXPECT_NE(opened.error().message.find("/nowhere/events"), std::string::npos);
}

TEST_F(EventWriterTest, ThePanelIsToldWithWhatWasAdded) {
  struct Row {
    std::vector<std::string> lines;
    const char* added;
  };
  const Row rows[] = {{{"a"}, R"(["a"])"},     {{"a", "b", "c"}, R"(["b", "c"])"},
                      {{"a", "b", "c"}, "[]"}, {{"b", "c", "d"}, R"(["d"])"},
                      {{"x"}, R"(["x"])"},     {{}, "[]"},
                      {{"x"}, R"(["x"])"}};
  for (const Row& row : rows) {
    writer.panel(row.lines);
    EXPECT_EQ(last()["added"], *parseJson(row.added)) << writeJson(last());
    EXPECT_EQ(last()["lines"].elements().size(), row.lines.size());
  }
}

}  // namespace
