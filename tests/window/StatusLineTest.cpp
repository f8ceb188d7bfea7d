#include "app/window/StatusLine.h"

#include <gtest/gtest.h>

#include "app/window/Texts.h"
#include "tests/window/WindowScene.h"

using namespace korvel;

namespace {

struct StatusLineTest : testing::Test {
  StatusLineTest() {
    News news;
    news.station.isReady = true;
    news.station.user = news.station.host = QStringLiteral("ANNA");
    news.station.port = 27015;
    line.showNews(news);
    line.show();
  }

  void setWidth(int width) {
    line.resize(width, line.sizeHint().height());
    QCoreApplication::processEvents();
  }

  ElidedLabel& label(const char* name) { return *line.findChild<ElidedLabel*>(name); }

  WithoutDisplay display;
  StatusLine line;
};

TEST_F(StatusLineTest, WhereThereIsNoRoomTheLeastImportantGoesFirst) {
  struct Row {
    int width;
    QStringList shown;
  };
  const Row rows[] = {{1000, {"busy", "who", "network", "counts"}},
                      {500, {"busy", "who", "network"}},
                      {320, {"busy", "who"}},
                      {150, {"busy"}},
                      {1000, {"busy", "who", "network", "counts"}}};
  for (const Row& row : rows) {
    setWidth(row.width);
    QStringList shown;
    for (const char* name : {"busy", "who", "network", "counts"}) {
      if (!label(name).isVisible()) continue;
      shown.append(name);
      EXPECT_FALSE(label(name).isElided()) << name << " at " << row.width;
      EXPECT_TRUE(label(name).toolTip().contains("27015")) << name;
    }
    EXPECT_EQ(shown, row.shown) << row.width;
  }
}

TEST_F(StatusLineTest, WhatIsWrongStandsThereUntilItIsMended) {
  News news;
  EXPECT_EQ(line.busyText(), "Ready");
  news.trouble = QStringLiteral("The share has not answered for 20 s.");
  line.showNews(news);
  EXPECT_EQ(line.busyText(), news.trouble);
  line.showBusy(QStringLiteral("the save"), 2);
  EXPECT_EQ(line.busyText(), "Waiting for the save (2 s)");
  line.showBusy({}, 0);
  EXPECT_EQ(line.busyText(), news.trouble);
  EXPECT_TRUE(label("busy").toolTip().contains(news.trouble));
  line.showNews(News());
  EXPECT_EQ(line.busyText(), "Ready");
}

TEST_F(StatusLineTest, StationsAreCountedAsTheyTellOfThemselves) {
  setWidth(1000);
  const QDateTime since(QDate(2026, 11, 21), QTime(17, 40));
  PresenceState presence;
  const auto station = [&](const char* user, const char* host) {
    StationRow row;
    row.user = user;
    row.host = host;
    row.since = since;
    return row;
  };
  presence.stations = {station("ANNA", "SUITE1"), station("BEN", "SUITE2"),
                       station("CARL", "SUITE3")};
  presence.stations[1].project = presence.stations[2].project = "Film";
  presence.stations[1].room = "Sound";
  presence.stations[2].isHere = false;
  line.showPresence(presence);
  EXPECT_EQ(label("counts").text(), "0 sent, 0 received, 2 here, 1 gone without goodbye");
  for (const char* words :
       {"ANNA on SUITE1: here since 21 Nov 2026 17:40, in no project",
        "BEN on SUITE2: here since 21 Nov 2026 17:40, in project \"Film\", in "
        "room \"Sound\"",
        "CARL on SUITE3: gone without goodbye, there since 21 Nov 2026 17:40, in "
        "project \"Film\""}) {
    EXPECT_TRUE(label("counts").toolTip().contains(words)) << words;
  }
  presence.marked = {"DORA"};
  line.showPresence(presence);
  EXPECT_TRUE(label("counts").text().endsWith("1 gone without goodbye, 1 more marked active"));
  EXPECT_TRUE(label("counts").toolTip().contains("DORA: marked active"));
}

TEST_F(StatusLineTest, WhereNoStationTellsOfItselfMarkersAreCounted) {
  PresenceState presence;
  presence.marked = {"BEN"};
  line.showPresence(presence);
  EXPECT_EQ(label("counts").text(), "0 sent, 0 received, 1 user active");
  presence.marked.append("CARL");
  line.showPresence(presence);
  EXPECT_EQ(label("counts").text(), "0 sent, 0 received, 2 users active");
}

TEST_F(StatusLineTest, WhatItWaitsForIsCutVisiblyAndTheToolTipHasItWhole) {
  setWidth(300);
  const QString what = QStringLiteral("the command ") + QString(80, QLatin1Char('x'));
  line.showBusy(what, 3);
  QCoreApplication::processEvents();
  EXPECT_TRUE(label("busy").isElided());
  EXPECT_GT(label("busy").width(), 60);
  EXPECT_TRUE(label("busy").toolTip().contains(what + " (3 s)"));
}

}  // namespace
