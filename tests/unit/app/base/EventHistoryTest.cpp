#include "app/base/EventSinks.h"

#include <gtest/gtest.h>

#include <thread>

using namespace korvel;

namespace {

using Clock = Waiter::Clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

struct EventHistoryTest : testing::Test {
  EventHistoryTest() { writer.addSink(history); }

  std::optional<JsonValue> find(const EventPattern& pattern) {
    return history.await(pattern, Clock::now());
  }

  Waiter waiter;
  EventHistory history{waiter};
  EventWriter writer;
};

TEST_F(EventHistoryTest, AnEventThatCameBeforeIsFoundOnce) {
  writer.command("refresh");
  EXPECT_TRUE(find({"command", {}}));
  EXPECT_FALSE(find({"command", {}}));
}

TEST_F(EventHistoryTest, EventsMayBeWaitedForInAnyOrder) {
  writer.command("first");
  writer.command("second");
  EXPECT_TRUE(find({"command", {{"name", {"second"}}}}));
  EXPECT_TRUE(find({"command", {{"name", {"first"}}}}));
}

TEST_F(EventHistoryTest, TheOldestOfSeveralMatchesComesFirst) {
  writer.network("a", 1);
  writer.network("b", 2);
  EXPECT_EQ((*find({"network", {}}))["problem"].asString(), "a");
  EXPECT_EQ((*find({"network", {}}))["problem"].asString(), "b");
}

TEST_F(EventHistoryTest, KeysAreComparedWithTheirValuesText) {
  const JsonValue event = JsonValue::object(
      {{"event", "x"}, {"text", "a b"}, {"type", 14}, {"ok", true}, {"none", JsonValue()}});
  struct Row {
    const char* key;
    const char* value;
    bool matches;
  };
  for (const Row& row : {Row{"text", "a b", true}, Row{"text", "a", false}, Row{"type", "14", true},
                         Row{"type", "1", false}, Row{"ok", "true", true}, Row{"ok", "yes", false},
                         Row{"none", "null", true}, Row{"missing", "", false}}) {
    const EventPattern pattern{"x", {{row.key, {row.value}}}};
    EXPECT_EQ(pattern.matches(event), row.matches) << row.key << "=" << row.value;
  }
  EXPECT_FALSE((EventPattern{"x", {{"type", {"14"}}, {"ok", {"false"}}}}).matches(event));
  EXPECT_TRUE((EventPattern{"x", {{"text", {"E0001", "a b"}}}}).matches(event));
}

TEST_F(EventHistoryTest, WaitsForAnEventThatIsYetToCome) {
  std::thread other([this] {
    writer.command("noise");
    writer.notification("now");
  });
  EXPECT_TRUE(history.await({"notification", {}}, Clock::now() + seconds(20)));
  other.join();
}

TEST_F(EventHistoryTest, GivesUpAtTheDeadlineAndWhenTheProgramEnds) {
  const auto before = Clock::now();
  EXPECT_FALSE(history.await({"closed", {}}, before + milliseconds(30)));
  EXPECT_GE(Clock::now() - before, milliseconds(30));
  std::thread other([this] { waiter.end(); });
  EXPECT_FALSE(history.await({"closed", {}}, Clock::now() + seconds(60)));
  other.join();
  EXPECT_LT(Clock::now() - before, seconds(30));
}

TEST_F(EventHistoryTest, OfVeryManyTheOldestAreForgotten) {
  writer.command("oldest");
  for (std::size_t i = 0; i < EventHistory::kMaxEvents; ++i) writer.command("other");
  EXPECT_FALSE(find({"command", {{"name", {"oldest"}}}}));
  EXPECT_TRUE(find({"command", {{"name", {"other"}}}}));
}

TEST_F(EventHistoryTest, OfVeryLargeOnesTheOldestAreForgotten) {
  const std::string large(EventHistory::kMaxBytes / 4, 'x');
  writer.command("oldest");
  for (int i = 0; i < 5; ++i) writer.notification(large);
  EXPECT_FALSE(find({"command", {}}));
  EXPECT_TRUE(find({"notification", {}}));
}

}  // namespace
