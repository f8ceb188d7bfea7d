#include <gtest/gtest.h>

#include <QAbstractScrollArea>
#include <QAccessible>
#include <QDockWidget>
#include <QFileDialog>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>
#include <QTreeView>
#include <algorithm>
#include <cmath>
#include <fstream>

#include "app/commands/Command.h"
#include "app/window/ActionTable.h"
#include "app/window/Appearance.h"
#include "app/window/HistoryPane.h"
#include "app/window/MessageBar.h"
#include "tests/window/WindowScene.h"

using namespace korvel;

namespace {

constexpr const char* kTwoEdits =
    "project create Harbour\n"
    "project enter Harbour\n"
    "edit create Quay\n"
    "edit create Pier\n";

/// Everything that the Tab key reaches.
QList<QWidget*> reachable(MainWindow& window) {
  QList<QWidget*> found;
  for (QWidget* each : window.findChildren<QWidget*>()) {
    if (each->isVisible() && each->isEnabled() && (each->focusPolicy() & Qt::TabFocus) &&
        !each->focusProxy()) {
      found.append(each);
    }
  }
  return found;
}

/// All panes and a message, so that nothing is left out.
void showEverything(MainWindow& window) {
  ASSERT_TRUE(waitForProject(window, "Harbour"));
  openPanel(window);
  for (QDockWidget* dock : window.findChildren<QDockWidget*>()) dock->show();
  window.messages().tell(MessageBar::Kind::eNote, "A message");
  window.messages().offer({"Undo"});
  NotificationLine line{QDateTime::currentDateTime(), "BEN", "words"};
  window.notifications().add({line});
  ASSERT_TRUE(waitFor([&] { return !window.detail().key().isEmpty(); }));
}

std::string nameOfWidget(const QWidget* widget) {
  return widget->metaObject()->className() + (" " + widget->objectName()).toStdString();
}

class WindowWaysTest : public testing::Test, protected WindowScene {};

TEST_F(WindowWaysTest, EscapeClearsTheSearchAndDownLeavesItIntoTheList) {
  script = kTwoEdits;
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return window.objects().rows(ObjectKind::eEdits).size() == 2; }));
    QTreeView& list = window.objects().view(ObjectKind::eEdits);
    auto& search = *window.findChild<QLineEdit*>("search");
    list.selectionModel()->clear();
    QTest::keyClick(&window, Qt::Key_F, Qt::ControlModifier);
    EXPECT_EQ(window.focusWidget(), &search);
    QTest::keyClicks(&search, "pie");
    EXPECT_EQ(list.model()->rowCount(), 1);
    QTest::keyClick(&search, Qt::Key_Down);
    EXPECT_EQ(window.focusWidget(), &list);
    ASSERT_EQ(window.objects().chosen().size(), 1U);
    EXPECT_EQ(window.objects().chosen().front().name, "Pier");
    QTest::keyClick(&list, Qt::Key_Escape);
    EXPECT_EQ(list.model()->rowCount(), 2) << "in the list, too";
    EXPECT_EQ(window.focusWidget(), &list);
    EXPECT_EQ(window.objects().chosen().front().name, "Pier");
    search.setFocus();
    QTest::keyClicks(&search, "pie");
    QTest::keyClick(&search, Qt::Key_Escape);
    EXPECT_EQ(list.model()->rowCount(), 2);
    EXPECT_EQ(window.focusWidget(), &search);
    QTest::keyClick(&search, Qt::Key_Escape);
    EXPECT_EQ(window.focusWidget(), &list);
  });
}

TEST_F(WindowWaysTest, TheOnlyRowOfAListIsChosenByTheArrows) {
  script = "project create Harbour\nproject enter Harbour\nroom create Foyley\nbin create Best\n";
  play([](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    ASSERT_TRUE(waitFor([&] { return window.projects().rooms().model()->rowCount() == 1; }));
    window.objects().setKind(ObjectKind::eBins);
    for (QTreeView* list : {&window.objects().view(ObjectKind::eBins), &window.projects().rooms(),
                            &window.projects().projects()}) {
      list->setFocus(Qt::TabFocusReason);
      QTest::keyClick(list, Qt::Key_Down);
      EXPECT_EQ(list->selectionModel()->selectedRows().size(), 1)
          << list->objectName().toStdString();
    }
    EXPECT_EQ(window.objects().chosen().size(), 1U);
    EXPECT_TRUE(window.projects().chosenRoom());
  });
}

