#include "app/window/PeoplePane.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QMenu>
#include <QSignalSpy>
#include <QToolButton>
#include <QTreeView>
#include <QTreeWidget>
#include <cmath>
#include <set>

#include "app/window/Appearance.h"
#include "tests/window/WindowScene.h"

using namespace korvel;

namespace {

StationRow stationOf(const QString& user, const QString& project, const QStringList& open = {},
                     const QStringList& unsaved = {}) {
  StationRow row;
  row.user = user;
  row.host = user + "-PC";
  row.key = user;
  row.since = QDateTime(QDate(2026, 11, 21), QTime(17, 40));
  row.projectCookie = project;
  row.project = project.isEmpty() ? QString() : "Film " + project;
  row.open = open;
  row.unsaved = unsaved;
  return row;
}

/// ANNA at this station in the project P1, which has the edits Quay (E1) and Pier (E2).
Snapshot peopleAround(const std::vector<StationRow>& others) {
  ObjectRows edits(2);
  edits[0].key = edits[0].cookie = "E1";
  edits[0].name = "Quay";
  edits[1].key = edits[1].cookie = "E2";
  edits[1].name = "Pier";
  Snapshot snapshot;
  snapshot.project.cookie = "P1";
  snapshot.objects[0] = std::make_shared<const ObjectRows>(std::move(edits));
  snapshot.presence.stations = {stationOf("ANNA", "P1", {"E2"})};
  snapshot.presence.stations.front().isSelf = true;
  for (const StationRow& each : others) snapshot.presence.stations.push_back(each);
  return snapshot;
}

double luminanceOf(const QColor& colour) {
  const auto linear = [](double part) {
    return part <= 0.03928 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
  };
  return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) +
         0.0722 * linear(colour.blueF());
}

double contrastOf(const QColor& a, const QColor& b) {
  const double one = luminanceOf(a) + 0.05;
  const double other = luminanceOf(b) + 0.05;
  return std::max(one, other) / std::min(one, other);
}

struct PeopleTest : testing::Test {
  const WithoutDisplay display;
};

