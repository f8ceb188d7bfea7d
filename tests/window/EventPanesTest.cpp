#include "app/window/EventPanes.h"

#include <gtest/gtest.h>

#include <QListWidget>
#include <QPlainTextEdit>
#include <QSignalSpy>

#include "app/window/EventFeed.h"
#include "station/base/Json.h"
#include "tests/window/WindowScene.h"

using namespace korvel;

namespace {

NotificationLine line(const QString& sender, const QString& text) {
  return {QDateTime::currentDateTime(), sender, text};
}

struct NotificationsPaneTest : testing::Test {
  WithoutDisplay display;
  NotificationsPane pane;
};

TEST_F(NotificationsPaneTest, WhatNobodySawIsCountedUntilTheListIsOnTheScreen) {
  pane.add({line("ANNA", "one"), line("BEN", "two")});
  pane.add({line({}, "three")});
  EXPECT_EQ(pane.unread(), 3);
  EXPECT_TRUE(pane.list().item(2)->font().bold());
  pane.show();
  EXPECT_EQ(pane.unread(), 0);
  EXPECT_TRUE(pane.list().item(2)->font().bold()) << "what was new can still be told";
  pane.hide();
  EXPECT_FALSE(pane.list().item(2)->font().bold());
  EXPECT_TRUE(pane.list().item(2)->text().endsWith("ANNA: one"));
  EXPECT_TRUE(pane.list().item(0)->text().endsWith("  three"));
}

TEST_F(NotificationsPaneTest, AListThatWasLeftOpenIsUnreadUntilSomebodyLooks) {
  pane.resize(300, 300);
  pane.show();
  pane.add({line("BEN", "one")});
  EXPECT_EQ(pane.unread(), 1);
  EXPECT_TRUE(pane.list().item(0)->font().bold());
  QTest::mouseMove(pane.list().viewport(), QPoint(20, 20));
  EXPECT_EQ(pane.unread(), 0);
  pane.add({line("BEN", "two")});
  EXPECT_EQ(pane.unread(), 1);
  EXPECT_FALSE(pane.list().item(1)->font().bold());
  QTest::keyClick(&pane.list(), Qt::Key_Down);
  EXPECT_EQ(pane.unread(), 0);
}

TEST_F(NotificationsPaneTest, AsksHaveABarOfTheirOwnAndNameWhoAsksOnce) {
  NotificationLine ask = line("BEN", "BEN asks for \"Quay\"");
  ask.isAsking = true;
  pane.add({ask, line("BEN", "BEN asks for coffee")});
  EXPECT_EQ(pane.unread(), 1);
  ASSERT_EQ(pane.list().count(), 2);
  EXPECT_TRUE(pane.list().item(1)->text().endsWith("  BEN asks for \"Quay\""));
  EXPECT_TRUE(pane.list().item(0)->text().endsWith("  BEN: BEN asks for coffee"));
}

TEST(HappenedLineTest, WhatWasGivenToTheUserSaysSo) {
  const auto given = parseJson(
      R"({"by":"ANNA","what":"edit","cookie":"E1","name":"Quay","deeds":[{"did":"given","to":"BEN"}]})");
  ASSERT_TRUE(given);
  EXPECT_EQ(happenedLine(*given, "BEN").deedsText(), "gave it to you");
  EXPECT_EQ(happenedLine(*given, "ANNA").deedsText(), "gave it to BEN");
}

TEST_F(NotificationsPaneTest, OfALongMessageTheListHasTheBeginningAndAReturnTheWhole) {
  const QString text(60'000, QLatin1Char('x'));
  pane.add({line("ANNA", text)});
  pane.resize(300, 300);
  pane.show();
  const QString shown = pane.list().item(0)->text();
  EXPECT_LT(shown.size(), 400);
  EXPECT_TRUE(shown.endsWith(QStringLiteral("… (%L1 letters)").arg(60'000))) << shown.toStdString();
  pane.chooseLatest();
  EXPECT_EQ(pane.whole().toPlainText(), text);
  const QSignalSpy whole(&pane, &NotificationsPane::wholeWanted);
  QTest::keyClick(&pane.list(), Qt::Key_Return);
  ASSERT_EQ(whole.count(), 1);
  EXPECT_TRUE(whole[0][0].toString().startsWith("ANNA, "));
  EXPECT_EQ(whole[0][1].toString(), text);
}

TEST(EventFeedTest, WhatTheWireCutSaysSo) {
  EventFeed feed;
  feed.take({"notification", JsonValue::object({{"source", "ANNA"}, {"text", "lunch?"}}), {}});
  feed.take({"notification",
             JsonValue::object({{"source", "ANNA"}, {"text_hex", "352ce2"}, {"cut", true}}),
             {}});
  const News news = feed.takeNews();
  ASSERT_EQ(news.notifications.size(), 2u);
  EXPECT_EQ(news.notifications[0].text, "lunch?");
  EXPECT_TRUE(news.notifications[1].text.startsWith("5,"));
  EXPECT_TRUE(news.notifications[1].text.endsWith(" (cut here)"));
}

TEST(EventFeedTest, AShareThatGoesOrComesBackIsLookedAtAnew) {
  EventFeed feed;
  feed.take({"health", JsonValue::object({{"share", "bad"}, {"why", "It is away."}}), {}});
  EXPECT_EQ(feed.takeNews().trouble, "It is away.");
  EXPECT_TRUE(feed.takeChanges().projects);
  EXPECT_FALSE(feed.hasChanges());
}

TEST(EventFeedTest, WhatHappensWakesTheWindowOnceUntilItLooks) {
  EventFeed feed;
  int woken = 0;
  feed.wakeBy([&woken] { ++woken; });
  feed.noteDue();
  EXPECT_EQ(woken, 0);
  feed.noteCommand("edit create");
  feed.noteCommand("edit create");
  EXPECT_EQ(woken, 1);
  feed.takeNews();
  feed.take({"presence", JsonValue::object(), "{}"});
  EXPECT_EQ(woken, 2);
  feed.wakeBy({});
  feed.takeNews();
  feed.noteCommand("edit create");
  EXPECT_EQ(woken, 2);
}

}  // namespace