/// How many dots differ by more than a shade.
int differingDots(const QImage& a, const QImage& b) {
  int dots = 0;
  for (int y = 0; y < std::min(a.height(), b.height()); ++y) {
    for (int x = 0; x < std::min(a.width(), b.width()); ++x) {
      const int less = qGray(a.pixel(x, y));
      dots += std::abs(less - qGray(b.pixel(x, y))) > 24;
    }
  }
  return dots;
}

TEST_F(WindowWaysTest, TheFocusIsVisibleWhereverItIs) {
  script = kTwoEdits;
  play([](MainWindow& window) {
    showEverything(window);
    const QList<QWidget*> all = reachable(window);
    EXPECT_GT(all.size(), 8);
    for (QWidget* each : all) {
      QWidget* const other = each == all.front() ? all.back() : all.front();
      other->setFocus(Qt::TabFocusReason);
      QCoreApplication::processEvents();
      const QImage without = each->grab().toImage();
      each->setFocus(Qt::TabFocusReason);
      QCoreApplication::processEvents();
      EXPECT_GT(differingDots(without, each->grab().toImage()), 30) << nameOfWidget(each);
    }
  });
}

TEST_F(WindowWaysTest, TabGoesWhereTheFocusIsVisible) {
  script = kTwoEdits;
  play([](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    QApplication::setActiveWindow(&window);
    window.projects().projects().setFocus();
    for (int i = 0; i < 12; ++i) {
      QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
      QWidget* const now = QApplication::focusWidget();
      ASSERT_TRUE(now);
      EXPECT_TRUE(reachable(window).contains(now)) << nameOfWidget(now);
      const auto* const area = qobject_cast<QAbstractScrollArea*>(now);
      const QWidget* const seen = area ? area->viewport() : now;
      EXPECT_FALSE(seen->visibleRegion().isEmpty()) << nameOfWidget(now);
    }
  });
}

TEST_F(WindowWaysTest, LeavingAProjectLeavesTheKeyboardAtTheListOfProjects) {
  script = kTwoEdits;
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return !window.objects().rows(ObjectKind::eEdits).empty(); }));
    QApplication::setActiveWindow(&window);
    window.objects().view(ObjectKind::eEdits).setFocus();
    window.link().run("project leave");
    ASSERT_TRUE(waitForProject(window, ""));
    EXPECT_TRUE(waitFor([&] { return window.projects().projects().hasFocus(); }));
  });
}

TEST_F(WindowWaysTest, ASearchEndsWithTheProject) {
  script = kTwoEdits + std::string("project create Zoo\n");
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return !window.objects().rows(ObjectKind::eEdits).empty(); }));
    auto* const search = window.findChild<QLineEdit*>("search");
    search->setText("nothing is called so");
    window.link().run("project enter Zoo");
    ASSERT_TRUE(waitForProject(window, "Zoo"));
    EXPECT_TRUE(waitFor([&] { return search->text().isEmpty(); }));
  });
}

TEST_F(WindowWaysTest, EditsOfOneNameAreToldApart) {
  script = kTwoEdits + std::string("edit create Twin\nedit create Twin\n");
  play([](MainWindow& window) {
    const auto twins = [&window] {
      QStringList shown;
      const QAbstractItemModel& list = *window.objects().view(ObjectKind::eEdits).model();
      for (int i = 0; i < list.rowCount(); ++i) {
        const QString name = list.index(i, 0).data().toString();
        if (name.startsWith("Twin")) shown.append(name);
      }
      return shown;
    };
    ASSERT_TRUE(waitFor([&] { return twins().size() == 2; }));
    EXPECT_NE(twins()[0], twins()[1]);
    window.link().run("edit delete " + keyOf(window, "Twin"));
    EXPECT_TRUE(waitFor([&] { return twins() == QStringList("Twin"); }));
  });
}

