#include "app/window/ProjectsPane.h"

#include <gtest/gtest.h>

#include <QAccessible>
#include <QTreeView>
#include <algorithm>

#include "tests/window/WindowScene.h"

using namespace korvel;

namespace {

/// What a window shows of these projects and of the rooms of the open one.
Snapshot showing(const QStringList& projects, const QStringList& rooms) {
  std::vector<ProjectRow> projectRows;
  for (const QString& name : projects) {
    projectRows.emplace_back();
    projectRows.back().cookie = "P-" + name;
    projectRows.back().name = name;
  }
  std::vector<RoomRow> roomRows;
  for (const QString& name : rooms) {
    roomRows.emplace_back();
    roomRows.back().name = name;
  }
  Snapshot snapshot;
  if (!rooms.isEmpty()) snapshot.project.cookie = "P-" + projects.value(0);
  snapshot.projects = std::make_shared<const std::vector<ProjectRow>>(std::move(projectRows));
  snapshot.rooms = std::make_shared<const std::vector<RoomRow>>(std::move(roomRows));
  return snapshot;
}

void chooseRow(QTreeView& list, int row) { list.setCurrentIndex(list.model()->index(row, 0)); }

QString chosenProject(const ProjectsPane& pane) {
  const auto row = pane.chosenProject();
  return row ? row->name : QString();
}

QString chosenRoom(const ProjectsPane& pane) {
  const auto row = pane.chosenRoom();
  return row ? row->name : QString();
}

const QStringList kNames{"Alley", "Beach", "Coast"};

class ProjectsPaneTest : public testing::Test {
 protected:
  // As the window does: it asks what is chosen whenever that changes.
  ProjectsPaneTest() {
    QObject::connect(&pane, &ProjectsPane::choiceChanged, &pane, [this] {
      asked.append(chosenProject(pane));
      asked.append(chosenRoom(pane));
    });
  }

