#pragma once

#include <QHash>
#include <QWidget>
#include <optional>
#include <vector>

#include "app/window/Snapshot.h"

class QAction;
class QTreeWidget;
class QTreeWidgetItem;

namespace korvel {

/// An edit that somebody has open or has unsaved changes in.
struct PersonEdit {
  QString cookie;
  QString name;  ///< empty where it belongs to another project than the open one
  bool isUnsaved = false;

  friend bool operator==(const PersonEdit&, const PersonEdit&) = default;
};

/// A station in the list of people, or a user of whom no station tells.
struct PersonRow {
  StationRow station;
  std::vector<PersonEdit> edits;  ///< those with unsaved changes first
  bool isSilent = false;          ///< marked active, and no station tells of it

  friend bool operator==(const PersonRow&, const PersonRow&) = default;
};

/// Everybody on the share: who, where, with which edits, since when; this station first. Offers to
/// write to the chosen one and to go to the edits that are open there. What is chosen goes by the
/// station, whatever comes or goes beside it.
class PeoplePane : public QWidget {
  Q_OBJECT

 public:
  explicit PeoplePane(QWidget* parent = nullptr);

  void show(const Snapshot& snapshot);

  [[nodiscard]] QTreeWidget& list() const { return *list_; }
  [[nodiscard]] const std::vector<PersonRow>& rows() const { return rows_; }
  [[nodiscard]] QAction& writeAction() const { return *write_; }
  [[nodiscard]] QAction& goAction() const { return *go_; }

 Q_SIGNALS:
  void writeWanted(const QString& user);

  /// This edit of the open project is to be shown.
  void editWanted(const QString& cookie);

 private:
  void build();
  void take(std::vector<PersonRow> rows);
  QTreeWidgetItem* itemAt(int place, const QString& key);
  void fill(QTreeWidgetItem& item, const PersonRow& row);
  [[nodiscard]] std::optional<PersonRow> chosen() const;
  void enable();
  void goToEdit();
  void changeEvent(QEvent* event) override;

  QTreeWidget* list_;
  QAction* write_;
  QAction* go_;
  std::vector<PersonRow> rows_;
};

}  // namespace korvel