TEST_F(WindowWaysTest, DelDeletesInEveryListOfObjects) {
  script = kTwoEdits + std::string("bin create Rushes\n");
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return !window.objects().rows(ObjectKind::eBins).empty(); }));
    window.objects().choose(ObjectKind::eBins,
                            window.objects().rows(ObjectKind::eBins).front().key);
    QApplication::setActiveWindow(&window);
    window.objects().view(ObjectKind::eBins).setFocus();
    QTest::keyClick(&window.objects().view(ObjectKind::eBins), Qt::Key_Delete);
    ASSERT_TRUE(waitFor([&] { return answer(window, "deleteDialog", "Delete"); }));
    EXPECT_TRUE(waitFor([&] { return window.objects().rows(ObjectKind::eBins).empty(); }));
    EXPECT_EQ(window.objects().rows(ObjectKind::eEdits).size(), 2U);
  });
}

TEST_F(WindowWaysTest, AnOpenHistoryLeavesTheTimelineItsShare) {
  script = kTwoEdits;
  play([](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    window.resize(1280, 800);
    const auto room = [&window] { return window.detail().height() + window.objects().height(); };
    const auto share = [&] { return static_cast<double>(window.detail().height()) / room(); };
    ASSERT_TRUE(waitFor([&] { return window.height() == 800 && share() > 0.3; })) << share();
    // What the new size led to is over before the history opens.
    for (int i = 0; i < 3; ++i) QCoreApplication::processEvents();
    const double before = share();
    const int roomBefore = room();
    QTest::keyClick(&window, Qt::Key_H, Qt::ControlModifier);
    ASSERT_TRUE(waitFor([&] { return room() < roomBefore - 100; })) << room();
    EXPECT_TRUE(waitFor([&] { return share() > 0.9 * before; })) << share() << " of " << before;
  });
}

TEST_F(WindowWaysTest, InASmallWindowAMessageIsReadAboveItsButtons) {
  script = kTwoEdits;
  play([](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    window.resize(300, 200);
    MessageBar& bar = window.recovery();
    bar.tell(MessageBar::Kind::eChange, "Unsaved changes of 12:04 in \"Quay\" were left.");
    bar.offer({"Take up", "Throw away", "Later"});
    const auto* const text = bar.findChild<QLabel*>("recoveryText");
    EXPECT_TRUE(waitFor([&] { return text->width() > 180; })) << text->width();
    for (std::size_t i = 0; i < 3; ++i) {
      const auto top = [&] { return bar.button(i).mapTo(&bar, QPoint()).y(); };
      EXPECT_GE(bar.button(i).width(), bar.button(i).sizeHint().width()) << i;
      EXPECT_TRUE(waitFor([&] { return top() > text->geometry().bottom(); })) << i;
    }
  });
}

TEST_F(WindowWaysTest, WhatTakesTheFocusAndTheStatusHaveNamesForAScreenReader) {
  script = kTwoEdits;
  play([](MainWindow& window) {
    showEverything(window);
    QList<QWidget*> all = reachable(window);
    for (const char* label : {"busy", "who"}) all.append(window.findChild<QWidget*>(label));
    for (QWidget* each : all) {
      QAccessibleInterface* const access = QAccessible::queryAccessibleInterface(each);
      ASSERT_NE(access, nullptr);
      EXPECT_FALSE(access->text(QAccessible::Name).isEmpty()) << nameOfWidget(each);
    }
    const auto nameOf = [&](QWidget& widget) {
      return QAccessible::queryAccessibleInterface(&widget)->text(QAccessible::Name);
    };
    EXPECT_EQ(nameOf(window.objects().view(ObjectKind::eEdits)), "Edits and logs");
    EXPECT_EQ(nameOf(*window.findChild<QWidget*>("search")), "Narrow the list by name");
    EXPECT_EQ(nameOf(*window.findChild<QWidget*>("busy")), "Status: Ready");
  });
}

