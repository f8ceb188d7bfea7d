#include "app/window/ProjectsPane.h"

#include <QEvent>
#include <QFont>
#include <QHash>
#include <QLabel>
#include <QSet>
#include <QSplitter>
#include <QTreeView>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "app/window/Lists.h"
#include "app/window/ObjectsModel.h"
#include "app/window/Texts.h"

namespace korvel {

namespace {

/// With who is in it, on a line or in a sentence of its own.
QString withPeople(const QString& text, const char* between, const HolderRow& row) {
  if (row.people.empty()) return text;
  return text + QLatin1String(between) + HoldersModel::tr("In it: %1").arg(peopleText(row.people));
}

}  // namespace

int HoldersModel::rowOf(const QString& key) const { return rowFrom(0, key); }

int HoldersModel::rowFrom(int first, const QString& key) const {
  const auto at = std::find_if(rows_.begin() + first, rows_.end(),
                               [&key](const HolderRow& row) { return row.key == key; });
  return at == rows_.end() ? -1 : static_cast<int>(at - rows_.begin());
}

void HoldersModel::setRows(HolderRows rows) {
  removeMissing(rows);
  // Names that are no valid text look alike when shown, so two rows may have one key.
  for (int row = 0; row < static_cast<int>(rows.size()); ++row)
    putInPlace(rows[static_cast<std::size_t>(row)], row);
  while (rowCount() > static_cast<int>(rows.size())) removeAt(rowCount() - 1);
}

void HoldersModel::removeMissing(const HolderRows& rows) {
  QSet<QString> kept;
  for (const HolderRow& row : rows) kept.insert(row.key);
  for (int row = rowCount() - 1; row >= 0; --row) {
    if (!kept.contains(rows_[static_cast<std::size_t>(row)].key)) removeAt(row);
  }
}

void HoldersModel::removeAt(int row) {
  beginRemoveRows({}, row, row);
  rows_.erase(rows_.begin() + row);
  endRemoveRows();
}

// Everything before `row` is in place already.
void HoldersModel::putInPlace(const HolderRow& wanted, int row) {
  const int before = rowFrom(row, wanted.key);
  if (before < 0) insertAt(row, wanted);
  if (before > row) moveRow(before, row);
  HolderRow& shown = rows_[static_cast<std::size_t>(row)];
  if (shown == wanted) return;
  shown = wanted;
  Q_EMIT dataChanged(index(row, eName), index(row, eState));
}

void HoldersModel::insertAt(int row, const HolderRow& what) {
  beginInsertRows({}, row, row);
  rows_.insert(rows_.begin() + row, what);
  endInsertRows();
}

// Only moves rows up: the rows above `to` are in place already.
void HoldersModel::moveRow(int from, int to) {
  beginMoveRows({}, from, from, {}, to);
  std::rotate(rows_.begin() + to, rows_.begin() + from, rows_.begin() + from + 1);
  endMoveRows();
}

int HoldersModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

int HoldersModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : eColumns;
}

QVariant HoldersModel::iconOf(const HolderRow& row, int column) const {
  const Colours& with = colours();
  return column == eName ? icon(row.kind, with.quiet) : icon(row.sign, with.*row.colour);
}

QVariant HoldersModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
  return section == eName ? tr("Name") : tr("State");
}

QVariant HoldersModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= rowCount()) return {};
  const HolderRow& row = rows_[static_cast<std::size_t>(index.row())];
  const bool isName = index.column() == eName;
  switch (role) {
    case Qt::DisplayRole:
      return isName ? row.name : row.state;
    case Qt::DecorationRole:
      return iconOf(row, index.column());
    case Qt::ToolTipRole:
      return plainTip(withPeople(isName ? row.name : row.tip, "\n", row));
    case Qt::AccessibleTextRole:
      return isName ? withPeople(listed({row.name, row.state}), ". ", row) : row.state;
    case kBadgesRole:
      return isName ? QVariant::fromValue(row.people) : QVariant();
    case Qt::FontRole: {
      QFont font;
      font.setBold(true);
      return isName && row.isHere ? QVariant(font) : QVariant();
    }
    default:
      return {};
  }
}

