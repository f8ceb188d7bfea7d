#pragma once

#include <QColor>
#include <QHash>
#include <QMetaType>
#include <QString>
#include <QStyledItemDelegate>
#include <vector>

#include "app/window/Snapshot.h"

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

}  // namespace korvel

Q_DECLARE_METATYPE(korvel::Badges)