TEST_F(WindowWaysTest, WhatMayNotBeDoneIsDisabledAndSaysWhy) {
  script = "project create Harbour\n";
  play([this](MainWindow& window) {
    const auto why = [&](const char* line) {
      const QAction& action = *window.menus().action(line);
      EXPECT_NE(action.isEnabled(), !action.statusTip().isEmpty()) << line;
      return action.isEnabled() ? std::string() : action.statusTip().toStdString();
    };
    ASSERT_TRUE(waitForProject(window, ""));
    EXPECT_EQ(why("edit create {0}"), "Open a project first.");
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    for (const char* line : {"project enter Harbour", "edit create Reel", "edit save Reel",
                             "edit create Free", "edit give Free BEN --force"}) {
      EXPECT_TRUE(ben.command(line)["ok"].asBool()) << line;
    }
    command(window, "project enter Harbour");
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Reel").isEmpty(); }));
    window.objects().choose(ObjectKind::eEdits, keyOf(window, "Reel"));
    EXPECT_TRUE(waitFor([&] { return !why("edit rename {object} {0}").empty(); }));
    EXPECT_EQ(why("edit rename {object} {0}"), "\"Reel\" belongs to BEN.");
    EXPECT_EQ(why("edit delete {objects}"), "\"Reel\" belongs to BEN.");
    EXPECT_EQ(why("edit open {object}"), "");
    QTreeView& list = window.objects().view(ObjectKind::eEdits);
    QApplication::setActiveWindow(&window);
    list.setFocus();
    const auto press = [&](Qt::Key key, Qt::KeyboardModifiers with) {
      window.messages().hide();
      QTest::keyClick(&list, key, with);
      return window.messages().isVisible() ? window.messages().text().toStdString() : "";
    };
    EXPECT_EQ(press(Qt::Key_F2, {}), "\"Reel\" belongs to BEN.");
    EXPECT_EQ(press(Qt::Key_Delete, {}), "\"Reel\" belongs to BEN.");
    EXPECT_EQ(press(Qt::Key_T, Qt::ControlModifier), "\"Reel\" belongs to BEN.");
    window.menus().action("edit may {object}")->trigger();
    const auto isTold = [&](const char* text) { return window.messages().text() == text; };
    EXPECT_TRUE(waitFor([&] { return isTold("You may not change \"Reel\": it belongs to BEN."); }))
        << window.messages().text().toStdString();
    EXPECT_EQ(why("edit close {object}"), "It is not open.");
    EXPECT_EQ(why("bin add {0} {objects}"), "There is no bin yet: Bin > New bin makes one.");
    EXPECT_EQ(why("room leave"), "You are in no room.");
    EXPECT_TRUE(ben.command("edit give Reel ANNA --force")["ok"].asBool());
    EXPECT_TRUE(waitFor([&] { return why("edit rename {object} {0}").empty(); }));
    EXPECT_TRUE(window.menus().menu("Edit").toolTipsVisible());
    press(Qt::Key_F2, {});
    EXPECT_TRUE(waitFor([&] { return window.findChild<QDialog*>("actionDialog"); }));
    window.menus().action("edit may {object}")->trigger();
    EXPECT_TRUE(waitFor([&] { return isTold("You may change \"Reel\"."); }))
        << window.messages().text().toStdString();
  });
}

TEST_F(WindowWaysTest, EveryMarkedKeyOfAMenuIsALetter) {
  for (const ActionSpec& action : actionTable()) {
    const QString text = QString::fromUtf8(action.text);
    const qsizetype mark = text.indexOf(QLatin1Char('&'));
    EXPECT_TRUE(mark < 0 || text.at(mark + 1).isLetter()) << action.text;
  }
}

TEST_F(WindowWaysTest, ANameThatKeepsMessagesAwayIsToldAtTheStart) {
  std::ofstream(folder / "projects/userlist.dat") << "BEN\n";
  play([](MainWindow& window) {
    EXPECT_TRUE(waitFor([&] { return window.messages().isVisible(); }));
    EXPECT_EQ(window.messages().text(),
              "Others are not offered your name to write to: userlist.dat in the projects "
              "directory does not hold \"ANNA\". Add it there as a line of its own.");
  });
}

TEST_F(WindowWaysTest, TheKeyOfANewEditWorksInTheSearchToo) {
  script = kTwoEdits;
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return window.objects().rows(ObjectKind::eEdits).size() == 2; }));
    auto& search = *window.findChild<QLineEdit*>("search");
    search.setFocus();
    QTest::keyClick(&search, Qt::Key_E, Qt::ControlModifier);
    EXPECT_TRUE(waitFor([&] { return window.findChild<QDialog*>("actionDialog"); }, 2000));
  });
}