namespace {

constexpr int kLeastHolderName = 110;
constexpr int kLeastState = 28;   // its sign
constexpr int kAroundState = 40;  // the sign, and the gaps

QLabel* makeLabel(const QString& text, const char* role) {
  auto* label = new QLabel(text);
  label->setProperty("role", role);
  label->setTextFormat(Qt::PlainText);
  label->setWordWrap(true);
  label->setContentsMargins(10, 8, 10, 4);
  return label;
}

QWidget* inColumn(const QList<QWidget*>& widgets) {
  auto* column = new QWidget;
  auto* layout = new QVBoxLayout(column);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  for (QWidget* each : widgets) layout->addWidget(each, each == widgets.back() ? 1 : 0);
  return column;
}

/// Shape and colour of a lock, beside its words.
void setHold(HolderRow& row, Hold hold) {
  switch (hold) {
    case Hold::eFree:
      row.sign = Glyph::eFree;
      row.colour = &Colours::good;
      break;
    case Hold::eTaken:
      row.sign = Glyph::eTaken;
      row.colour = &Colours::held;
      break;
    case Hold::eLeftBehind:
      row.sign = Glyph::eLeftBehind;
      row.colour = &Colours::warn;
      break;
    case Hold::eUnknown:
      row.sign = Glyph::eUnknown;
      row.colour = &Colours::quiet;
      break;
  }
}

void setHere(HolderRow& row, const QString& state) {
  row.isHere = true;
  row.state = row.tip = state;
  row.sign = Glyph::eHere;
  row.colour = &Colours::accent;
}

/// As edits are called, too: by name, with the beginning of the cookie where another has the name.
QString calledProject(const ProjectRow& project, bool isNamesake) {
  ObjectRow row;
  row.cookie = project.cookie;
  row.name = project.name;
  row.isNamesake = isNamesake;
  return shownName(row);
}

HolderRow shownProject(const ProjectRow& project, bool isNamesake) {
  HolderRow row;
  row.key = project.cookie;
  row.name = calledProject(project, isNamesake);
  row.kind = project.isPrivate ? Glyph::ePrivate : Glyph::eProject;
  // Users of a shared project take no lock.
  const bool hasHolder = project.isPrivate || project.hold != Hold::eFree;
  row.state = hasHolder ? holdText(project.hold, project.holder) : ProjectsPane::tr("open to all");
  row.tip = row.state;
  setHold(row, project.hold);
  if (project.isOpen) setHere(row, ProjectsPane::tr("open here"));
  if (project.problem.isEmpty()) return row;
  row.state = ProjectsPane::tr("unreadable");
  row.tip = project.problem;
  row.sign = Glyph::eProblem;
  row.colour = &Colours::bad;
  return row;
}

HolderRow shownRoom(const RoomRow& room) {
  HolderRow row;
  row.key = room.name;
  row.name = oneLine(room.name);
  row.kind = Glyph::eRoom;
  row.state = row.tip = holdText(room.hold, room.holder);
  setHold(row, room.hold);
  if (room.isHere) setHere(row, ProjectsPane::tr("you are here"));
  return row;
}

QString keyOfCurrent(const QTreeView& view, const HoldersModel& model) {
  const QModelIndex current = view.currentIndex();
  return current.isValid() ? model.rows()[static_cast<std::size_t>(current.row())].key : QString();
}

template <typename Row>
std::optional<Row> rowWith(const Shared<std::vector<Row>>& rows, const QString& key,
                           QString Row::*keyOf) {
  if (!rows || key.isEmpty()) return std::nullopt;
  const auto found = std::ranges::find(*rows, key, keyOf);
  return found == rows->end() ? std::nullopt : std::optional(*found);
}

}  // namespace

