#include <gtest/gtest.h>

#include <QAction>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDockWidget>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QToolButton>
#include <QTreeView>

#include "app/window/MessageBar.h"
#include "tests/window/WindowScene.h"

using namespace korvel;

namespace {

constexpr const char* kOneEdit =
    "project create Harbour\n"
    "project enter Harbour\n"
    "edit create Quay\n"
    "edit save Quay\n";

/// Two users, one of them at the window, who ask and answer each other.
class WindowTalkTest : public testing::Test, protected WindowScene {
 protected:
  /// Starts BEN, in the same project.
  std::unique_ptr<StationProcess> startBen(MainWindow& window) {
    EXPECT_TRUE(waitForProject(window, "Harbour"));
    auto ben = std::make_unique<StationProcess>(other("BEN"));
    EXPECT_TRUE(ben->waitUntilReady());
    EXPECT_TRUE(ben->command("project enter Harbour")["ok"].asBool());
    const auto isSeen = [&] {
      return window.snapshot()->presence.stations.size() == 2 &&
             !window.snapshot()->presence.stations[1].project.isEmpty();
    };
    EXPECT_TRUE(waitFor(isSeen, 60'000));
    return ben;
  }

  /// Waits until BEN was told of such an event, and gives the last of them.
  static JsonValue told(const StationProcess& ben, const std::string& event) {
    EXPECT_TRUE(waitFor([&] { return !ben.events(event).empty(); }, 60'000)) << event;
    const auto events = ben.events(event);
    return events.empty() ? JsonValue() : events.back();
  }

  static bool tells(const MessageBar& bar, const QString& text) {
    return waitFor([&] { return bar.isVisible() && bar.text() == text; }, 60'000);
  }

  /// Presses the button with this text; false while there is none.
  static bool press(const MessageBar& bar, const QString& text) {
    for (std::size_t i = 0; i < 3; ++i) {
      QToolButton& button = bar.button(i);
      if (!button.isVisible() || button.text() != text) continue;
      QTest::mouseClick(&button, Qt::LeftButton);
      return true;
    }
    return false;
  }

  /// BEN makes an edit of this name and saves it; the window lists it as his.
  static void makePier(StationProcess& ben, MainWindow& window) {
    EXPECT_TRUE(ben.command("edit create Pier")["ok"].asBool());
    EXPECT_TRUE(ben.command("edit save Pier")["ok"].asBool());
    ASSERT_TRUE(waitFor([&] { return ownerOf(window, "Pier") == "BEN"; }));
  }

  /// BEN is in the private project; the window, which wants to enter it, says so.
  static void beRefusedTrailer(StationProcess& ben, MainWindow& window) {
    EXPECT_TRUE(ben.command("project enter Trailer")["ok"].asBool());
    window.link().run("project enter Trailer");
    ASSERT_TRUE(waitFor([&] { return window.messages().text().contains("held by BEN"); }));
  }

  static QString ownerOf(const MainWindow& window, const QString& name) {
    const auto row = window.objects().find(keyOf(window, name));
    return row ? row->owner : QString();
  }
};

TEST_F(WindowTalkTest, WhoIsAskedGivesAtTheBar) {
  script = kOneEdit;
  play([this](MainWindow& window) {
    const auto ben = startBen(window);
    EXPECT_TRUE(ben->command("ask Quay please")["ok"].asBool());
    ASSERT_TRUE(tells(window.asks(), "BEN asks for the edit \"Quay\": please"))
        << window.asks().text().toStdString();
    EXPECT_TRUE(press(window.asks(), "Give"));
    EXPECT_EQ(told(*ben, "answered")["answer"].asString(), "give");
    EXPECT_TRUE(waitFor([&] { return !window.asks().isVisible(); }));
    EXPECT_TRUE(waitFor([&] { return ownerOf(window, "Quay") == "BEN"; }));
    EXPECT_TRUE(window.conversation().view().toPlainText().contains("BEN asks for the edit"));
    ASSERT_EQ(window.notifications().list().count(), 1);
    EXPECT_TRUE(window.notifications().list().item(0)->text().endsWith("\"Quay\": please"))
        << "without what stations read";
    EXPECT_FALSE(window.strip().isVisible()) << "it has a bar of its own";
  });
}

TEST_F(WindowTalkTest, ARefusedEditIsAskedForAndOpenedWhenItIsGiven) {
  script = kOneEdit;
  play([this](MainWindow& window) {
    const auto ben = startBen(window);
    makePier(*ben, window);
    clickEdit(window, "Pier");
    const ObjectsModel& edits = window.objects().model(ObjectKind::eEdits);
    const QString pier = keyOf(window, "Pier");
    ASSERT_TRUE(waitFor([&] { return edits.mayChange(pier) == false; }));
    QTest::keyClick(&window, Qt::Key_F2);
    ASSERT_TRUE(tells(window.messages(), "\"Pier\" belongs to BEN."));
    EXPECT_TRUE(press(window.messages(), "Ask BEN for it"));
    const long number = told(*ben, "asked")["number"].asLong();
    EXPECT_TRUE(tells(window.messages(), "BEN is asked for \"Pier\"."))
        << window.messages().text().toStdString();
    EXPECT_TRUE(
        ben->command("answer " + std::to_string(number) + " give \"all yours\"")["ok"].asBool());
    ASSERT_TRUE(tells(window.answers(), "BEN gives you the edit \"Pier\": all yours"))
        << window.answers().text().toStdString();
    EXPECT_TRUE(press(window.answers(), "Open Pier"));
    EXPECT_TRUE(waitFor([&] { return window.objects().find(pier)->isOpen; }));
    EXPECT_FALSE(window.answers().isVisible());
    EXPECT_TRUE(waitFor([&] { return ownerOf(window, "Pier") == "ANNA"; }));
  });
}

TEST_F(WindowTalkTest, ARefusedRoomIsAskedForAndNotTheEditOfItsName) {
  script = "project create Harbour\nproject enter Harbour\nroom create Sound\n";
  play([this](MainWindow& window) {
    const auto ben = startBen(window);
    EXPECT_TRUE(ben->command("edit create Sound")["ok"].asBool());
    EXPECT_TRUE(ben->command("room enter Sound")["ok"].asBool());
    window.link().run("room enter Sound");
    ASSERT_TRUE(waitFor([&] { return window.messages().text().contains("BEN"); }));
    ASSERT_TRUE(waitFor([&] { return press(window.messages(), "Ask BEN for it"); }));
    const JsonValue ask = told(*ben, "asked");
    EXPECT_EQ(ask["kind"].asString(), "room") << writeJson(ask);
    EXPECT_EQ(ask["name"].asString(), "Sound");
    const std::string number = std::to_string(ask["number"].asLong());
    EXPECT_TRUE(ben->command("answer " + number + " give")["ok"].asBool());
    EXPECT_TRUE(tells(window.answers(), "BEN gives you the room \"Sound\""))
        << window.answers().text().toStdString();
  });
}

TEST_F(WindowTalkTest, WhatIsGivenInAnotherProjectIsOpenedThere) {
  script = std::string("project create Trailer\n") + kOneEdit;
  play([this](MainWindow& window) {
    const auto ben = startBen(window);
    makePier(*ben, window);
    window.link().run("ask Pier");
    const long number = told(*ben, "asked")["number"].asLong();
    window.link().run("project enter Trailer");
    ASSERT_TRUE(waitForProject(window, "Trailer"));
    EXPECT_TRUE(ben->command("answer " + std::to_string(number) + " give")["ok"].asBool());
    ASSERT_TRUE(tells(window.answers(), "BEN gives you the edit \"Pier\""))
        << window.answers().text().toStdString();
    EXPECT_TRUE(press(window.answers(), "Open Pier"));
    EXPECT_TRUE(waitForProject(window, "Harbour"));
    EXPECT_TRUE(waitFor([&] {
      const auto row = window.objects().find(keyOf(window, "Pier"));
      return row && row->isOpen;
    }));
    const auto isChosen = [&] {
      const auto chosen = window.objects().chosen();
      return chosen.size() == 1 && chosen.front().name == "Pier";
    };
    EXPECT_TRUE(waitFor(isChosen));
  });
}

TEST_F(WindowTalkTest, AFewWordsGoWithAnAskAndStayWhereItIsRefused) {
  script = std::string(kOneEdit) + "project create Trailer --private\n";
  play([this](MainWindow& window) {
    const auto ben = startBen(window);
    beRefusedTrailer(*ben, window);
    EXPECT_TRUE(press(window.messages(), "With a word…"));
    QPointer<QDialog> dialog;
    ASSERT_TRUE(waitFor([&] { return (dialog = window.findChild<QDialog*>("actionDialog")); }));
    auto* const words = dialog->findChild<QLineEdit*>();
    EXPECT_EQ(words->accessibleName(), "Your words");
    words->setText(QString(301, 'x'));
    QTest::keyClick(words, Qt::Key_Return);
    QLabel* reason = nullptr;
    ASSERT_TRUE(waitFor([&] { return reason = window.findChild<QLabel*>("reason"); }));
    EXPECT_TRUE(reason->text().contains("301 bytes")) << reason->text().toStdString();
    auto* const again = reason->parentWidget()->findChild<QLineEdit*>();
    EXPECT_EQ(again->text().size(), 301);
    again->setText("before noon, please");
    QTest::keyClick(again, Qt::Key_Return);
    const JsonValue heard = told(*ben, "asked");
    EXPECT_EQ(heard["kind"].asString(), "project");
    EXPECT_EQ(heard["text"].asString(), "before noon, please");
  });
}

TEST_F(WindowTalkTest, WhatIsAwaitedIsAmongTheAsksAndEndsThere) {
  script = std::string(kOneEdit) + "project create Trailer --private\n";
  play([this](MainWindow& window) {
    const auto ben = startBen(window);
    beRefusedTrailer(*ben, window);
    EXPECT_TRUE(press(window.messages(), "Tell me when it is free"));
    const auto waiting = [&window] {
      const auto& asks = window.snapshot()->asks;
      return asks ? asks->size() : 0;
    };
    ASSERT_TRUE(waitFor([&] { return waiting() == 1; }));
    EXPECT_TRUE(window.snapshot()->asks->front().isAwaited);
    EXPECT_FALSE(window.asks().isVisible());
    window.link().run("answer 1 no");
    EXPECT_TRUE(waitFor([&] { return waiting() == 0; }));
  });
}

TEST_F(WindowTalkTest, WhoWaitsForAProjectIsToldThatItIsFree) {
  script = std::string(kOneEdit) + "project create Trailer --private\n";
  play([this](MainWindow& window) {
    const auto ben = startBen(window);
    beRefusedTrailer(*ben, window);
    EXPECT_TRUE(press(window.messages(), "Tell me when it is free"));
    ASSERT_TRUE(tells(window.messages(), "You are told when you can have it."))
        << window.messages().text().toStdString();
    EXPECT_TRUE(ben->command("project leave")["ok"].asBool());
    ASSERT_TRUE(tells(window.answers(), "You can have the project \"Trailer\" now."))
        << window.answers().text().toStdString();
    EXPECT_TRUE(press(window.answers(), "Open Trailer"));
    EXPECT_TRUE(waitForProject(window, "Trailer"));
  });
}

TEST_F(WindowTalkTest, WhatIsDiscardedForAProjectThatIsHeldIsKept) {
  script = std::string(kOneEdit) + "project create Trailer --private\n";
  play([this](MainWindow& window) {
    const auto ben = startBen(window);
    EXPECT_TRUE(ben->command("project enter Trailer")["ok"].asBool());
    command(window, "edit rename Quay Pier");
    const auto isDirty = [&] {
      const auto row = window.objects().find(keyOf(window, "Pier"));
      return row && row->isDirty;
    };
    ASSERT_TRUE(waitFor(isDirty));
    command(window, "project enter Trailer");
    ASSERT_TRUE(waitFor([&] { return answer(window, "unsavedDialog", "Discard"); }));
    EXPECT_TRUE(waitFor([&] { return window.messages().text().contains("held by BEN"); }))
        << window.messages().text().toStdString();
    EXPECT_TRUE(isDirty());
    EXPECT_TRUE(ben->command("project leave")["ok"].asBool());
    command(window, "project enter Trailer");
    ASSERT_TRUE(waitFor([&] { return answer(window, "unsavedDialog", "Discard"); }));
    EXPECT_TRUE(waitForProject(window, "Trailer"));
  });
}

TEST_F(WindowTalkTest, WordsToNobodyAreAskedForAgain) {
  script = kOneEdit;
  play([](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    window.menus().action("say {0} {1}")->trigger();
    const auto dialog = [&] { return window.findChild<QDialog*>("actionDialog"); };
    ASSERT_TRUE(waitFor([&] { return dialog() != nullptr; }));
    const auto fields = dialog()->findChildren<QLineEdit*>();
    ASSERT_GE(fields.size(), 2);
    fields[0]->setText("NOBODY");
    fields[1]->setText("lunch?");
    dialog()->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok)->click();
    EXPECT_TRUE(waitFor([&] { return window.messages().text().contains("NOBODY"); }));
    EXPECT_TRUE(waitFor([&] {
      if (!dialog() || !dialog()->isVisible()) return false;
      for (const QLineEdit* field : dialog()->findChildren<QLineEdit*>()) {
        if (field->text() == "lunch?") return true;
      }
      return false;
    }));
  });
}

TEST_F(WindowTalkTest, WhatOthersWouldSeeCutIsSaidWhileItIsWritten) {
  script = std::string(kOneEdit) + "panel open\n";
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return window.panel().isVisible(); }));
    const auto* const advice = window.panel().findChild<QLabel*>("wordsAdvice");
    ASSERT_TRUE(advice);
    window.panel().entry().setText("10 dollars");
    EXPECT_FALSE(advice->isVisible());
    window.panel().entry().setText("10 €");
    EXPECT_TRUE(advice->isVisible());
    EXPECT_TRUE(advice->text().contains("others see it cut")) << advice->text().toStdString();
    window.panel().entry().setText("delayed");
    EXPECT_TRUE(advice->text().contains("capital \"D\"")) << advice->text().toStdString();
    window.panel().entry().clear();
    EXPECT_FALSE(advice->isVisible());
  });
}