TEST_F(WindowWaysTest, NoWordsOfTheConsoleAreInTheWindow) {
  script = kTwoEdits;
  play([](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    for (const auto& [name, command] : window.commands().all()) {
      const QString told = inWindowWords(QString::fromStdString("so; \"" + name + "\" does it."));
      EXPECT_FALSE(told.contains(QString::fromStdString("\"" + name + "\""))) << name;
    }
    EXPECT_EQ(inWindowWords("\"edit save Quay --over\" saves yours, \"edit revert\" drops it."),
              "\"Edit > Save over another's version\" saves yours, "
              "\"Edit > Drop unsaved changes\" drops it.");
    EXPECT_EQ(inWindowWords("Enter another (\"project list\")."),
              "Enter another (the list of projects).");
    EXPECT_EQ(inWindowWords("Wait until it is left, or enter another room (\"room list\")."),
              "Wait until it is left, or choose another room in the list.");
    EXPECT_EQ(
        inWindowWords("Wait until it is left there, or enter another project (\"project list\")."),
        "Wait until it is left there, or choose another project in the list.");
    EXPECT_EQ(inWindowWords("The project \"Own\" holds no such object as "
                            "\"E753df67580c49f39d27c1409cc78a19\""),
              "The project \"Own\" no longer holds what was chosen: it was deleted meanwhile");
    EXPECT_EQ(inWindowWords("The edit \"undo\" belongs to \"BEN\"."),
              "The edit \"undo\" belongs to \"BEN\".");
    window.link().run("room enter Nowhere");
    EXPECT_TRUE(waitFor([&] { return window.messages().text().contains("\"Room > New room\""); }))
        << window.messages().text().toStdString();
    EXPECT_FALSE(window.messages().text().contains("room create"));
    window.link().run("users");
    EXPECT_TRUE(waitFor([&] { return window.findChild<QDialog*>("answer"); }) ||
                window.messages().isVisible());
  });
}

/// Where on the screen the first row of each list and the timeline are.
std::vector<QPoint> places(const MainWindow& window) {
  std::vector<QPoint> at;
  for (const QTreeView* list : {&window.projects().projects(), &window.projects().rooms(),
                                &window.objects().view(ObjectKind::eEdits)}) {
    const QRect row = list->visualRect(list->model()->index(0, 0));
    at.push_back(list->viewport()->mapToGlobal(row.topLeft()));
  }
  at.push_back(window.detail().view().viewport()->mapToGlobal(QPoint()));
  return at;
}

TEST_F(WindowWaysTest, MessagesMoveNothingUnderTheMouse) {
  script = std::string(kTwoEdits) + "room create Foyley\n";
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return window.projects().rooms().model()->rowCount() == 1; }));
    ASSERT_TRUE(waitFor([&] { return window.objects().rows(ObjectKind::eEdits).size() == 2; }));
    for (const QSize size : {QSize(1240, 780), QSize(640, 480)}) {
      window.resize(size);
      QTest::qWait(100);
      const std::vector<QPoint> before = places(window);
      const QString text = QString("A message of several words. ").repeated(6);
      for (MessageBar* bar : {&window.messages(), &window.strip(), &window.recovery(),
                              &window.detail().changeBar()}) {
        bar->tell(MessageBar::Kind::eError, text);
        QTest::qWait(50);
        EXPECT_TRUE(bar->isVisible());
        std::vector<QPoint> now = places(window);
        if (size.height() < 500) now.back() = before.back();  // it has no room to give
        EXPECT_EQ(now, before) << bar->objectName().toStdString();
        bar->hide();
        QTest::qWait(50);
        EXPECT_EQ(places(window), before) << bar->objectName().toStdString();
      }
    }
  });
}

/// Of the log and the history, which lie over one another.
int shownHeight(const MainWindow& window) {
  const auto* const log = window.findChild<QDockWidget*>("logDock");
  const bool isLog = !log->visibleRegion().isEmpty();
  return isLog ? log->height() : window.findChild<QDockWidget*>("historyDock")->height();
}

/// The sizes that the user sees: of the side, the parts, the docks and the list's columns.
std::vector<int> sizesOf(const MainWindow& window) {
  const QTreeView& list = window.objects().view(ObjectKind::eEdits);
  std::vector<int> sizes{window.projects().width(), window.projects().projects().height(),
                         window.objects().height(), window.panel().width(), shownHeight(window)};
  for (int column = 0; column < list.model()->columnCount(); ++column) {
    sizes.push_back(list.columnWidth(column));
  }
  return sizes;
}