QString holdText(Hold hold, const QString& holder) {
  switch (hold) {
    case Hold::eFree:
      return ProjectsPane::tr("free");
    case Hold::eTaken:
      return holder.isEmpty() ? ProjectsPane::tr("held by somebody")
                              : ProjectsPane::tr("held by %1").arg(holder);
    case Hold::eLeftBehind:
      return holder.isEmpty() ? ProjectsPane::tr("left behind by somebody")
                              : ProjectsPane::tr("left behind by %1").arg(holder);
    case Hold::eUnknown:
      break;
  }
  return ProjectsPane::tr("cannot be told");
}

ProjectsPane::ProjectsPane(QWidget* parent)
    : QWidget(parent),
      projectsHeading_(makeLabel(tr("Projects"), "heading")),
      roomsHeading_(makeLabel(tr("Rooms"), "heading")),
      projectsHint_(makeLabel({}, "quiet")),
      roomsHint_(makeLabel({}, "quiet")),
      projects_(makeList(QStringLiteral("projects"), tr("Projects"))),
      rooms_(makeList(QStringLiteral("rooms"), tr("Rooms"))),
      lists_(new QSplitter(Qt::Vertical)) {
  projectsHint_->setObjectName(QStringLiteral("projectsHint"));
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  layout->addWidget(lists_);
  lists_->setHandleWidth(1);
  lists_->setChildrenCollapsible(false);
  lists_->addWidget(inColumn({projectsHeading_, projectsHint_, projects_.view}));
  lists_->addWidget(inColumn({roomsHeading_, roomsHint_, rooms_.view}));
  setMinimumWidth(80);
  connect(projects_.view, &QTreeView::activated, this, [this] {
    if (const auto row = chosenProject()) Q_EMIT projectOpened(*row);
  });
  connect(rooms_.view, &QTreeView::activated, this, [this] {
    if (const auto row = chosenRoom()) Q_EMIT roomOpened(*row);
  });
  connect(projects_.view, &QTreeView::customContextMenuRequested, this, [this](QPoint at) {
    Q_EMIT projectMenuWanted(projects_.view->viewport()->mapToGlobal(at));
  });
  connect(rooms_.view, &QTreeView::customContextMenuRequested, this,
          [this](QPoint at) { Q_EMIT roomMenuWanted(rooms_.view->viewport()->mapToGlobal(at)); });
  showRooms();
}

// The state column gets its width first: its text ends with the holder's name, which must not be
// cut. Where it would be, its sign alone is left, and the project keeps its name.
void ProjectsPane::fitColumns(const List& list) {
  int wanted = kLeastState;
  for (const HolderRow& row : list.model->rows()) {
    const int width = list.view->fontMetrics().horizontalAdvance(row.state);
    wanted = std::max(wanted, width + kAroundState);
  }
  list.columns->setSecond({wanted, kLeastState, 0, true});
}

ProjectsPane::List ProjectsPane::makeList(const QString& name, const QString& title) {
  auto* view = new QTreeView;
  const List list{new HoldersModel(this), view, nullptr};
  view->setModel(list.model);
  view->setObjectName(name);
  view->setAccessibleName(title);
  view->setHeaderHidden(true);
  view->setRootIsDecorated(false);
  view->setUniformRowHeights(true);
  view->setAllColumnsShowFocus(true);
  view->setContextMenuPolicy(Qt::CustomContextMenu);
  view->setMinimumHeight(40);
  view->setTextElideMode(Qt::ElideRight);
  view->setItemDelegateForColumn(HoldersModel::eName, new BadgesDelegate(view));
  new ArrowKeys(*view);
  connect(view->selectionModel(), &QItemSelectionModel::currentChanged, this,
          &ProjectsPane::choiceChanged);
  return {list.model, view, new ColumnFit(*view, kLeastHolderName, {{kLeastState, kLeastState}})};
}

// When the current row is removed, Qt makes its neighbour current. Clears that: the user never
// chose it.
void ProjectsPane::setRows(const List& list, HolderRows rows) {
  const QString chosen = keyOfCurrent(*list.view, *list.model);
  list.model->setRows(std::move(rows));
  if (!chosen.isEmpty() && list.model->rowOf(chosen) < 0) list.view->selectionModel()->clear();
  fitColumns(list);
}

