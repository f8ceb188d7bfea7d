#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QComboBox>
#include <QDockWidget>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QStatusBar>
#include <QToolBar>
#include <QTreeView>
#include <fstream>

#include "app/window/EventPanes.h"
#include "app/window/MessageBar.h"
#include "app/window/Texts.h"
#include "tests/window/WindowScene.h"

using namespace korvel;

namespace {

class WindowBadInputTest : public testing::Test, protected WindowScene {
 protected:
  void putPipesInPlaceOfRecords() {
    for (const auto& each : std::filesystem::recursive_directory_iterator(folder / "projects")) {
      if (each.path().filename() != "project.json" && each.path().extension() != ".otio") continue;
      std::filesystem::remove(each.path());
      ASSERT_EQ(::mkfifo(each.path().c_str(), 0600), 0);
    }
  }

  static void send(MainWindow& window, const QString& text) {
    window.panel().entry().setText(text);
    QTest::keyClick(&window.panel().entry(), Qt::Key_Return);
  }
};

TEST_F(WindowBadInputTest, ALongMessageOfAllLettersArrivesAsTyped) {
  play([this](MainWindow& window) {
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    openPanel(window);
    const QString letters = QString::fromUtf8(u8"\U0001F600 \u05E9\u05DC\u05D5\u05DD \u00FC ");
    const QString text = letters + QString(60'000 - letters.size(), QLatin1Char('x'));
    send(window, text);
    EXPECT_TRUE(ben.waitFor("notification", {{"text", text.toStdString()}}));
    EXPECT_TRUE(waitFor([&] { return window.panel().state().lines.size() == 1; }));
    EXPECT_EQ(window.panel().conversation().wordWrapMode(), QTextOption::WrapAnywhere);
    EXPECT_FALSE(window.messages().isVisible());
  });
}

TEST_F(WindowBadInputTest, AMessageThatNoDatagramHoldsIsToldOf) {
  play([](MainWindow& window) {
    openPanel(window);
    send(window, QString(40'000, QChar(0x05E9)));
    EXPECT_TRUE(waitFor([&] { return window.panel().state().lines.size() == 1; }));
    EXPECT_TRUE(waitFor([&] { return window.messages().isVisible(); }));
    const QString told = window.messages().text();
    EXPECT_TRUE(told.contains("80")) << told.toStdString();
  });
}

TEST_F(WindowBadInputTest, WhoWritesWhatOthersDoNotSeeWholeIsToldUntilTheNextMessage) {
  const std::map<QString, QString> toldOf{{QStringLiteral("10 \u20AC, please"), "see it cut there"},
                                          {QStringLiteral("dinner at eight?"), "small \"d\""}};
  play([&](MainWindow& window) {
    openPanel(window);
    for (const auto& [text, told] : toldOf) {
      send(window, text);
      EXPECT_TRUE(waitFor([&, &told = told] { return window.messages().text().contains(told); }))
          << text.toStdString();
      EXPECT_TRUE(window.messages().isVisible());
      send(window, QStringLiteral("Dinner for ten"));
      EXPECT_TRUE(waitFor([&] { return !window.messages().isVisible(); })) << text.toStdString();
    }
  });
}

TEST_F(WindowBadInputTest, LineEndsInAMessageBecomeBlanks) {
  play([this](MainWindow& window) {
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    openPanel(window);
    send(window, QStringLiteral("one\ntwo\r\nthree"));
    EXPECT_TRUE(ben.waitFor("notification", {{"text", "one two three"}}));
  });
}

TEST_F(WindowBadInputTest, OfAMessageCutWithinALetterTheRestCanBeRead) {
  play([this](MainWindow& window) {
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    ASSERT_TRUE(waitFor([&] { return window.snapshot() != nullptr; }));
    EXPECT_TRUE(ben.command("say <All> marker")["ok"].asBool());
    const auto sent = ben.waitFor("sent", {{"data", "marker"}});
    ASSERT_TRUE(sent);
    std::string datagram = bytesOf((*sent)["text_hex"].asString());
    datagram.replace(datagram.find("marker"), 6, "10 \xE2\x82");
    sayAloud(datagram);
    EXPECT_TRUE(waitFor([&] { return window.strip().text().contains(u"10 \uFFFD"); }));
    openPanel(window);
    EXPECT_TRUE(ben.quit() == 0);
  });
}

TEST_F(WindowBadInputTest, AUserListOfThousandsWithEmptyAndEqualNamesIsOffered) {
  std::ofstream list(folder / "projects/userlist.dat");
  for (int i = 0; i < 5000; ++i) list << "User " << i << '\n';
  list << "\nben\nBen\n\nJ\xC3\xBCrgen\n<b>bold</b>\n";
  list.close();
  play([](MainWindow& window) {
    openPanel(window);
    QComboBox& recipients = window.panel().recipients();
    ASSERT_EQ(recipients.count(), 1 + 5000 + 4 + 1) << "<All>, the list without repeats, ANNA";
    for (int i = 5000; i < recipients.count(); ++i) {
      const QString name = recipients.itemText(i);
      chooseRecipient(window, name);
      EXPECT_EQ(window.panel().state().recipient, name) << i;
    }
    EXPECT_FALSE(window.grab().isNull());
    EXPECT_FALSE(window.messages().isVisible()) << window.messages().text().toStdString();
  });
}

TEST_F(WindowBadInputTest, AMissingIconIsDrawn) {
  config["resources"] = folder / "nowhere";
  play([](MainWindow& window) {
    openPanel(window);
    EXPECT_FALSE(panelIcon(window.panel().state().icon).pixmap(24, 24).isNull());
  });
}

/// What is on the screen of the window's own parts, which must not lie over one another.
std::vector<QRect> shownParts(const MainWindow& window) {
  std::vector<QRect> parts{window.menuWidget()->geometry(), window.centralWidget()->geometry(),
                           window.statusBar()->geometry(),
                           window.findChild<QToolBar*>("tools")->geometry()};
  for (const QDockWidget* dock : window.findChildren<QDockWidget*>()) {
    if (!dock->visibleRegion().isEmpty()) parts.push_back(dock->geometry());
  }
  return parts;
}

bool liesApart(const MainWindow& window, const std::vector<QRect>& parts) {
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (!window.rect().contains(parts[i])) return false;
    for (std::size_t j = 0; j < i; ++j) {
      if (parts[i].intersects(parts[j])) return false;
    }
  }
  return true;
}

TEST_F(WindowBadInputTest, ASmallWindowHoldsEverythingAtOnceInTabs) {
  script = "project create Harbour\nproject enter Harbour\n";
  play([](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    openPanel(window);
    for (QDockWidget* dock : window.findChildren<QDockWidget*>()) dock->show();
    for (const auto& [size, tabs] : {std::pair(QSize(300, 200), 6),
                                     {QSize(1000, 700), 0},
                                     {QSize(700, 300), 6},
                                     {QSize(1000, 700), 0}}) {
      window.resize(size);
      EXPECT_TRUE(waitFor(
          [&, tabs = tabs] { return window.tabifiedDockWidgets(&window.panel()).size() == tabs; }));
      EXPECT_FALSE(window.grab().isNull());
      EXPECT_EQ(window.size(), size);
      EXPECT_TRUE(waitFor([&] { return liesApart(window, shownParts(window)); })) << size.width();
      EXPECT_EQ(shownParts(window).size(), tabs == 0 ? 7u : 5u);
    }
  });
}

TEST_F(WindowBadInputTest, APipeWhereARecordWasIsNamedAndNothingStandsStill) {
  script =
      "project create Harbour\nproject create Trailer\nproject enter Harbour\n"
      "edit create Alley\nedit create Quay\nedit save Quay\n";
  ASSERT_EQ(::mkfifo((folder / "projects/userlist.dat").c_str(), 0600), 0);
  play([this](MainWindow& window) {
    openPanel(window);
    EXPECT_EQ(window.panel().recipients().count(), 2) << "<All> and ANNA";
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Quay").isEmpty(); }));
    putPipesInPlaceOfRecords();
    const LatencyWatch latency;
    QTest::keyClick(&window, Qt::Key_F5);
    const QAbstractItemModel& list = *window.projects().projects().model();
    EXPECT_TRUE(waitFor([&] { return list.index(1, 1).data().toString() == "unreadable"; }));
    EXPECT_TRUE(list.index(1, 1).data(Qt::ToolTipRole).toString().contains("no plain file"));
    window.objects().choose(ObjectKind::eEdits, keyOf(window, "Quay"));
    EXPECT_TRUE(waitFor([&] { return window.detail().view().hint().contains("no plain file"); }));
    command(window, "edit open Quay");
    EXPECT_TRUE(waitFor([&] { return window.messages().text().contains("no plain file"); }));
    EXPECT_LT(latency.ninetyNinth(), kStandingStillMs);
  });
}

TEST_F(WindowBadInputTest, MarkupInNamesAndMessagesIsShownAsWritten) {
  script = "project create '<b>Harbour</b>[*]'\nproject enter '<b>Harbour</b>[*]'\n";
  script += "edit create '<h1>Quay</h1>'\n";
  play([this](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "<h1>Quay</h1>").isEmpty(); }));
    window.objects().choose(ObjectKind::eEdits, keyOf(window, "<h1>Quay</h1>"));
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    EXPECT_TRUE(ben.command("say <All> '<h1>tea</h1>'")["ok"].asBool());
    EXPECT_TRUE(waitFor([&] { return window.strip().text().contains("<h1>tea</h1>"); }));
    EXPECT_TRUE(window.windowTitle().endsWith("<b>Harbour</b>[*][*] - Station"));
    for (QLabel* label : window.findChildren<QLabel*>()) {
      EXPECT_TRUE(label->textFormat() == Qt::PlainText || !label->text().contains("h1>"))
          << label->text().toStdString();
    }
    const ObjectsModel& edits = window.objects().model(ObjectKind::eEdits);
    const QString tip = edits.data(edits.index(0, 0), Qt::ToolTipRole).toString();
    EXPECT_TRUE(tip.contains("&lt;h1&gt;Quay")) << tip.toStdString();
    const QModelIndex project = window.projects().projects().model()->index(0, 0);
    EXPECT_TRUE(project.data(Qt::ToolTipRole).toString().contains("&lt;b&gt;"));
  });
}