TEST_F(WindowWaysTest, WhatASmallWindowTookComesBackWhenItGrows) {
  script = kTwoEdits;
  play([](MainWindow& window) {
    showEverything(window);
    window.messages().hide();
    window.resize(1240, 780);
    QTest::qWait(200);
    const std::vector<int> before = sizesOf(window);
    for (const QSize size : {QSize(900, 600), QSize(640, 480), QSize(490, 330), QSize(300, 200),
                             QSize(490, 330), QSize(1240, 780)}) {
      window.resize(size);
      QTest::qWait(200);
    }
    EXPECT_EQ(sizesOf(window), before);
  });
}

double brightness(const QColor& colour) {
  const auto part = [](double value) {
    return value <= 0.03928 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
  };
  return 0.2126 * part(colour.redF()) + 0.7152 * part(colour.greenF()) +
         0.0722 * part(colour.blueF());
}

double contrast(const QColor& a, const QColor& b) {
  const double one = brightness(a) + 0.05;
  const double two = brightness(b) + 0.05;
  return std::max(one, two) / std::min(one, two);
}

/// What is read, and what it may stand on.
std::vector<std::pair<QColor, QColor>> readPairs() {
  const Colours& c = colours();
  const QPalette palette = QApplication::palette();
  std::vector<std::pair<QColor, QColor>> pairs{{c.text, c.choice},    {c.text, c.softChoice},
                                               {c.text, c.errorBack}, {c.text, c.noteBack},
                                               {c.quiet, c.gap},      {c.onAccent, c.accent},
                                               {c.clipText, c.clip},  {c.clipText, c.nested},
                                               {c.clipText, c.audio}, {c.clipText, c.transition}};
  for (const QColor& back : {c.panel, c.window}) {
    for (const QColor& text : {c.text, c.quiet, c.accent, c.warn, c.bad})
      pairs.push_back({text, back});
  }
  for (const auto group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
    const auto add = [&](QPalette::ColorRole text, QPalette::ColorRole back) {
      pairs.push_back({palette.color(group, text), palette.color(group, back)});
    };
    add(QPalette::WindowText, QPalette::Window);
    add(QPalette::Text, QPalette::Base);
    add(QPalette::Text, QPalette::AlternateBase);
    add(QPalette::ButtonText, QPalette::Button);
    add(QPalette::ToolTipText, QPalette::ToolTipBase);
    add(QPalette::PlaceholderText, QPalette::Base);
    add(QPalette::HighlightedText, QPalette::Highlight);
    add(QPalette::Link, QPalette::Window);
  }
  return pairs;
}

TEST_F(WindowWaysTest, TextBordersAndWhatIsChosenStandOutLightAndDark) {
  const WithoutDisplay display;
  for (const Appearance each : {Appearance::eLight, Appearance::eDark}) {
    applyAppearance(each);
    const Colours& c = colours();
    for (const auto& [text, back] : readPairs()) {
      EXPECT_GE(contrast(text, back), 4.5)
          << text.name().toStdString() << " on " << back.name().toStdString();
    }
    for (const QColor& line : {c.border, c.accent, c.edge, c.good, c.held, c.warn, c.bad}) {
      EXPECT_GE(contrast(line, c.panel), 3.0) << line.name().toStdString();
      EXPECT_GE(contrast(line, c.window), 3.0) << line.name().toStdString();
    }
  }
}

/// The colour that most of a row's upper edge has.
QColor edgeOfRow(QTreeView& list, int row) {
  const QRect rect = list.visualRect(list.model()->index(row, 0));
  const QImage image = list.viewport()->grab().toImage();
  return image.pixelColor(rect.center().x(), rect.top());
}

TEST_F(WindowWaysTest, WhatIsDrawnFollowsTheAppearanceAtOnce) {
  script = kTwoEdits;
  play([this](MainWindow& window) {
    showEverything(window);
    auto* const kinds = window.findChild<QTabBar*>("kinds");
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    EXPECT_TRUE(ben.command("project enter Harbour")["ok"].asBool());
    EXPECT_TRUE(ben.command("edit create Mole")["ok"].asBool());
    ASSERT_TRUE(waitFor([&] { return !kinds->tabIcon(0).isNull(); }));
    const auto signs = [&] {
      return QList<QImage>{kinds->tabIcon(0).pixmap(16, 16).toImage(),
                           window.status().findChild<QLabel*>("sign")->pixmap().toImage(),
                           window.messages().findChild<QLabel*>("sign")->pixmap().toImage(),
                           window.notifications().list().item(0)->icon().pixmap(16, 16).toImage()};
    };
    applyAppearance(Appearance::eLight);
    const QList<QImage> light = signs();
    applyAppearance(Appearance::eDark);
    const QList<QImage> dark = signs();
    for (qsizetype i = 0; i < light.size(); ++i) EXPECT_NE(light[i], dark[i]) << i;
    applyAppearance(Appearance::eLight);
    EXPECT_EQ(signs(), light);
  });
}