TEST_F(WindowTalkTest, APaneThatIsAskedForComesToTheFront) {
  script = kOneEdit;
  play([](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    const auto dock = [&](const char* name) { return window.findChild<QDockWidget*>(name); };
    QDockWidget* const history = dock("historyDock");
    QDockWidget* const conversation = dock("conversationDock");
    const auto isInSight = [](const QDockWidget* one) {
      return !one->isHidden() && !one->visibleRegion().isEmpty();
    };
    conversation->toggleViewAction()->trigger();
    EXPECT_TRUE(waitFor([&] { return isInSight(conversation); }));
    history->toggleViewAction()->trigger();
    EXPECT_TRUE(waitFor([&] { return isInSight(history) && !isInSight(conversation); }));
    conversation->toggleViewAction()->trigger();
    EXPECT_TRUE(waitFor([&] { return isInSight(conversation); })) << "it was behind";
    conversation->toggleViewAction()->trigger();
    EXPECT_TRUE(waitFor([&] { return conversation->isHidden(); })) << "it was in sight";
  });
}

TEST_F(WindowTalkTest, ARefusedProjectIsAskedFor) {
  script = std::string(kOneEdit) + "project create Trailer --private\n";
  play([this](MainWindow& window) {
    const auto ben = startBen(window);
    beRefusedTrailer(*ben, window);
    // Whether or not the list knew of the holder before.
    EXPECT_TRUE(waitFor([&] { return press(window.messages(), "Ask BEN for it"); }));
    EXPECT_EQ(told(*ben, "asked")["kind"].asString(), "project");
  });
}

