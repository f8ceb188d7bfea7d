#include "app/window/Snapshot.h"

#include <algorithm>
#include <set>

#include "app/window/ActionTable.h"
#include "app/window/Lists.h"
#include "app/window/ObjectsModel.h"
#include "app/window/Texts.h"
#include "host/os/Files.h"
#include "host/os/OS.h"
#include "host/project/iPermissionsManager.h"
#include "station/base/HostThread.h"
#include "station/base/Strings.h"
#include "station/edit/EditFile.h"
#include "station/edit/Edits.h"
#include "station/edit/UnsavedEdits.h"
#include "station/keep/UndoList.h"
#include "station/media/MediaFiles.h"
#include "station/os/SharedFiles.h"
#include "station/project/ProjectFolder.h"
#include "station/project/Projects.h"
#include "station/project/Rooms.h"
#include "station/talk/Asks.h"
#include "station/ui/PanelDriver.h"
#include "station/watch/Health.h"
#include "station/watch/Presence.h"

namespace korvel {

namespace {

/// The new value, or the old object if both are equal: readers compare pointers to see that nothing
/// changed.
template <typename Value>
Shared<Value> unlessSame(const Shared<Value>& before, Value now) {
  if (before && *before == now) return before;
  return std::make_shared<const Value>(std::move(now));
}

Hold holdOf(LockState state) {
  switch (state) {
    case LockState::eFree:
      return Hold::eFree;
    case LockState::eHeld:
      return Hold::eTaken;
    case LockState::eLeftBehind:
      return Hold::eLeftBehind;
    case LockState::eUnknown:
      break;
  }
  return Hold::eUnknown;
}

ProjectRow projectRow(const ProjectInfo& info, const ProjectState& open) {
  ProjectRow row;
  row.cookie = readableText(info.cookie.asString().str());
  row.name = readableText(shownText(info.name));
  row.isPrivate = info.isPrivate;
  row.isOpen = row.cookie == open.cookie;
  row.hold = info.isOccupied ? holdOf(info.lock) : Hold::eFree;
  row.holder = readableText(info.lockOwner);
  row.problem = readableText(info.problem);
  return row;
}

QStringList cookieList(const std::vector<Cookie>& cookies) {
  QStringList list;
  for (const Cookie& each : cookies) list.append(readableText(each.asString().str()));
  return list;
}

StationRow stationRow(const FoundStation& station, const std::string& ownId) {
  const StationNote& note = station.note;
  const auto text = [](const std::string& bytes) { return readableText(shownText(bytes)); };
  return {text(note.user),
          text(note.host),
          QDateTime::fromString(text(note.since), Qt::ISODate).toLocalTime(),
          text(note.projectName),
          text(note.room),
          station.isAlive(),
          note.id == ownId,
          text(note.id),
          note.projectName.empty() ? QString() : readableText(note.project.asString().str()),
          cookieList(note.open),
          cookieList(note.unsaved)};
}

AskRow askRow(const JsonValue& ask) {
  const auto text = [&ask](const char* key) { return readableText(ask[key].asString()); };
  return {ask["number"].asLong(),
          ask["own"].asBool(),
          text("from"),
          text("to"),
          text("kind"),
          text("name"),
          text("text"),
          QDateTime::fromString(text("time"), Qt::ISODate).toLocalTime(),
          ask["unverified"].asBool(),
          ask["awaited"].asBool()};
}

/// The users who have a marker in the projects directory.
std::vector<std::string> markedUsers() {
  Vector<iFileManager::DirectoryItem> items;
  OS().fileManager().listDirectory(getProjectsBaseDirectory() + L"*.cli", iFileManager::eListFiles,
                                   0, items);
  std::vector<std::string> users;
  for (const auto& item : items) {
    const std::string name = shownText(item.name);
    users.push_back(name.substr(0, name.size() - kMarkerEnding.size()));
  }
  std::ranges::sort(users);
  return users;
}

template <typename Row>
void sortByName(std::vector<Row>& rows) {
  const QCollator order = naturalOrder();
  std::ranges::stable_sort(rows,
                           [&order](const Row& a, const Row& b) { return order(a.name, b.name); });
}

QStringList stringList(const JsonValue& array) {
  QStringList list;
  for (const JsonValue& each : array.elements()) list.append(readableText(each.asString()));
  return list;
}

PanelState panelState(const JsonValue& shown) {
  PanelState panel;
  panel.exists = true;
  panel.isOpen = shown["open"].asBool();
  panel.title = readableText(shown["title"].asString());
  panel.recipient = readableText(shown["recipient"].asString());
  panel.recipients = stringList(shown["recipients"]);
  panel.lines = stringList(shown["lines"]);
  for (QString& line : panel.lines) line = asTyped(line);
  panel.entry = readableText(shown["entry"].asString());
  panel.prompt = readableText(shown["prompt"].asString());
  panel.icon = readableText(shown["icon"].asString());
  panel.tooltip = readableText(shown["tooltip"].asString());
  return panel;
}

/// Adds later changes to earlier ones.
void add(RemoteChanges& changes, const RemoteChanges& later) {
  const bool isSameDoer = later.did.isEmpty() && later.doer == changes.doer;
  if (!later.did.isNull() && !isSameDoer) {
    changes.did = later.did;
    changes.doer = later.doer;
    changes.didPath = later.didPath;
  }
  if (later.count == 0) return;
  changes.count += later.count;
  changes.wasMade = changes.wasMade || later.wasMade;
  changes.by = later.by;
  changes.at = later.at;
}

ProjectState projectState(Station& station) {
  const OpenProject* open = station.projects().current();
  if (!open) return {};
  return {readableText(open->cookie.asString().str()), readableText(shownText(open->name)),
          open->isPrivate, readableText(shownText(station.rooms().current()))};
}

void markNamesakes(ObjectRows& rows) {
  QHash<QString, int> counts;
  counts.reserve(static_cast<qsizetype>(rows.size()));
  for (const ObjectRow& row : rows) ++counts[row.name];
  for (ObjectRow& row : rows) row.isNamesake = counts[row.name] > 1;
}

}  // namespace

// Runs on the host thread. The snapshot is never changed afterwards, so that the window's thread
// reads it without a lock.
SnapshotPtr SnapshotMaker::make(const Changes& changes) {
  // A copy shares all parts with the last snapshot; only changed parts are replaced.
  auto next = std::make_shared<Snapshot>(*last_);
  lookAtProject(*next);
  const bool isOther = next->project.cookie != last_->project.cookie;
  Changes wanted = changes;
  if (isOther) {
    // Counts of changes belong to the objects of the project that was left.
    remote_.clear();
    wanted.all = true;
  }
  for (const auto& [cookie, later] : wanted.remote) add(remote_[cookie], later);
  // The host thread must be free to tell of a share that hangs; once it is back it is looked at.
  const bool isDue = wanted.all || wanted.projects;
  if (isDue && !station_.health().isShareSilent()) lookAtLists(*next);
  lookAtEdits(*next, wanted);
  lookAtOthers(*next, wanted);
  if (wanted.all || wanted.panel) lookAtPanel(*next);
  if (wanted.all || wanted.users) lookAtUsers(*next);
  lookAtPresence(*next);
  lookAtAsks(*next);
  last_ = next;
  return next;
}

void SnapshotMaker::lookAtProject(Snapshot& next) {
  next.project = projectState(station_);
  next.undo = readableText(shownText(station_.undo().undoText()));
  next.redo = readableText(shownText(station_.undo().redoText()));
}

void SnapshotMaker::lookAtLists(Snapshot& next) {
  const ActivityScope activity("the share to list the projects");
  std::vector<ProjectRow> projects;
  if (const auto infos = station_.projects().list()) {
    for (const ProjectInfo& info : *infos) projects.push_back(projectRow(info, next.project));
    sortByName(projects);
    next.projectsProblem.clear();
  } else {
    next.projectsProblem = shownError(infos.error());
  }
  next.projects = unlessSame(next.projects, std::move(projects));
  std::vector<RoomRow> rooms;
  next.roomsProblem.clear();
  if (!next.project.cookie.isEmpty() && !next.project.isPrivate) {
    if (const auto infos = station_.rooms().list()) {
      for (const RoomInfo& info : *infos) {
        rooms.push_back({readableText(shownText(info.name)), info.isHere, holdOf(info.state),
                         readableText(info.holder)});
      }
      sortByName(rooms);
    } else {
      next.roomsProblem = shownError(infos.error());
    }
  }
  next.rooms = unlessSame(next.rooms, std::move(rooms));
  markers_ = markedUsers();
}

// What tells later whether others changed it.
void SnapshotMaker::addHistory(ObjectRow& row) const {
  const std::string cookie = row.cookie.toStdString();
  if (const auto known = remote_.find(cookie); known != remote_.end()) {
    row.elsewhere = known->second;
  }
  if (const EditSummary* edit = station_.edits().summary(Cookie(cookie.c_str(), false))) {
    row.content = edit->content;
    row.savedBy = readableText(shownText(edit->savedBy));
    row.savedAt = QDateTime::fromString(readableText(edit->savedAt), Qt::ISODate);
    const EditExtent extent = station_.edits().extent(Cookie(cookie.c_str(), false));
    if (edit->problem.empty()) row.length = extent.length;
    row.rate = extent.rate;
    row.source = readableText(shownText(extent.source));
    row.sources = static_cast<int>(extent.sources);
  } else if (row.isDeleted) {
    row.content = contentBefore(row);
  } else {
    const QStringList texts = QStringList{row.name, row.detail, row.extra} + row.contents;
    row.content = hash64(texts.join(QLatin1Char('\n')).toStdString());
  }
  if (!row.savedAt.isValid()) row.savedAt = fileTime(row);
}

// Bins, filters and media have no stamp of who saved them when; nor has an edit that another
// program wrote. When the project was entered, each file's own time was listed.
QDateTime SnapshotMaker::fileTime(const ObjectRow& row) const {
  constexpr std::int64_t kNanosecondsPerMs = 1'000'000;
  const OpenProject* const open = station_.projects().current();
  if (!open) return {};
  const std::string path = row.detail.toStdString();
  // A media file's record is called after its path.
  const std::string cookie =
      row.key == row.cookie ? row.cookie.toStdString()
                            : Cookie(mediaKey(networkForm(path)).c_str(), true).asString().str();
  for (const std::string_view ending : {kEditEnding, kRecordEnding}) {
    const FileStamp* const file = open->listing->files.find(cookie + std::string(ending));
    if (file) return QDateTime::fromMSecsSinceEpoch(file->modified / kNanosecondsPerMs, Qt::UTC);
  }
  return {};
}

// Of a deleted edit, to know it again when it comes back.
quint64 SnapshotMaker::contentBefore(const ObjectRow& row) const {
  const auto& edits = last_->objects[static_cast<std::size_t>(ObjectKind::eEdits)];
  if (!edits) return row.content;
  const auto found = std::ranges::lower_bound(*edits, row.key, {}, &ObjectRow::key);
  return found != edits->end() && found->key == row.key ? found->content : row.content;
}

// Changes that another announced and has not saved make an edit dirty here as well. They are not
// this user's to save or to lose.
ObjectRow SnapshotMaker::shownEdit(const JsonValue& line) const {
  ObjectRow row = editRow(line);
  row.missingFrom = readableText(line["missing_from"].asString());
  addHistory(row);
  if (!row.isDirty) return row;
  const EditFile* const edit =
      station_.edits().loaded(Cookie(row.cookie.toStdString().c_str(), false));
  row.isDirty = edit && edit->hasLocalChanges();
  row.isUnsavedElsewhere = !row.isDirty;
  return row;
}

void SnapshotMaker::lookAtEdits(Snapshot& next, const Changes& changes) {
  Shared<ObjectRows>& shown = next.objects[static_cast<std::size_t>(ObjectKind::eEdits)];
  // Reading all edits costs most, so single changed edits are replaced where they are known.
  const bool isWhole = changes.all || !shown || changes.families.contains("edit");
  if (!isWhole && changes.edits.empty()) return;
  ObjectRows rows = isWhole ? ObjectRows() : *shown;
  if (isWhole) {
    const JsonValue list = station_.edits().list();
    for (const JsonValue& line : list.elements()) {
      rows.push_back(shownEdit(line));
    }
    sortByKey(rows);
    lookAtLeft(next);
  } else {
    for (const std::string& cookie : changes.edits) {
      const JsonValue line = station_.edits().listed(Cookie(cookie.c_str(), false));
      putRow(rows, readableText(cookie), shownEdit(line));
    }
  }
  markNamesakes(rows);
  shown = unlessSame(shown, std::move(rows));
}

void SnapshotMaker::lookAtLeft(Snapshot& next) {
  std::vector<LeftEdit> left;
  const JsonValue list = station_.unsaved().state();
  for (const JsonValue& each : list.elements()) {
    const QString changed = readableText(each["changed"].asString());
    left.push_back({readableText(each["cookie"].asString()), readableText(each["name"].asString()),
                    QDateTime::fromString(changed, Qt::ISODate).toLocalTime(),
                    readableText(each["problem"].asString())});
  }
  next.left = unlessSame(next.left, std::move(left));
}

void SnapshotMaker::lookAtOthers(Snapshot& next, const Changes& changes) {
  for (const ObjectKind kind :
       {ObjectKind::eBins, ObjectKind::eRacks, ObjectKind::eFilters, ObjectKind::eMedia}) {
    Shared<ObjectRows>& shown = next.objects[static_cast<std::size_t>(kind)];
    if (shown && !changes.all && !changes.families.contains(familyOf(kind))) continue;
    ObjectRows rows = rowsOf(station_, kind);
    for (ObjectRow& row : rows) addHistory(row);
    sortByKey(rows);
    shown = unlessSame(shown, std::move(rows));
  }
}

void SnapshotMaker::lookAtPanel(Snapshot& next) {
  PanelState panel;
  Desktop& desktop = station_.desktop();
  if (const auto shown = PanelDriver(desktop).show()) panel = panelState(*shown);
  next.tools = toolsOn(desktop);
  next.panel = unlessSame(next.panel, std::move(panel));
}

// The list of users only grows, so its length tells whether there is a new name.
void SnapshotMaker::lookAtUsers(Snapshot& next) {
  iPermissionsManager* permissions = iPermissionsManager::instance();
  if (!permissions) return;
  next.user = readableText(shownText(permissions->getCurrentUser()));
  const auto& users = permissions->getUserList();
  if (!next.users || static_cast<std::size_t>(next.users->size()) != users.size()) {
    QStringList names;
    for (const auto& user : users) names.append(readableText(shownText(user)));
    next.users = std::make_shared<const QStringList>(std::move(names));
  }
  QStringList owners = *next.users;
  for (const std::string& host : station_.presence().hosts()) {
    const QString name = readableText(host);
    if (!owners.contains(name)) owners.append(name);
  }
  next.owners = unlessSame(next.owners, std::move(owners));
}

void SnapshotMaker::lookAtPresence(Snapshot& next) const {
  const std::vector<FoundStation> stations = station_.presence().known();
  next.presence = {};
  std::set<std::string> told;
  for (const FoundStation& each : stations) {
    told.insert(upperCased(each.note.user));
    next.presence.stations.push_back(stationRow(each, station_.presence().ownId()));
  }
  for (const std::string& user : markers_) {
    if (!told.contains(upperCased(user))) next.presence.marked.append(readableText(user));
  }
}

void SnapshotMaker::lookAtAsks(Snapshot& next) const {
  std::vector<AskRow> asks;
  const JsonValue list = station_.asks().list();
  for (const JsonValue& each : list.elements()) asks.push_back(askRow(each));
  next.asks = unlessSame(next.asks, std::move(asks));
}

}  // namespace korvel
