#include "app/window/AskBar.h"

#include <gtest/gtest.h>

#include <QDialogButtonBox>
#include <QLabel>
#include <QLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QToolButton>
#include <QTreeWidget>

#include "app/window/MessageBar.h"
#include "tests/window/WindowScene.h"

using namespace korvel;

namespace {

AskRow askOf(long number, const QString& from, const QString& name, const QString& text = {}) {
  AskRow row;
  row.number = number;
  row.from = from;
  row.to = "ANNA";
  row.kind = "edit";
  row.name = name;
  row.text = text;
  return row;
}

AskAnswer givenOf(const QString& name) {
  return {"BEN gives you the edit \"" + name + "\"", "edit", "E-" + name, name, {}, true};
}

struct AskBarTest : testing::Test {
  void show(std::vector<AskRow> rows) {
    Snapshot snapshot;
    snapshot.asks = std::make_shared<const std::vector<AskRow>>(std::move(rows));
    teller.takeSnapshot(snapshot);
  }

  /// Presses the button of a bar that has this text.
  static bool press(const MessageBar& bar, const QString& text) {
    for (std::size_t i = 0; i < 3; ++i) {
      if (bar.button(i).isHidden() || bar.button(i).text() != text) continue;
      bar.button(i).click();
      return true;
    }
    return false;
  }

  AskDialog* dialog() { return window.findChild<AskDialog*>("askDialog"); }

  QPushButton* button(const QString& text) {
    for (QPushButton* each : dialog()->findChildren<QPushButton*>()) {
      if (each->text() == text) return each;
    }
    return nullptr;
  }

  AskBarTest() { window.show(); }