TEST_F(WindowWaysTest, AChosenRowIsDrawnWithAnEdgeThatStandsOut) {
  script = kTwoEdits;
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return window.objects().rows(ObjectKind::eEdits).size() == 2; }));
    for (const Appearance each : {Appearance::eLight, Appearance::eDark}) {
      applyAppearance(each);
      QTreeView& list = window.objects().view(ObjectKind::eEdits);
      list.setCurrentIndex(list.model()->index(1, 0));
      for (QWidget* focus : {static_cast<QWidget*>(&list), window.findChild<QWidget*>("search")}) {
        focus->setFocus();
        QCoreApplication::processEvents();
        EXPECT_GE(contrast(edgeOfRow(list, 1), colours().panel), 3.0) << nameOfWidget(focus);
        EXPECT_LT(contrast(edgeOfRow(list, 0), colours().panel), 1.5) << nameOfWidget(focus);
      }
    }
  });
}

TEST_F(WindowWaysTest, SeveralFilesAreImportedAtOnceAndABadOneIsNamed) {
  script = kTwoEdits;
  const auto write = [this](const char* file, const std::string& text) {
    std::ofstream(folder / file) << text;
  };
  const auto edit = [](const char* name) {
    return R"({"OTIO_SCHEMA":"Timeline.1","name":")" + std::string(name) +
           R"(","tracks":{"OTIO_SCHEMA":"Stack.1","children":[]}})";
  };
  write("bad.otio", "no edit");
  write("one.otio", edit("One"));
  write("pier.otio", edit("Pier"));
  write("two.otio", edit("Two"));
  play([this](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return window.objects().rows(ObjectKind::eEdits).size() == 2; }));
    window.menus().action("edit import {0}")->trigger();
    QPointer<QDialog> dialog;
    ASSERT_TRUE(waitFor([&] { return (dialog = window.findChild<QDialog*>("actionDialog")); }));
    QTimer choosing;
    QObject::connect(&choosing, &QTimer::timeout, &window, [&] {
      auto* const files = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
      if (!files) return;
      choosing.stop();
      EXPECT_EQ(files->fileMode(), QFileDialog::ExistingFiles);
      EXPECT_TRUE(files->nameFilters().front().contains("(*.otio)"));
      files->setDirectory(QString::fromStdString(folder.path()));
      files->findChild<QLineEdit*>("fileNameEdit")
          ->setText(R"("bad.otio" "one.otio" "pier.otio" "two.otio")");
      QMetaObject::invokeMethod(files, "accept");
    });
    choosing.start(20);
    dialog->findChild<QToolButton*>()->click();
    EXPECT_EQ(dialog->findChild<QLineEdit*>()->text(), "bad.otio, one.otio, pier.otio, two.otio");
    ASSERT_TRUE(answer(window, "actionDialog", "Import"));
    QPointer<QDialog> doubt;
    ASSERT_TRUE(waitFor([&] { return (doubt = window.findChild<QDialog*>("nameDialog")); }));
    EXPECT_TRUE(std::ranges::any_of(doubt->findChildren<QLabel*>(), [](const QLabel* label) {
      return label->text().startsWith("pier.otio: ");
    }));
    ASSERT_TRUE(answer(window, "nameDialog", "Cancel"));
    EXPECT_TRUE(waitFor([&] { return !keyOf(window, "Two").isEmpty(); }));
    EXPECT_FALSE(keyOf(window, "One").isEmpty());
    EXPECT_TRUE(waitFor([&] { return window.messages().text().startsWith("2 edits are imp"); }))
        << window.messages().text().toStdString();
    EXPECT_TRUE(window.messages().text().contains("bad.otio"));
    EXPECT_TRUE(window.messages().text().endsWith("\npier.otio was left out."))
        << window.messages().text().toStdString();
  });
}

}  // namespace