TEST_F(PeopleTest, InitialsAreWhatPeopleSeeOfAName) {
  const QString family = QString::fromUtf8("👩‍👩‍👧");
  const std::pair<QString, QString> rows[] = {
      {"ANNA", "AN"},
      {"ben", "BE"},
      {"Anna Berg", "AB"},
      {"anna.berg@suite", "AB"},
      {"Ä", "Ä"},
      {"", "?"},
      {"\n\t ", "?"},
      {"<b>x</b>", "BX"},
      {QString::fromUtf8("e\u0301lan"), QString::fromUtf8("E\u0301L")},
      {family + "x", family + "X"},
      {QString::fromUtf8("שלום"), QString::fromUtf8("של")}};
  for (const auto& [name, initials] : rows) {
    EXPECT_EQ(initialsOf(name), initials) << name.toStdString();
  }
  EXPECT_LE(initialsOf("a" + QString(10'000, QChar(0x301))).size(), 2);
  EXPECT_EQ(initialsOf(QString(10'000, 'w')), "WW");
}

TEST_F(PeopleTest, AColourIsOfTheNameAloneAndReadableInLightAndDark) {
  for (const QString& name : {QString("ANNA"), QString("BEN"), QString("CARL"), QString("DORA")}) {
    EXPECT_EQ(colourOf(name.toLower()), colourOf(name)) << name.toStdString();
  }
  // Written down, since other stations have to come to the same.
  EXPECT_EQ(colourOf("ANNA").name(), "#4e7d1f");
  EXPECT_EQ(colourOf("BEN").name(), "#127e7e");
  std::set<QString> all;
  for (int i = 0; i < 500; ++i) {
    const QColor colour = colourOf(QStringLiteral("user %1").arg(i));
    all.insert(colour.name());
    EXPECT_GE(contrastOf(colour, Qt::white), 4.5) << colour.name().toStdString();
    for (const Appearance each : {Appearance::eLight, Appearance::eDark}) {
      applyAppearance(each);
      EXPECT_GE(contrastOf(colour, colours().panel), 3) << colour.name().toStdString();
    }
  }
  EXPECT_EQ(all.size(), 12u);
}

TEST_F(PeopleTest, OthersAreWhereTheyTellThatTheyAre) {
  StationRow ben = stationOf("BEN", "P1", {"E1", "E2"}, {"E2", "E3"});
  ben.room = "Sound";
  StationRow carl = stationOf("CARL", "P2", {"E9"});
  carl.room = "Sound";
  carl.isHere = false;
  const Snapshot all = peopleAround({ben, carl, stationOf("DORA", "")});
  const Whereabouts where = whereaboutsOf(all.presence, "P1");
  const Badge calm{"BEN", "BEN-PC", false, false};
  const Badge unsaved{"BEN", "BEN-PC", true, false};
  EXPECT_EQ(where.projects.value("P1"), Badges{calm}) << "this station knows of itself";
  EXPECT_EQ(where.projects.value("P2"), Badges({{"CARL", "CARL-PC", false, true}}));
  EXPECT_EQ(where.rooms.value("Sound"), Badges{calm}) << "a room of this project, not of another";
  EXPECT_EQ(where.edits.value("E1"), Badges{calm});
  EXPECT_EQ(where.edits.value("E2"), Badges{unsaved});
  EXPECT_EQ(where.edits.value("E3"), Badges{unsaved}) << "closed, and not saved";
  EXPECT_EQ(where.projects.size(), 2);
}

TEST_F(PeopleTest, PeopleAreNamedInWordsWhateverTheirNamesHold) {
  EXPECT_EQ(
      peopleText({{"BEN", {}, true, false}, {"CARL", {}, false, true}, {"DORA", {}, true, true}}),
      "BEN with unsaved changes, CARL gone without goodbye, DORA gone without goodbye, with "
      "unsaved changes");
  const Badges many(20, Badge{"BEN", {}, false, false});
  EXPECT_TRUE(peopleText(many).endsWith("BEN, 8 more"));
  EXPECT_LT(peopleText({{QString(10'000, 'x'), {}, false, false}}).size(), 100);
  EXPECT_EQ(personName("A\nB"), "A B");
  // The direction of a name must not turn the words after it.
  const QString hebrew = QString::fromUtf8("שלום");
  EXPECT_EQ(personName(hebrew), QChar(0x2068) + hebrew + QChar(0x2069));
}

TEST_F(PeopleTest, ProjectsRoomsAndEditsTellWhoIsThere) {
  StationRow ben = stationOf("BEN", "P1", {"E1"}, {"E1"});
  ben.room = "Sound";
  Snapshot snapshot = peopleAround({ben});
  ProjectRow film;
  film.cookie = "P1";
  film.name = "Film";
  RoomRow sound;
  sound.name = "Sound";
  snapshot.projects = std::make_shared<const std::vector<ProjectRow>>(1, film);
  snapshot.rooms = std::make_shared<const std::vector<RoomRow>>(1, sound);
  ProjectsPane places;
  ObjectsPane edits;
  places.show(snapshot);
  edits.show(snapshot);
  const QTreeView* const lists[] = {&places.projects(), &places.rooms(),
                                    &edits.view(ObjectKind::eEdits)};
  const auto badges = [](const QTreeView& list, int row) {
    return list.model()->index(row, 0).data(kBadgesRole).value<Badges>().size();
  };
  const auto text = [](const QTreeView& list, int row, int role) {
    return list.model()->index(row, 0).data(role).toString();
  };
  for (const QTreeView* list : lists) {
    const int row = list->model()->rowCount() - 1;  // Quay, after Pier
    EXPECT_EQ(badges(*list, row), 1u) << list->objectName().toStdString();
    EXPECT_TRUE(text(*list, row, Qt::AccessibleTextRole).contains("BEN"));
    EXPECT_TRUE(text(*list, row, Qt::ToolTipRole).contains("BEN"));
  }
  EXPECT_TRUE(text(*lists[2], 1, Qt::AccessibleTextRole).contains("BEN with unsaved changes"));
  EXPECT_EQ(badges(*lists[2], 0), 0u) << "what this station has open says so by itself";
  snapshot.presence.stations.pop_back();
  places.show(snapshot);
  edits.show(snapshot);
  for (const QTreeView* list : lists) {
    EXPECT_EQ(badges(*list, list->model()->rowCount() - 1), 0u) << list->objectName().toStdString();
  }
}

/// How many dots of a picture have this colour.
int dotsOf(const QImage& picture, const QColor& colour) {
  int count = 0;
  for (int y = 0; y < picture.height(); ++y) {
    for (int x = 0; x < picture.width(); ++x) count += picture.pixelColor(x, y) == colour;
  }
  return count;
}

TEST_F(PeopleTest, InitialsAreDrawnInEveryWidthAndNeverOverTheWholeName) {
  std::vector<StationRow> others;
  for (const char* user : {"BEN", "CARL", "DORA", "EMIL", "FRED"}) {
    others.push_back(stationOf(user, "P1", {"E1"}));
  }
  applyAppearance(Appearance::eLight);
  ObjectsPane pane;
  pane.show(peopleAround(others));
  QTreeView& view = pane.view(ObjectKind::eEdits);
  view.selectionModel()->clear();
  pane.QWidget::show();
  for (const int width : {900, 130}) {
    pane.resize(width, 300);
    QCoreApplication::processEvents();
    const QRect name = view.visualRect(view.model()->index(1, 0));
    const QImage picture = view.viewport()->grab(name).toImage();
    const bool isWide = width == 900;
    EXPECT_GT(dotsOf(picture, colourOf("BEN")), 40) << width;
    EXPECT_EQ(dotsOf(picture, colourOf("CARL")) > 40, isWide) << width;
    EXPECT_EQ(dotsOf(picture, colourOf("FRED")), 0) << "the fourth and fifth are counted";
    const QImage left = picture.copy(0, 0, name.width() / 2, name.height());
    EXPECT_EQ(dotsOf(left, colourOf("BEN")), 0) << width;
  }
}

struct PeoplePaneTest : PeopleTest {
  PeoplePaneTest() {
    ben.room = "Sound";
    gone.isHere = false;
    pane.resize(900, 300);
  }

  void choose(int row) { pane.list().setCurrentItem(pane.list().topLevelItem(row)); }

  [[nodiscard]] QStringList texts(int row) const {
    QStringList all;
    for (int i = 0; i < 6; ++i) all.append(pane.list().topLevelItem(row)->text(i));
    return all;
  }

  StationRow ben = stationOf("BEN", "P1", {"E1", "E2"}, {"E2"});
  StationRow carl = stationOf("CARL", "P2", {"E8", "E9"}, {"E9"});
  StationRow gone = stationOf("DORA", "P1");
  PeoplePane pane;
};

TEST_F(PeoplePaneTest, EverybodyIsListedWithPlaceAndEditsThisStationFirst) {
  Snapshot snapshot = peopleAround({ben, carl, gone});
  snapshot.presence.marked = {"EMIL"};
  pane.show(snapshot);
  ASSERT_EQ(pane.list().topLevelItemCount(), 5);
  EXPECT_EQ(texts(0).front(), "ANNA (this station)");
  EXPECT_EQ(texts(1), QStringList({"BEN", "Film P1", "Sound", "Pier (unsaved), Quay", "BEN-PC",
                                   "21 Nov 2026 17:40"}));
  EXPECT_EQ(texts(2)[3], "2 open, 1 of them unsaved");
  EXPECT_EQ(texts(3).front(), "DORA (gone)");
  EXPECT_EQ(texts(4), QStringList({"EMIL", "", "", "", "", ""}));
  const QString words = pane.list().topLevelItem(1)->data(0, Qt::AccessibleTextRole).toString();
  EXPECT_EQ(words,
            "BEN on BEN-PC: here since 21 Nov 2026 17:40, in project \"Film P1\", in room "
            "\"Sound\". Edits: Pier (unsaved), Quay");
}

TEST_F(PeoplePaneTest, WhoIsChosenStaysWhateverComesAndGoes) {
  pane.show(peopleAround({ben, gone}));
  choose(1);
  pane.show(peopleAround({stationOf("AARON", ""), ben, gone}));
  EXPECT_EQ(pane.list().currentItem()->text(0), "BEN");
  pane.show(peopleAround({gone, ben}));
  EXPECT_EQ(pane.list().currentItem()->text(0), "BEN");
  pane.show(peopleAround({gone}));
  EXPECT_EQ(pane.list().currentItem(), nullptr) << "a neighbour was chosen by nobody";
  EXPECT_FALSE(pane.writeAction().isEnabled());
}

TEST_F(PeoplePaneTest, OneWritesToThoseWhoCanReadIt) {
  pane.show(peopleAround({ben, carl, gone}));
  QSignalSpy asked(&pane, &PeoplePane::writeWanted);
  const bool may[] = {false, true, true, false};
  for (int row = 0; row < 4; ++row) {
    choose(row);
    EXPECT_EQ(pane.writeAction().isEnabled(), may[row]) << row;
    EXPECT_EQ(pane.writeAction().statusTip().isEmpty(), may[row]) << row;
  }
  choose(1);
  pane.findChild<QToolButton*>("writeTo")->click();
  pane.list().setFocus();
  QTest::keyClick(&pane.list(), Qt::Key_Return);
  ASSERT_EQ(asked.size(), 2);
  EXPECT_EQ(asked.front().front().toString(), "BEN");
}

TEST_F(PeoplePaneTest, OneGoesToTheEditsOfThisProject) {
  ben.open = {"E1"};
  ben.unsaved.clear();
  pane.show(peopleAround({ben, carl, gone}));
  QSignalSpy asked(&pane, &PeoplePane::editWanted);
  choose(2);
  EXPECT_EQ(pane.goAction().statusTip(), "What is open there belongs to another project.");
  choose(3);
  EXPECT_EQ(pane.goAction().statusTip(), "No edit is open there.");
  choose(1);
  pane.goAction().trigger();
  ASSERT_EQ(asked.size(), 1);
  EXPECT_EQ(asked.front().front().toString(), "E1");
}

TEST_F(PeoplePaneTest, OfSeveralEditsOneIsChosenFromAMenu) {
  pane.QWidget::show();
  pane.show(peopleAround({ben}));
  QSignalSpy asked(&pane, &PeoplePane::editWanted);
  choose(1);
  pane.goAction().trigger();
  const auto* const menu = pane.findChild<QMenu*>("editsOfPerson");
  ASSERT_NE(menu, nullptr);
  ASSERT_EQ(menu->actions().size(), 2);
  EXPECT_EQ(menu->actions().front()->text(), "Pier (unsaved)");
  menu->actions().front()->trigger();
  ASSERT_EQ(asked.size(), 1);
  EXPECT_EQ(asked.front().front().toString(), "E2");
}

TEST_F(PeoplePaneTest, NamesOfAnyLengthAndKindAreHarmless) {
  std::vector<StationRow> others;
  for (const QString& name : {QString(10'000, 'x'), QString("<b>bold</b>"), QString("a\nb\tc\a"),
                              QString::fromUtf8("שלום"), QString::fromUtf8("👩‍👩‍👧"),
                              QString("%1 %2"), QString("&Mine")}) {
    others.push_back(stationOf(name, "P1", {"E1"}));
    others.back().room = others.back().project = name;
  }
  pane.show(peopleAround(others));
  pane.QWidget::show();
  for (int row = 1; row < pane.list().topLevelItemCount(); ++row) {
    choose(row);
    const QString tip = pane.list().topLevelItem(row)->toolTip(0);
    EXPECT_FALSE(tip.contains("<b>bold")) << tip.toStdString();
    EXPECT_FALSE(texts(row).front().contains('\n'));
    EXPECT_LT(texts(row).join(' ').size(), 500);
  }
  EXPECT_TRUE(pane.list().topLevelItem(6)->toolTip(0).contains("%1 %2-PC"));
  EXPECT_FALSE(pane.grab().isNull());
}

}  // namespace
