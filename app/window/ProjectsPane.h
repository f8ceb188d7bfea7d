#pragma once

#include <QAbstractTableModel>
#include <QString>
#include <QWidget>
#include <optional>
#include <vector>

#include "app/window/Appearance.h"
#include "app/window/PeoplePane.h"
#include "app/window/Snapshot.h"

class QLabel;
class QSplitter;
class QTreeView;

namespace korvel {

/// A project or a room as its list shows it: its name, and its state with who holds it.
struct HolderRow {
  QString key;  ///< the same for as long as the thing exists
  QString name;
  Glyph kind = Glyph::eProject;
  QString state;
  Glyph sign = Glyph::eUnknown;               ///< the state's, beside its words
  QColor Colours::*colour = &Colours::quiet;  ///< the sign's
  QString tip;                                ///< on the state
  bool isHere = false;                        ///< this station is in it
  Badges people;                              ///< of other stations, who are in it

  friend bool operator==(const HolderRow&, const HolderRow&) = default;
};
using HolderRows = std::vector<HolderRow>;  ///< in the order in which they are shown

/// Projects or rooms as a table. New rows are taken over one by one, by their keys, so that views
/// keep what is chosen whatever comes, goes or moves beside it.
class HoldersModel : public QAbstractTableModel {
  Q_OBJECT

 public:
  enum Column { eName, eState, eColumns };

  using QAbstractTableModel::QAbstractTableModel;

  void setRows(HolderRows rows);
  [[nodiscard]] const HolderRows& rows() const { return rows_; }

  /// The row with this key; below zero where there is none.
  [[nodiscard]] int rowOf(const QString& key) const;

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;

  /// The headings are not seen; screen readers tell them.
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

 private:
  void removeMissing(const HolderRows& rows);
  void putInPlace(const HolderRow& wanted, int row);
  [[nodiscard]] int rowFrom(int first, const QString& key) const;
  void removeAt(int row);
  void insertAt(int row, const HolderRow& what);
  void moveRow(int from, int to);
  [[nodiscard]] QVariant iconOf(const HolderRow& row, int column) const;

  HolderRows rows_;
};

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

  /// Projects above, rooms below.
  [[nodiscard]] QSplitter& lists() const { return *lists_; }
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

  void keepChoice(const QString& before);

  QLabel* projectsHeading_;
  QLabel* roomsHeading_;
  QLabel* projectsHint_;
  QLabel* roomsHint_;
  List projects_;
  List rooms_;
  QSplitter* lists_;
  Shared<std::vector<ProjectRow>> projectRows_;
  Shared<std::vector<RoomRow>> roomRows_;
  QString problem_;
  QString roomsProblem_;
  ProjectState open_;
  PresenceState presence_;
  QString missed_;  ///< the chosen project that went from the list; empty where none did
};

/// "held by ANNA", "left behind by BEN": a lock in words.
QString holdText(Hold hold, const QString& holder);

}  // namespace korvel