void ProjectsPane::show(const Snapshot& snapshot) {
  const bool isOther = open_ != snapshot.project || presence_ != snapshot.presence;
  open_ = snapshot.project;
  presence_ = snapshot.presence;
  if (snapshot.projects &&
      (snapshot.projects != projectRows_ || isOther || problem_ != snapshot.projectsProblem)) {
    projectRows_ = snapshot.projects;
    problem_ = snapshot.projectsProblem;
    showProjects();
  }
  // Unchanged parts of snapshots are the same object.
  if (snapshot.rooms &&
      (snapshot.rooms != roomRows_ || isOther || roomsProblem_ != snapshot.roomsProblem)) {
    roomRows_ = snapshot.rooms;
    roomsProblem_ = snapshot.roomsProblem;
    showRooms();
  }
}

void ProjectsPane::showProjects() {
  HolderRows rows;
  QHash<QString, int> counts;
  for (const ProjectRow& row : *projectRows_) ++counts[row.name];
  const auto people = whereaboutsOf(presence_, open_.cookie).projects;
  for (const ProjectRow& row : *projectRows_) {
    rows.push_back(shownProject(row, counts[row.name] > 1));
    rows.back().people = people.value(row.cookie);
  }
  const QString before = keyOfCurrent(*projects_.view, *projects_.model);
  setRows(projects_, std::move(rows));
  keepChoice(before);
  projectsHint_->setText(!problem_.isEmpty() ? problem_ : tr("None yet. Ctrl+N makes one."));
  projectsHint_->setVisible(projectRows_->empty() || !problem_.isEmpty());
}

// While the share is away the list has no projects. The one that was chosen is chosen again when it
// is back, unless the user chose another.
void ProjectsPane::keepChoice(const QString& before) {
  const QString now = keyOfCurrent(*projects_.view, *projects_.model);
  if (!before.isEmpty()) missed_ = now.isEmpty() ? before : QString();
  const int row = now.isEmpty() && !missed_.isEmpty() ? projects_.model->rowOf(missed_) : -1;
  if (row < 0) return;
  missed_.clear();
  projects_.view->setCurrentIndex(projects_.model->index(row, HoldersModel::eName));
}

void ProjectsPane::showRooms() {
  HolderRows rows;
  if (roomRows_) {
    const auto people = whereaboutsOf(presence_, open_.cookie).rooms;
    for (const RoomRow& row : *roomRows_) {
      rows.push_back(shownRoom(row));
      rows.back().people = people.value(row.name);
    }
  }
  setRows(rooms_, std::move(rows));
  const bool hasRooms = !open_.cookie.isEmpty() && !open_.isPrivate;
  roomsHint_->setText(open_.cookie.isEmpty()     ? tr("Rooms belong to an open project.")
                      : open_.isPrivate          ? tr("A private project has no rooms.")
                      : !roomsProblem_.isEmpty() ? roomsProblem_
                                                 : tr("None yet. Room > New room makes one."));
  roomsHint_->setVisible(!hasRooms || rooms_.model->rows().empty());
}

std::optional<ProjectRow> ProjectsPane::chosenProject() const {
  return rowWith(projectRows_, keyOfCurrent(*projects_.view, *projects_.model),
                 &ProjectRow::cookie);
}

std::optional<RoomRow> ProjectsPane::chosenRoom() const {
  return rowWith(roomRows_, keyOfCurrent(*rooms_.view, *rooms_.model), &RoomRow::name);
}

bool ProjectsPane::chooseProject(const QString& cookie) {
  const int row = projects_.model->rowOf(cookie);
  if (row < 0) return false;
  projects_.view->setCurrentIndex(projects_.model->index(row, HoldersModel::eName));
  projects_.view->setFocus();
  return true;
}

// Icons are drawn with the colours of the palette, so they must be drawn again.
void ProjectsPane::changeEvent(QEvent* event) {
  if (event->type() == QEvent::PaletteChange && projectRows_) {
    projects_.view->viewport()->update();
    rooms_.view->viewport()->update();
  }
  QWidget::changeEvent(event);
}

}  // namespace korvel
