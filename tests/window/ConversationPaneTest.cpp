#include <gtest/gtest.h>

#include <QComboBox>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QSignalSpy>
#include <QTextBlock>
#include <QToolButton>

#include "app/window/TalkPanes.h"
#include "tests/window/WindowScene.h"

using namespace korvel;

namespace {

SaidLine saidOf(const QString& from, const QString& to, const QString& text) {
  SaidLine line;
  line.time = QDateTime(QDate(2026, 11, 21), QTime(17, 40));
  line.from = from;
  line.to = to;
  line.text = text;
  line.isOwn = from == "ANNA";
  return line;
}

struct ConversationPaneTest : testing::Test {
  [[nodiscard]] QString text() const { return pane.view().toPlainText(); }

  const WithoutDisplay display;
  ConversationPane pane;
};

TEST_F(ConversationPaneTest, OwnAndOthersWordsStandThereWithNamesAndTimes) {
  pane.add({saidOf("BEN", "ANNA", "Is it yours?"), saidOf("ANNA", "BEN", "Yes."),
            saidOf("BEN", "<All>", "Lunch!")});
  EXPECT_EQ(text(),
            " BE  BEN to ANNA  21 Nov 2026 17:40\nIs it yours?\n"
            " AN  ANNA to BEN  21 Nov 2026 17:40\nYes.\n"
            " BE  BEN to everybody  21 Nov 2026 17:40\nLunch!");
}

TEST_F(ConversationPaneTest, WhatWasSaidBeforeComesFirstAndIsRead) {
  pane.add({saidOf("BEN", "ANNA", "later")});
  pane.load({saidOf("BEN", "ANNA", "earlier")});
  EXPECT_LT(text().indexOf("earlier"), text().indexOf("later"));
  EXPECT_EQ(text().count("later"), 1);
  EXPECT_EQ(pane.unread(), 1);
}

TEST_F(ConversationPaneTest, OneColleaguesWordsOrThoseWithAWordInThemAreShownAlone) {
  pane.add({saidOf("BEN", "ANNA", "one"), saidOf("ANNA", "CARL", "two"),
            saidOf("CARL", "<All>", "three")});
  QComboBox& choice = pane.colleagues();
  EXPECT_EQ(choice.count(), 2 + 1) << "all, BEN, CARL";
  choice.setCurrentIndex(choice.findData("BEN"));
  EXPECT_TRUE(text().contains("one") && text().contains("three") && !text().contains("two"));
  choice.setCurrentIndex(0);
  pane.search().setText("TWO");
  EXPECT_TRUE(waitFor([&] { return text().contains("two") && !text().contains("three"); }));
  pane.add({saidOf("BEN", "ANNA", "four"), saidOf("BEN", "ANNA", "twofold")});
  EXPECT_TRUE(text().contains("twofold") && !text().contains("four"));
  pane.search().clear();
  EXPECT_TRUE(waitFor([&] { return text().contains("four"); }));
}

TEST_F(ConversationPaneTest, WhatOthersSayIsUnreadUntilSomebodyLooks) {
  QSignalSpy told(&pane, &ConversationPane::unreadChanged);
  pane.add(
      {saidOf("BEN", "ANNA", "one"), saidOf("ANNA", "BEN", "own"), saidOf("BEN", "ANNA", "two")});
  EXPECT_EQ(pane.unread(), 2);
  pane.show();
  EXPECT_EQ(pane.unread(), 0);
  QApplication::setActiveWindow(&pane);
  pane.view().setFocus();
  ASSERT_TRUE(waitFor([&] { return pane.isActiveWindow() && pane.view().hasFocus(); }));
  pane.add({saidOf("BEN", "ANNA", "three")});
  EXPECT_EQ(pane.unread(), 0) << "it is being looked at";
  pane.hide();
  pane.add({saidOf("BEN", "ANNA", "four")});
  EXPECT_EQ(pane.unread(), 1);
  EXPECT_EQ(told.size(), 3);
}

TEST_F(ConversationPaneTest, AnAskThatWasAnsweredIsReadNowAndAtTheNextStart) {
  SaidLine asked = saidOf("BEN", "ANNA", "BEN asks for the edit \"Quay\"");
  SaidLine words = saidOf("BEN", "ANNA", "please");
  SaidLine answered = saidOf("ANNA", "BEN", "ANNA gives you the edit \"Quay\"");
  asked.ask = answered.ask = "0123456789abcdef";
  pane.add({asked, words});
  EXPECT_EQ(pane.unread(), 2);
  pane.add({answered});
  EXPECT_EQ(pane.unread(), 1);
  ConversationPane next;
  next.load({asked, words, answered}, asked.time.addSecs(-60));
  EXPECT_EQ(next.unread(), 1);
}

TEST_F(ConversationPaneTest, WhatNobodyLookedAtIsUnreadAtTheNextStart) {
  QSignalSpy seen(&pane, &ConversationPane::seen);
  SaidLine early = saidOf("BEN", "ANNA", "early");
  SaidLine late = saidOf("BEN", "ANNA", "late");
  SaidLine own = saidOf("ANNA", "BEN", "own");
  late.time = own.time = early.time.addSecs(60);
  pane.load({early, late, own}, early.time);
  EXPECT_EQ(pane.unread(), 1);
  EXPECT_TRUE(seen.isEmpty());
  pane.takeLook();
  EXPECT_EQ(pane.unread(), 0);
  ASSERT_EQ(seen.size(), 1);
  EXPECT_EQ(seen[0][0].toDateTime(), late.time);
  pane.takeLook();
  EXPECT_EQ(seen.size(), 1) << "the file is not written at each move of the mouse";
}

TEST_F(ConversationPaneTest, AtTheVeryFirstStartAllCountsAsRead) {
  QSignalSpy seen(&pane, &ConversationPane::seen);
  pane.load({saidOf("BEN", "ANNA", "earlier")});
  EXPECT_EQ(pane.unread(), 0);
  EXPECT_EQ(seen.size(), 1) << "what comes from now on does not";
}

TEST_F(ConversationPaneTest, OfAFloodTheLatestStay) {
  std::vector<SaidLine> lines;
  for (int i = 0; i < 2 * ConversationPane::kMost; ++i)
    lines.push_back(saidOf("BEN", "ANNA", QString("line %1 of it\nand more").arg(i)));
  pane.add(lines);
  EXPECT_TRUE(text().endsWith(QString("line %1 of it\nand more").arg(lines.size() - 1)));
  EXPECT_LE(pane.view().blockCount(), 2 * ConversationPane::kMost);
  pane.search().setText("line 7 of");
  EXPECT_NE(text(), "") << "not at each letter";
  EXPECT_TRUE(waitFor([&] { return text().isEmpty(); })) << "forgotten";
}

TEST_F(ConversationPaneTest, WordsOfAnyKindAreShownAsTheyAre) {
  pane.resize(400, 300);
  pane.show();
  pane.add(
      {saidOf("<b>X</b>", "ANNA", "<img src=x> &amp; **bold**"),
       saidOf(QString(10'000, 'n'), "ANNA", QString(100'000, 'w')),
       saidOf(QString::fromUtf8("שלום"), "ANNA", QString::fromUtf8("👩‍👩‍👧 שלום")),
       saidOf("a\nb", "ANNA", "bell\x07 tab\t%1")});
  EXPECT_TRUE(text().contains("<img src=x> &amp; **bold**"));
  EXPECT_TRUE(text().contains("… (96,000 letters more)"));
  EXPECT_TRUE(text().contains("bell  tab %1"));
  EXPECT_TRUE(text().contains("a b to ANNA"));
  EXPECT_LT(text().size(), 6000);
  EXPECT_FALSE(pane.grab().isNull());
}

TEST_F(ConversationPaneTest, WritingGoesToTheColleagueWhoseWordsAreShown) {
  QSignalSpy asked(&pane, &ConversationPane::writeWanted);
  pane.add({saidOf("BEN", "ANNA", "one")});
  pane.colleagues().setCurrentIndex(1);
  pane.findChild<QToolButton*>("writeThere")->click();
  ASSERT_EQ(asked.size(), 1);
  EXPECT_EQ(asked.front().front().toString(), "BEN");
}

TEST_F(ConversationPaneTest, NamesWithoutEndFillNoListWithoutEnd) {
  std::vector<SaidLine> lines;
  for (int i = 0; i < 1500; ++i) lines.push_back(saidOf(QString("U%1").arg(i), "ANNA", "words"));
  pane.add(lines);
  EXPECT_EQ(pane.colleagues().count(), 500);
  EXPECT_TRUE(text().contains("U1499 to ANNA")) << "their words are there all the same";
}

}  // namespace