TEST_F(WindowBadInputTest, NamesOfAllKindsAreListedAsTheyAre) {
  const std::vector<std::string> names{"two  blanks", "Z\xC3\xBCrich \xE2\x82\xAC",
                                       "\xD7\xA9\xD7\x9C", "it's \\ \"quoted\"",
                                       std::string(60, 'x')};
  play([&](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return window.snapshot() != nullptr; }));
    window.link().run("project create Harbour");
    window.link().run("project enter Harbour");
    for (const std::string& name : names) {
      const QString shown = QString::fromStdString(name);
      window.link().run("edit create " + quoted(shown));
      EXPECT_TRUE(waitFor([&] { return !keyOf(window, shown).isEmpty(); })) << name;
    }
    window.link().run("edit create " + quoted(QStringLiteral("two\nlines")));
    QTest::qWait(300);
    const ObjectsModel& edits = window.objects().model(ObjectKind::eEdits);
    for (int row = 0; row < edits.rowCount(); ++row) {
      EXPECT_FALSE(edits.data(edits.index(row, 0), Qt::DisplayRole).toString().contains('\n'));
    }
    EXPECT_FALSE(window.grab().isNull());
  });
}

TEST_F(WindowBadInputTest, AProjectsFolderThatIsGoneIsToldOfAndComesBack) {
  script = "project create Harbour\n";
  play([this](MainWindow& window) {
    const QAbstractItemModel& list = *window.projects().projects().model();
    ASSERT_TRUE(waitFor([&] { return list.rowCount() == 1; }));
    std::filesystem::rename(folder / "projects", folder / "elsewhere");
    QTest::keyClick(&window, Qt::Key_F5);
    EXPECT_TRUE(waitFor([&] { return !window.snapshot()->projectsProblem.isEmpty(); }));
    EXPECT_TRUE(window.projects().findChild<QLabel*>("projectsHint")->isVisible());
    std::filesystem::rename(folder / "elsewhere", folder / "projects");
    QTest::keyClick(&window, Qt::Key_F5);
    EXPECT_TRUE(waitFor([&] { return window.snapshot()->projectsProblem.isEmpty(); }));
    EXPECT_EQ(list.index(0, 0).data().toString(), "Harbour");
  });
}