  const WithoutDisplay display;
  QWidget window;
  MessageBar asks{"asks", &window};
  MessageBar answers{"answers", &window};
  QStringList lines;
  AskTeller::Ended ended;  ///< of the last line
  AskTeller teller{window, asks, answers,
                   [this](const QString& line, const AskTeller::Ended& then) {
                     lines.append(line);
                     ended = then;
                   }};
};

TEST_F(AskBarTest, WhatIsAwaitedIsListedAndEnded) {
  AskRow awaited = askOf(4, "ANNA", "Quay");
  awaited.isOwn = awaited.isAwaited = true;
  awaited.to = "BEN";
  show({awaited});
  EXPECT_TRUE(asks.isHidden()) << "nobody waits for an answer";
  teller.showAll();
  ASSERT_TRUE(dialog());
  const QTreeWidgetItem& row = *dialog()->list().topLevelItem(0);
  EXPECT_EQ(row.text(0), "you wait for BEN");
  EXPECT_EQ(row.text(1), "the edit \"Quay\"");
  EXPECT_EQ(row.text(2), "to be told when it is free");
  EXPECT_FALSE(dialog()->words().isEnabled());
  ASSERT_TRUE(button("&Wait no longer"));
  button("&Wait no longer")->click();
  EXPECT_EQ(lines, QStringList("answer 4 no"));
}

TEST_F(AskBarTest, WordsOfAnAnswerThatFailsStay) {
  show({askOf(7, "BEN", "Quay")});
  teller.showAll();
  dialog()->words().setText("all yours");
  button("&Give")->click();
  EXPECT_EQ(lines, QStringList("answer 7 give \"all yours\""));
  ended(false);
  EXPECT_EQ(dialog()->words().text(), "all yours");
  button("&Give")->click();
  dialog()->words().setText("and more");
  ended(true);
  EXPECT_EQ(dialog()->words().text(), "and more") << "typed meanwhile";
  dialog()->words().setText("bye");
  button("&Give")->click();
  EXPECT_EQ(lines.size(), 2) << "answered already";
}

TEST_F(AskBarTest, OneAskIsToldInWordsAndAnsweredAtOnce) {
  show({askOf(7, "BEN", "Opening titles", "please")});
  EXPECT_EQ(asks.text(), "BEN asks for the edit \"Opening titles\": please");
  EXPECT_FALSE(asks.isHidden());
  EXPECT_TRUE(press(asks, "Give"));
  EXPECT_TRUE(press(asks, "Give"));
  EXPECT_TRUE(press(asks, "Not now"));
  EXPECT_EQ(lines, QStringList("answer 7 give")) << "a second click answers nothing";
  ended(false);
  EXPECT_TRUE(press(asks, "Not now"));
  EXPECT_EQ(lines, QStringList({"answer 7 give", "answer 7 no"})) << "it had failed";
  EXPECT_FALSE(asks.isHidden()) << "until the station says that it is answered";
  show({});
  EXPECT_TRUE(asks.isHidden());
}

TEST_F(AskBarTest, WhereThereIsNoRoomBesideTheTextTheButtonsAreBelowIt) {
  const auto* const label = window.findChild<QLabel*>("asksText");
  for (const int width : {900, 240}) {
    asks.resize(width, 200);
    show({});
    show({askOf(width, "BEN", "Opening titles")});
    asks.layout()->activate();
    EXPECT_GT(label->width(), 150) << width;
    EXPECT_EQ(asks.button().mapTo(&asks, QPoint()).y() > label->geometry().bottom(), width == 240)
        << width;
  }
}

TEST_F(AskBarTest, ManyAsksAreOneLineAndNoneIsLost) {
  std::vector<AskRow> rows;
  for (int i = 1; i <= 1000; ++i) rows.push_back(askOf(i, QString("U%1").arg(i), "Quay"));
  rows[0].isOwn = true;
  show(rows);
  EXPECT_TRUE(asks.text().startsWith("999 asks: U2 for the edit \"Quay\", U3 for "))
      << asks.text().toStdString();
  EXPECT_TRUE(asks.text().endsWith(", 993 more")) << asks.text().toStdString();
  EXPECT_EQ(teller.waiting(), 999u);
  EXPECT_TRUE(press(asks, "Answer them…"));
  EXPECT_EQ(dialog()->list().topLevelItemCount(), 1000) << "own ones, too";
}

TEST_F(AskBarTest, AWordGoesBackWithTheAnswer) {
  show({askOf(7, "BEN", "Quay")});
  EXPECT_TRUE(press(asks, "With a word…"));
  ASSERT_NE(dialog(), nullptr);
  dialog()->words().setText("at \"five\"; wait");
  button("&Not now")->click();
  EXPECT_EQ(lines, QStringList("answer 7 no \"at \\\"five\\\"; wait\""));
  EXPECT_NE(dialog()->words().text(), "") << "as long as it may be refused";
  ended(false);
  EXPECT_EQ(dialog()->words().text(), "at \"five\"; wait");
  button("&Not now")->click();
  ended(true);
  EXPECT_EQ(dialog()->words().text(), "");
}

TEST_F(AskBarTest, WordsOfADialogThatWasClosedAreThereAgainUntilTheyAreSent) {
  show({askOf(7, "BEN", "Quay")});
  const auto close = [this] {
    QTest::keyClick(dialog(), Qt::Key_Escape);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    ASSERT_EQ(dialog(), nullptr);
  };
  teller.showAll();
  dialog()->words().setText("at five");
  close();
  teller.showAll();
  EXPECT_EQ(dialog()->words().text(), "at five");
  button("&Not now")->click();
  ended(true);
  close();
  teller.showAll();
  EXPECT_EQ(dialog()->words().text(), "");
}

TEST_F(AskBarTest, WordsAreNotForTheNextThoughTheDialogWasClosedBeforeTheyWereTaken) {
  show({askOf(7, "BEN", "Quay"), askOf(8, "CARL", "Pier")});
  const auto giveAndClose = [this](bool succeeds) {
    teller.showAll();
    dialog()->words().setText("at five");
    button("&Give")->click();
    QTest::keyClick(dialog(), Qt::Key_Escape);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    ended(succeeds);
    teller.showAll();
  };
  giveAndClose(false);
  EXPECT_EQ(dialog()->words().text(), "at five") << "refused";
  giveAndClose(true);
  EXPECT_EQ(dialog()->words().text(), "");
}

TEST_F(AskBarTest, ReturnInTheWordsLosesNothing) {
  show({askOf(7, "BEN", "Quay")});
  teller.showAll();
  dialog()->words().setText("at five");
  QTest::keyClick(&dialog()->words(), Qt::Key_Return);
  EXPECT_TRUE(lines.isEmpty());
  ASSERT_TRUE(dialog()->isVisible());
  EXPECT_EQ(dialog()->words().text(), "at five");
}

TEST_F(AskBarTest, WhoTypesWhileTheAskIsTakenBackGoesOnTyping) {
  show({askOf(7, "BEN", "Quay")});
  teller.showAll();
  QLineEdit& words = dialog()->words();
  QApplication::setActiveWindow(dialog());
  words.setFocus();
  QTest::keyClicks(&words, "not");
  show({});
  EXPECT_TRUE(words.isEnabled());
  EXPECT_TRUE(words.hasFocus());
  EXPECT_TRUE(dialog()->findChild<QLabel*>("gone")->isVisible());
  QTest::keyClicks(QApplication::focusWidget(), " before five");
  QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
  EXPECT_EQ(words.text(), "not before five");
  EXPECT_TRUE(dialog()->isVisible());
  EXPECT_TRUE(lines.isEmpty());
  show({askOf(8, "CARL", "Pier")});
  dialog()->list().setCurrentItem(dialog()->list().topLevelItem(0));
  EXPECT_FALSE(dialog()->findChild<QLabel*>("gone")->isVisible());
}

TEST_F(AskBarTest, NoClickIsTakenWhereAnotherAskHasJustTakenThePlace) {
  show({askOf(1, "BEN", "Quay"), askOf(2, "CARL", "Pier")});
  show({askOf(2, "CARL", "Pier")});
  EXPECT_TRUE(press(asks, "Give"));
  EXPECT_TRUE(lines.isEmpty()) << "it was meant for \"Answer them\"";
  EXPECT_TRUE(waitFor([this] { return press(asks, "Give") && !lines.isEmpty(); }));
  EXPECT_EQ(lines, QStringList("answer 2 give"));
}

TEST_F(AskBarTest, WordsForOneWhoTookHisAskBackAreForNobodyElse) {
  show({askOf(1, "BEN", "Quay"), askOf(2, "CARL", "Pier")});
  teller.showAll();
  dialog()->words().setText("all yours");
  show({askOf(2, "CARL", "Pier")});
  show({askOf(2, "CARL", "Pier"), askOf(3, "DORA", "Mole")});
  EXPECT_EQ(dialog()->list().currentItem(), nullptr);
  EXPECT_FALSE(button("&Give")->isEnabled());
  EXPECT_EQ(dialog()->words().text(), "all yours");
}

TEST_F(AskBarTest, TheChosenAskStaysChosenWhateverComesAndGoes) {
  show({askOf(1, "BEN", "Quay"), askOf(2, "CARL", "Pier")});
  teller.showAll();
  QTreeWidget& list = dialog()->list();
  list.setCurrentItem(list.topLevelItem(1));
  show({askOf(2, "CARL", "Pier"), askOf(3, "DORA", "Mole")});
  button("&Give")->click();
  EXPECT_EQ(lines, QStringList("answer 2 give"));
  show({askOf(3, "DORA", "Mole")});
  button("&Give")->click();
  EXPECT_EQ(lines.size(), 1) << "the one beside it was chosen by nobody";
}

TEST_F(AskBarTest, OnesOwnAskIsTakenBackAndNeverGiven) {
  AskRow own = askOf(4, "ANNA", "Quay");
  own.isOwn = true;
  own.to = "BEN";
  show({own});
  EXPECT_TRUE(asks.isHidden());
  teller.showAll();
  EXPECT_FALSE(button("&Give")->isEnabled());
  button("&Take it back")->click();
  EXPECT_EQ(lines, QStringList("answer 4 no"));
}

TEST_F(AskBarTest, AClosedBarComesBackWithTheNextAsk) {
  show({askOf(1, "BEN", "Quay"), askOf(2, "CARL", "Pier")});
  asks.hide();
  show({askOf(2, "CARL", "Pier")});
  EXPECT_TRUE(asks.isHidden()) << "one went";
  show({askOf(2, "CARL", "Pier"), askOf(3, "DORA", "Mole")});
  EXPECT_FALSE(asks.isHidden());
  EXPECT_TRUE(asks.text().startsWith("2 asks: CARL"));
}

TEST_F(AskBarTest, WhatWasGivenIsOfferedToBeOpened) {
  QSignalSpy opened(&teller, &AskTeller::openWanted);
  teller.takeAnswers(
      {{"CARL keeps the edit \"Pier\" for now", "edit", "E-Pier", "Pier", {}}, givenOf("Quay")});
  teller.takeAnswers({givenOf("Mole")});
  for (const char* words : {"keeps the edit \"Pier\"", "the edit \"Quay\"", "the edit \"Mole\""}) {
    EXPECT_TRUE(answers.text().contains(words)) << answers.text().toStdString();
  }
  EXPECT_FALSE(press(answers, "Open Pier"));
  EXPECT_TRUE(press(answers, "Open Mole"));
  EXPECT_TRUE(opened.isEmpty()) << "it has just taken the place of \"Open Quay\"";
  EXPECT_TRUE(waitFor([&] { return press(answers, "Open Mole") && !opened.isEmpty(); }));
  ASSERT_EQ(opened.size(), 1);
  EXPECT_EQ(opened.front().front().value<AskAnswer>().object, "E-Mole");
  EXPECT_TRUE(answers.text().contains("Quay"));
  answers.hide();
  teller.takeAnswers({givenOf("Dock")});
  EXPECT_FALSE(answers.text().contains("Quay")) << "what was closed was read";
}

TEST_F(AskBarTest, OfOneThingTheLatestAnswerStandsUntilItIsAskedForAgain) {
  const AskAnswer kept{"CARL keeps the edit \"Pier\" for now", "edit", "E-Pier", "Pier", {}};
  teller.takeAnswers({kept, givenOf("Quay")});
  teller.takeAnswers({givenOf("Pier")});
  EXPECT_FALSE(answers.text().contains("keeps")) << answers.text().toStdString();
  EXPECT_TRUE(answers.text().contains("Quay"));
  answers.hide();
  teller.takeAnswers({kept});
  AskRow again = askOf(7, "ANNA", "Pier");
  again.isOwn = true;
  show({again});
  EXPECT_TRUE(answers.isHidden()) << answers.text().toStdString();
}

TEST_F(AskBarTest, OfManyGiftsTheLatestAreOfferedToBeOpened) {
  QSignalSpy opened(&teller, &AskTeller::openWanted);
  teller.takeAnswers({givenOf("One"), givenOf("Two"), givenOf("Three"), givenOf("Four")});
  EXPECT_FALSE(press(answers, "Open One"));
  EXPECT_TRUE(press(answers, "Open Four"));
  EXPECT_TRUE(press(answers, "Open Two"));
  ASSERT_EQ(opened.size(), 2);
  EXPECT_EQ(opened[0].front().value<AskAnswer>().object, "E-Four");
  EXPECT_EQ(opened[1].front().value<AskAnswer>().object, "E-Two");
}

TEST_F(AskBarTest, NamesAndWordsOfAnyKindAreHarmless) {
  const QString odd[] = {QString(10'000, 'x'),
                         "<b>b</b>",
                         "a\nb\x07",
                         QString::fromUtf8("שלום"),
                         "%1 %2 %n",
                         "&Mine",
                         QString::fromUtf8("🎬👩‍👩‍👧")};
  std::vector<AskRow> rows;
  for (long i = 0; const QString& each : odd) rows.push_back(askOf(++i, each, each, each));
  for (const AskRow& each : rows) show({each});
  show(rows);
  teller.showAll();
  teller.takeAnswers({givenOf(odd[0]), givenOf(odd[1]), givenOf(odd[4])});
  EXPECT_TRUE(asks.text().contains("%1 %2 %n for the edit \"%1 %2 %n\""))
      << asks.text().toStdString();
  EXPECT_FALSE(asks.text().contains('\n'));
  EXPECT_LT(answers.button(0).text().size(), 100);
}

}  // namespace
