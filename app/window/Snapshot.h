#pragma once

#include <QDateTime>
#include <QMetaType>
#include <QString>
#include <QStringList>
#include <array>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/window/EventFeed.h"
#include "app/window/WindowLayout.h"
#include "station/Station.h"
#include "station/base/Json.h"

namespace korvel {

// What the window shows of the station: plain values, made on the host thread and never changed
// afterwards, so that any number of threads may read them. Parts that did not change are shared
// from one snapshot to the next.

/// The state of a lock, as far as it is known.
enum class Hold { eFree, eTaken, eLeftBehind, eUnknown };

struct ProjectRow {
  QString cookie;
  QString name;
  bool isPrivate = false;
  bool isOpen = false;  ///< on this station
  Hold hold = Hold::eFree;
  QString holder;   ///< empty where nobody holds it or the name cannot be read
  QString problem;  ///< why its record cannot be read

  friend bool operator==(const ProjectRow&, const ProjectRow&) = default;
};

struct RoomRow {
  QString name;
  bool isHere = false;
  Hold hold = Hold::eFree;
  QString holder;

  friend bool operator==(const RoomRow&, const RoomRow&) = default;
};

/// The kinds of things that a project holds, in the order of their tabs.
enum class ObjectKind { eEdits, eBins, eRacks, eFilters, eMedia };
inline constexpr std::size_t kObjectKinds = 5;

/// One edit, log, bin, rack, filter or media file.
struct ObjectRow {
  QString key;  ///< its cookie; of media files, which may share one, with the path
  QString cookie;
  QString name;
  QString owner;   ///< of edits and logs
  QString detail;  ///< a filter's text, a media file's path, what a bin holds
  QString extra;   ///< the file that a proxy stands for
  QString problem;
  bool isLog = false;
  bool isOpen = false;
  bool isDirty = false;             ///< the user's changes are not saved
  bool isNamesake = false;          ///< another edit or log has its name, too
  bool isUnsavedElsewhere = false;  ///< another's, who announced them, are not
  QString missingFrom;              ///< users whose unsaved changes are missing here; or empty
  bool isDeleted = false;           ///< by another, while it was open or had unsaved changes here
  RemoteChanges elsewhere;
  quint64 content = 0;           ///< other when it holds something else; the same at every start
  QString savedBy;               ///< the user who saved an edit last, where that is known
  QDateTime savedAt;             ///< when it was saved last, UTC; invalid where nothing tells it
  std::optional<double> length;  ///< of an edit that can be read, in seconds
  double rate = 0;               ///< frames a second; 0 where none is told
  QString source;                ///< the media file that fills most of an edit; or empty
  int sources = 0;               ///< how many media files it shows
  QStringList contents;          ///< a bin's and a rack's cookies

  friend bool operator==(const ObjectRow&, const ObjectRow&) = default;
};
using ObjectRows = std::vector<ObjectRow>;  ///< by key

/// The message panel as it is now.
struct PanelState {
  bool exists = false;
  bool isOpen = false;
  QString title;
  QString recipient;
  QStringList recipients;
  QStringList lines;
  QString entry;
  QString prompt;
  QString icon;  ///< its file's name
  QString tooltip;

  friend bool operator==(const PanelState&, const PanelState&) = default;
};

/// What a station of this user's that ended without saving left of an edit.
struct LeftEdit {
  QString cookie;
  QString name;
  QDateTime changed;  ///< local; invalid where nothing tells it
  QString problem;    ///< why it cannot be read; empty when it can

  friend bool operator==(const LeftEdit&, const LeftEdit&) = default;
};

/// An ask that waits for an answer: another's for something of this user's, or the other way round.
/// Or something that this user is to be told of when it is free.
struct AskRow {
  long number = 0;  ///< by which commands name it
  bool isOwn = false;
  QString from;
  QString to;
  QString kind;  ///< "edit", "log", "room", "project"
  QString name;
  QString text;
  QDateTime when;  ///< local
  bool isUnverified = false;
  bool isAwaited = false;  ///< nobody is asked for it

  friend bool operator==(const AskRow&, const AskRow&) = default;
};

/// The open project; without a cookie where none is open.
struct ProjectState {
  QString cookie;
  QString name;
  bool isPrivate = false;
  QString room;  ///< the room that the station is in; empty for none

  friend bool operator==(const ProjectState&, const ProjectState&) = default;
};

/// A station as it tells of itself.
struct StationRow {
  QString user;
  QString host;
  QDateTime since;  ///< local time
  QString project;  ///< the name of the one that is open there; empty for none
  QString room;
  bool isHere = true;  ///< else it is gone without goodbye
  bool isSelf = false;
  QString key;  ///< other at each start of a station
  QString projectCookie;
  QStringList open;     ///< the cookies of the edits that its user has open
  QStringList unsaved;  ///< of those with changes that are not saved

  friend bool operator==(const StationRow&, const StationRow&) = default;
};

/// Who works on the share.
struct PresenceState {
  std::vector<StationRow> stations;  ///< this one first, then those here, then those gone
  QStringList marked;                ///< users who are marked active, and of whom no station tells

  friend bool operator==(const PresenceState&, const PresenceState&) = default;
};

template <typename Value>
using Shared = std::shared_ptr<const Value>;

struct Snapshot {
  ProjectState project;
  QString undo;  ///< what undoing would do, "Undo trim of Clip-002 in Harbour"; empty for nothing
  QString redo;
  Shared<std::vector<ProjectRow>> projects;
  QString projectsProblem;  ///< why they cannot be listed
  Shared<std::vector<RoomRow>> rooms;
  QString roomsProblem;  ///< why they cannot be listed
  std::array<Shared<ObjectRows>, kObjectKinds> objects;
  Shared<std::vector<LeftEdit>> left;  ///< unsaved changes that can be taken up, the newest first
  Shared<PanelState> panel;
  KeptTools tools;
  Shared<QStringList> users;
  Shared<QStringList> owners;  ///< who can be given something: users, and stations that are here
  QString user;                ///< of this station; empty before there is one
  PresenceState presence;
  Shared<std::vector<AskRow>> asks;  ///< the oldest first
};
using SnapshotPtr = std::shared_ptr<const Snapshot>;

}  // namespace korvel

Q_DECLARE_METATYPE(korvel::SnapshotPtr)

namespace korvel {

/// Makes the window's snapshots: looks anew at what changed and takes the rest over from the last
/// one. Host thread.
class SnapshotMaker {
 public:
  /// The station must outlive it.
  explicit SnapshotMaker(Station& station) : station_(station) {}

  SnapshotPtr make(const Changes& changes);

 private:
  void lookAtProject(Snapshot& next);
  void lookAtLists(Snapshot& next);
  void lookAtEdits(Snapshot& next, const Changes& changes);
  void lookAtLeft(Snapshot& next);
  void lookAtOthers(Snapshot& next, const Changes& changes);
  void lookAtPanel(Snapshot& next);
  void lookAtUsers(Snapshot& next);
  void lookAtPresence(Snapshot& next) const;
  void lookAtAsks(Snapshot& next) const;
  void addHistory(ObjectRow& row) const;
  [[nodiscard]] QDateTime fileTime(const ObjectRow& row) const;
  [[nodiscard]] quint64 contentBefore(const ObjectRow& row) const;
  [[nodiscard]] ObjectRow shownEdit(const JsonValue& line) const;

  Station& station_;
  SnapshotPtr last_ = std::make_shared<const Snapshot>();
  std::vector<std::string> markers_;             ///< the users who are marked active
  std::map<std::string, RemoteChanges> remote_;  ///< since the project was opened, by cookie
};

}  // namespace korvel
