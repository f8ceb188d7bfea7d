#pragma once

#include <QWidget>
#include <optional>

#include "app/window/HoldersModel.h"
#include "app/window/Snapshot.h"

class QLabel;
class QTreeView;

namespace korvel {

class ColumnFit;

/// The projects of the shared directory and the rooms of the open one, each with its state and
/// holder.
class ProjectsPane : public QWidget {
  Q_OBJECT

 public:
  explicit ProjectsPane(QWidget* parent = nullptr);

  void show(const Snapshot& snapshot);

  [[nodiscard]] std::optional<ProjectRow> chosenProject() const;
  [[nodiscard]] std::optional<RoomRow> chosenRoom() const;

  /// Chooses the project of this cookie, and has the keys act on it; false where the list has none.
  bool chooseProject(const QString& cookie);

  [[nodiscard]] QTreeView& projects() const { return *projects_.view; }
  [[nodiscard]] QTreeView& rooms() const { return *rooms_.view; }

 Q_SIGNALS:
  void projectOpened(const ProjectRow& project);
  void roomOpened(const RoomRow& room);
  void choiceChanged();
  void projectMenuWanted(const QPoint& at);
  void roomMenuWanted(const QPoint& at);

 private:
  struct List {
    HoldersModel* model = nullptr;
    QTreeView* view = nullptr;
    ColumnFit* columns = nullptr;
  };

  List makeList(const QString& name, const QString& title);
  void fitColumns(const List& list);
  void setRows(const List& list, HolderRows rows);
  void showProjects();
  void showRooms();
  void changeEvent(QEvent* event) override;

  QLabel* projectsHeading_;
  QLabel* roomsHeading_;
  QLabel* projectsHint_;
  QLabel* roomsHint_;
  List projects_;
  List rooms_;
  Shared<std::vector<ProjectRow>> projectRows_;
  Shared<std::vector<RoomRow>> roomRows_;
  QString problem_;
  ProjectState open_;
};

/// "held by ANNA", "left behind by BEN": a lock in words.
QString holdText(Hold hold, const QString& holder);

}  // namespace korvel
