#pragma once

#include <QWidget>
#include <map>
#include <optional>

#include "app/window/Snapshot.h"

class ColumnFit;
class QLabel;
class QTreeWidget;

/// The projects of the shared directory and the rooms of the open one, each with its state and
/// holder.
class ProjectsPane : public QWidget {
  Q_OBJECT

 public:
  explicit ProjectsPane(QWidget* parent = nullptr);

  void show(const Snapshot& snapshot);

  [[nodiscard]] std::optional<ProjectRow> chosenProject() const;
  [[nodiscard]] std::optional<RoomRow> chosenRoom() const;

  [[nodiscard]] QTreeWidget& projects() const { return *projects_; }
  [[nodiscard]] QTreeWidget& rooms() const { return *rooms_; }

 Q_SIGNALS:
  void projectOpened(const ProjectRow& project);
  void roomOpened(const RoomRow& room);
  void choiceChanged();
  void projectMenuWanted(const QPoint& at);
  void roomMenuWanted(const QPoint& at);

 private:
  QTreeWidget* makeList(const QString& name);
  void fitColumns(QTreeWidget& list);
  void showProjects();
  void showRooms();
  void changeEvent(QEvent* event) override;

  std::map<QTreeWidget*, ColumnFit*> columns_;
  QLabel* projectsHeading_;
  QLabel* roomsHeading_;
  QLabel* projectsHint_;
  QLabel* roomsHint_;
  QTreeWidget* projects_;
  QTreeWidget* rooms_;
  Shared<std::vector<ProjectRow>> projectRows_;
  Shared<std::vector<RoomRow>> roomRows_;
  QString problem_;
  ProjectState open_;
};

/// "held by ANNA", "left behind by BEN": a lock in words.
QString holdText(Hold hold, const QString& holder);