  const WithoutDisplay display;
  ProjectsPane pane;
  QStringList asked;
};

TEST_F(ProjectsPaneTest, LeavingAProjectWithAnyRoomChosenLeavesNoRoomChosen) {
  for (int row = 0; row < kNames.size(); ++row) {
    pane.show(showing({"Harbour"}, kNames));
    chooseRow(pane.rooms(), row);
    EXPECT_EQ(chosenRoom(pane), kNames[row]);
    pane.show(showing({"Harbour"}, {}));
    EXPECT_EQ(chosenRoom(pane), QString()) << row;
    EXPECT_EQ(pane.rooms().model()->rowCount(), 0);
  }
}

TEST_F(ProjectsPaneTest, AVanishedFolderWithAnyProjectChosenLeavesNoProjectChosen) {
  for (int row = 0; row < kNames.size(); ++row) {
    pane.show(showing(kNames, {}));
    chooseRow(pane.projects(), row);
    EXPECT_EQ(chosenProject(pane), kNames[row]);
    pane.show(showing({}, {}));
    EXPECT_EQ(chosenProject(pane), QString()) << row;
    EXPECT_EQ(pane.projects().model()->rowCount(), 0);
  }
}

TEST_F(ProjectsPaneTest, ListsThatShrinkRowByRowNeverChooseAnother) {
  for (int chosen = 0; chosen < kNames.size(); ++chosen) {
    QStringList names = kNames;
    pane.show(showing(names, names));
    chooseRow(pane.projects(), chosen);
    chooseRow(pane.rooms(), chosen);
    while (!names.isEmpty()) {
      names.removeLast();
      pane.show(showing(names, names));
      const QString expected = names.contains(kNames[chosen]) ? kNames[chosen] : QString();
      EXPECT_EQ(chosenProject(pane), expected);
      EXPECT_EQ(chosenRoom(pane), expected);
    }
  }
}

TEST_F(ProjectsPaneTest, WhatIsInsertedBeforeTheChosenOneLeavesItChosen) {
  for (int row = 0; row < kNames.size(); ++row) {
    pane.show(showing(kNames, kNames));
    chooseRow(pane.projects(), row);
    chooseRow(pane.rooms(), row);
    asked.clear();
    pane.show(showing(QStringList{"Aarhus"} + kNames, QStringList{"Aarhus"} + kNames));
    EXPECT_EQ(chosenProject(pane), kNames[row]);
    EXPECT_EQ(chosenRoom(pane), kNames[row]);
    EXPECT_EQ(asked, QStringList()) << "nothing else was chosen meanwhile";
  }
}

TEST_F(ProjectsPaneTest, AProjectThatIsRenamedStaysChosenInItsNewPlace) {
  pane.show(showing(kNames, {}));
  chooseRow(pane.projects(), 0);
  Snapshot renamed = showing(kNames, {});
  auto rows = *renamed.projects;
  rows[0].name = "Dunes";
  std::rotate(rows.begin(), rows.begin() + 1, rows.end());
  renamed.projects = std::make_shared<const std::vector<ProjectRow>>(std::move(rows));
  pane.show(renamed);
  EXPECT_EQ(chosenProject(pane), "Dunes");
  EXPECT_EQ(pane.projects().currentIndex().row(), 2);
}

TEST_F(ProjectsPaneTest, RoomsWhoseNamesLookAlikeAreAllListed) {
  pane.show(showing({"Harbour"}, {"?", "?", "Sound"}));
  EXPECT_EQ(pane.rooms().model()->rowCount(), 3);
  pane.show(showing({"Harbour"}, {"?", "Sound"}));
  EXPECT_EQ(pane.rooms().model()->rowCount(), 2);
  pane.show(showing({"Harbour"}, {"?", "?", "?", "Sound"}));
  EXPECT_EQ(pane.rooms().model()->rowCount(), 4);
}

TEST_F(ProjectsPaneTest, TheChosenProjectIsChosenAgainWhenTheShareIsBack) {
  pane.show(showing(kNames, {}));
  chooseRow(pane.projects(), 1);
  for (int time = 0; time < 2; ++time) {
    pane.show(showing({}, {}));
    EXPECT_EQ(chosenProject(pane), "");
    pane.show(showing(kNames, {}));
    EXPECT_EQ(chosenProject(pane), kNames[1]);
  }
  pane.show(showing({}, {}));
  pane.show(showing({kNames[0]}, {}));
  EXPECT_EQ(chosenProject(pane), "");
  chooseRow(pane.projects(), 0);
  pane.show(showing(kNames, {}));
  EXPECT_EQ(chosenProject(pane), kNames[0]) << "what the user chose meanwhile counts";
}

TEST_F(ProjectsPaneTest, ProjectsOfOneNameAreToldApart) {
  Snapshot snapshot = showing({"Film", "Harbour", "Film"}, {});
  std::vector<ProjectRow> rows = *snapshot.projects;
  rows[0].cookie = "P111111112222";
  rows[2].cookie = "P333333334444";
  snapshot.projects = std::make_shared<const std::vector<ProjectRow>>(std::move(rows));
  pane.show(snapshot);
  const auto name = [&](int row) {
    return pane.projects().model()->index(row, 0).data().toString();
  };
  EXPECT_EQ(name(0), "Film  (P11111111)");
  EXPECT_EQ(name(1), "Harbour");
  EXPECT_EQ(name(2), "Film  (P33333333)");
}

TEST_F(ProjectsPaneTest, AScreenReaderTellsTheHeadingsThatAreNotSeen) {
  for (QTreeView* const list : {&pane.projects(), &pane.rooms()}) {
    QAccessibleInterface* const reader = QAccessible::queryAccessibleInterface(list);
    ASSERT_TRUE(reader && reader->tableInterface());
    EXPECT_EQ(reader->tableInterface()->columnDescription(HoldersModel::eName), "Name");
    EXPECT_EQ(reader->tableInterface()->columnDescription(HoldersModel::eState), "State");
  }
}

}  // namespace