TEST_F(WindowTalkTest, WhoGivesAProjectIsToldThatHeLeftIt) {
  script = "project create Trailer --private\nproject enter Trailer\n";
  play([this](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Trailer"));
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    EXPECT_TRUE(ben.command("ask project:Trailer")["ok"].asBool());
    ASSERT_TRUE(waitFor([&] { return press(window.asks(), "Give"); }, 60'000));
    EXPECT_TRUE(tells(window.messages(), "You left the project \"Trailer\": BEN can enter it."))
        << window.messages().text().toStdString();
  });
}

TEST_F(WindowTalkTest, WhatIsSaidIsOneConversationCountedUntilItIsLookedAt) {
  script = std::string(kOneEdit) + "user add BEN\n";
  play([this](MainWindow& window) {
    const auto ben = startBen(window);
    EXPECT_TRUE(ben->command("user add ANNA")["ok"].asBool());
    window.link().run("say BEN \"Is Quay yours?\"");
    const QPlainTextEdit& said = window.conversation().view();
    EXPECT_TRUE(waitFor([&] { return said.toPlainText().contains("Is Quay yours?"); }));
    EXPECT_EQ(window.windowTitle(), "Harbour - Station") << "own words are read";
    EXPECT_TRUE(ben->command("say ANNA \"dear Anna, no\"")["ok"].asBool());
    EXPECT_TRUE(waitFor([&] { return window.windowTitle() == "(1) Harbour - Station"; }));
    auto* const dock = window.findChild<QDockWidget*>("conversationDock");
    EXPECT_EQ(dock->toggleViewAction()->text(), "Conversation (1)");
    EXPECT_EQ(window.notifications().unread(), 1);
    QTest::keyClick(&window, Qt::Key_C, Qt::ControlModifier | Qt::AltModifier);
    EXPECT_TRUE(waitFor([&] { return said.isVisible(); }));
    EXPECT_EQ(window.windowTitle(), "Harbour - Station");
    EXPECT_EQ(dock->toggleViewAction()->text(), "Conversation");
    EXPECT_EQ(window.notifications().unread(), 0) << "the same words";
    EXPECT_TRUE(said.toPlainText().contains("\ndear Anna, no")) << "as it was typed";
  });
}

TEST_F(WindowTalkTest, WhatWasSaidBeforeTheWindowOpenedIsThere) {
  script = "user add BEN\nsay BEN \"before\"\n";
  play([](MainWindow& window) {
    const QPlainTextEdit& said = window.conversation().view();
    EXPECT_TRUE(waitFor([&] { return said.toPlainText().contains("before"); }));
    EXPECT_EQ(said.toPlainText().count("before"), 1);
    EXPECT_EQ(window.conversation().unread(), 0);
  });
}

}  // namespace