TEST_F(WindowBadInputTest, AStationThatDiedIsNamedAtWhatItLeftBehind) {
  script = "project create Trailer --private\n";
  play([this](MainWindow& window) {
    const QAbstractItemModel& list = *window.projects().projects().model();
    ASSERT_TRUE(waitFor([&] { return list.rowCount() == 1; }));
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    EXPECT_TRUE(ben.command("project enter Trailer")["ok"].asBool());
    ben.kill9();
    QTest::keyClick(&window, Qt::Key_F5);
    EXPECT_TRUE(waitFor([&] { return list.index(0, 1).data().toString() == "left behind by BEN"; }))
        << list.index(0, 1).data().toString().toStdString();
  });
}

TEST(PanelLinesTest, ALineReadsAsItWasTyped) {
  const auto widened = [](const QString& text) { return QString::fromLatin1(text.toUtf8()); };
  for (const char* each :
       {" : hello", "", "ANNA : Gr\xc3\xbc\xc3\x9f", " : 5 \xe2\x82\xac", " : \xf0\x9f\x8e\xac"}) {
    const QString text = QString::fromUtf8(each);
    EXPECT_EQ(asTyped(widened(text)), text) << each;
  }
  EXPECT_EQ(asTyped(QString::fromLatin1(" : 5 \xe2\x82")), QString(" : 5 ") + QChar(0xfffd));
  const QString broken = QString::fromLatin1("\xff middle");
  EXPECT_EQ(asTyped(broken), broken);
  const QString wide = QString::fromUtf8("\xe6\xb5\xb7");
  EXPECT_EQ(asTyped(wide), wide);
}

}  // namespace
