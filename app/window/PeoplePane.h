#pragma once

#include <QColor>
#include <QHash>
#include <QMetaType>
#include <QString>
#include <QStyledItemDelegate>
#include <QWidget>
#include <optional>
#include <vector>

#include "app/window/Snapshot.h"

class QAction;
class QTreeWidget;
class QTreeWidgetItem;

namespace korvel {

/// What stands beside a project, room or edit for one colleague: initials in the user's colour. One
/// who is gone without goodbye has grey ones in a broken line, unsaved changes have a dot.
struct Badge {
  QString user;
  QString host;  ///< tells two stations of one user apart
  bool isUnsaved = false;
  bool isGone = false;

  friend bool operator==(const Badge&, const Badge&) = default;
};
using Badges = std::vector<Badge>;

/// The role under which the name of a project, room or edit tells its Badges.
inline constexpr int kBadgesRole = Qt::UserRole + 100;

/// Where the users of the other stations are.
struct Whereabouts {
  QHash<QString, Badges> projects;  ///< by cookie
  QHash<QString, Badges> rooms;     ///< of the open project, by name
  QHash<QString, Badges> edits;     ///< by cookie: who has it open, or unsaved changes in it
};

/// `openProject` is the cookie of the one whose rooms are meant.
Whereabouts whereaboutsOf(const PresenceState& presence, const QString& openProject);

/// "AB" of "anna berg", "BE" of "Ben": two letters as people see them, at most; "?" of a name that
/// has none.
QString initialsOf(const QString& user);

/// The colour of a user: of the name alone, in whatever case, so that it is the same on every
/// station. White letters stand out from it, and it from the lists, light and dark.
QColor colourOf(const QString& user);

/// A name within a sentence: on one line, not endless, and its direction ends with it.
QString personName(const QString& user);

/// "BEN, CARL with unsaved changes, DORA gone without goodbye"; of many the first.
QString peopleText(const Badges& people);

/// "BEN on SUITE2: here since 09:12:30, in project "Film", in room "Sound"".
QString stationText(const StationRow& station);

/// A user's initials as an icon.
QIcon badgeIcon(const Badge& badge);

/// Draws the badges of an item at the end of its name, which is cut for them; where there is no
/// room for all, how many more there are.
class BadgesDelegate : public QStyledItemDelegate {
 public:
  using QStyledItemDelegate::QStyledItemDelegate;

  void paint(QPainter* painter, const QStyleOptionViewItem& option,
             const QModelIndex& index) const override;
};

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

Q_DECLARE_METATYPE(korvel::Badges)
