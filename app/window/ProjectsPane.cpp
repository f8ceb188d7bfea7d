#include "app/window/ProjectsPane.h"

#include <QEvent>
#include <QLabel>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>

#include "app/window/Appearance.h"
#include "app/window/ColumnFit.h"
#include "app/window/Icons.h"
#include "app/window/Texts.h"

namespace {

constexpr int kLeastName = 70;
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

/// Shape and colour of a lock, beside its words.
QIcon holdIcon(Hold hold, const Colours& with) {
  switch (hold) {
    case Hold::eFree:
      return icon(Glyph::eFree, with.good);
    case Hold::eTaken:
      return icon(Glyph::eTaken, with.held);
    case Hold::eLeftBehind:
      return icon(Glyph::eLeftBehind, with.warn);
    case Hold::eUnknown:
      break;
  }
  return icon(Glyph::eUnknown, with.quiet);
}

QString stateText(const ProjectRow& row) {
  if (!row.problem.isEmpty()) return QStringLiteral("unreadable");
  if (row.isOpen) return QStringLiteral("open here");
  if (row.isPrivate || row.hold != Hold::eFree) return holdText(row.hold, row.holder);
  return QStringLiteral("open to all");
}

QIcon stateIcon(const ProjectRow& row, const Colours& with) {
  if (!row.problem.isEmpty()) return icon(Glyph::eProblem, with.bad);
  if (row.isOpen) return icon(Glyph::eHere, with.accent);
  return holdIcon(row.hold, with);
}

/// Makes the list as long as the rows, and keeps what is chosen where it is.
void setLength(QTreeWidget& list, std::size_t length) {
  while (list.topLevelItemCount() > static_cast<int>(length)) {
    delete list.takeTopLevelItem(list.topLevelItemCount() - 1);
  }
  while (list.topLevelItemCount() < static_cast<int>(length)) {
    list.addTopLevelItem(new QTreeWidgetItem);
  }
}

void setItem(QTreeWidgetItem& item, const QString& name, const QIcon& kind, const QString& state,
             const QIcon& mark, const QString& tip, bool isOpen) {
  item.setText(0, name);
  item.setIcon(0, kind);
  item.setText(1, state);
  item.setIcon(1, mark);
  QFont font = item.font(0);
  font.setBold(isOpen);
  item.setFont(0, font);
  item.setToolTip(0, plainTip(name));
  item.setToolTip(1, plainTip(tip));
}

}  // namespace

QString holdText(Hold hold, const QString& holder) {
  const QString who = holder.isEmpty() ? QStringLiteral("somebody") : holder;
  switch (hold) {
    case Hold::eFree:
      return QStringLiteral("free");
    case Hold::eTaken:
      return QStringLiteral("held by ") + who;
    case Hold::eLeftBehind:
      return QStringLiteral("left behind by ") + who;
    case Hold::eUnknown:
      break;
  }
  return QStringLiteral("cannot be told");
}

ProjectsPane::ProjectsPane(QWidget* parent)
    : QWidget(parent),
      projectsHeading_(makeLabel(QStringLiteral("Projects"), "heading")),
      roomsHeading_(makeLabel(QStringLiteral("Rooms"), "heading")),
      projectsHint_(makeLabel({}, "quiet")),
      roomsHint_(makeLabel({}, "quiet")),
      projects_(makeList(QStringLiteral("projects"))),
      rooms_(makeList(QStringLiteral("rooms"))) {
  projectsHint_->setObjectName(QStringLiteral("projectsHint"));
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  layout->addWidget(projectsHeading_);
  layout->addWidget(projectsHint_);
  layout->addWidget(projects_, 3);
  layout->addWidget(roomsHeading_);
  layout->addWidget(roomsHint_);
  layout->addWidget(rooms_, 2);
  setMinimumWidth(80);
  connect(projects_, &QTreeWidget::itemActivated, this, [this] {
    if (const auto row = chosenProject()) Q_EMIT projectOpened(*row);
  });
  connect(rooms_, &QTreeWidget::itemActivated, this, [this] {
    if (const auto row = chosenRoom()) Q_EMIT roomOpened(*row);
  });
  connect(projects_, &QTreeWidget::customContextMenuRequested, this,
          [this](QPoint at) { Q_EMIT projectMenuWanted(projects_->viewport()->mapToGlobal(at)); });
  connect(rooms_, &QTreeWidget::customContextMenuRequested, this,
          [this](QPoint at) { Q_EMIT roomMenuWanted(rooms_->viewport()->mapToGlobal(at)); });
  showRooms();
}

// The states get the room for their texts before the names do: they end in who holds it.
void ProjectsPane::fitColumns(QTreeWidget& list) {
  int wanted = kLeastState;
  for (int i = 0; i < list.topLevelItemCount(); ++i) {
    const QString text = list.topLevelItem(i)->text(1);
    wanted = std::max(wanted, list.fontMetrics().horizontalAdvance(text) + kAroundState);
  }
  columns_[&list]->setSecond({wanted, kLeastState});
}

QTreeWidget* ProjectsPane::makeList(const QString& name) {
  auto* list = new QTreeWidget;
  list->setObjectName(name);
  list->setColumnCount(2);
  list->setHeaderHidden(true);
  list->setRootIsDecorated(false);
  list->setUniformRowHeights(true);
  list->setAllColumnsShowFocus(true);
  list->setContextMenuPolicy(Qt::CustomContextMenu);
  list->setMinimumHeight(40);
  list->setTextElideMode(Qt::ElideRight);
  columns_[list] = new ColumnFit(*list, kLeastName, {{kLeastState, kLeastState}});
  list->setAccessibleName(name == QLatin1String("rooms") ? QStringLiteral("Rooms")
                                                         : QStringLiteral("Projects"));
  connect(list, &QTreeWidget::currentItemChanged, this, &ProjectsPane::choiceChanged);
  return list;
}

void ProjectsPane::show(const Snapshot& snapshot) {
  const bool isOther = open_ != snapshot.project;
  open_ = snapshot.project;
  if (snapshot.projects &&
      (snapshot.projects != projectRows_ || isOther || problem_ != snapshot.projectsProblem)) {
    projectRows_ = snapshot.projects;
    problem_ = snapshot.projectsProblem;
    showProjects();
  }
  if (snapshot.rooms && (snapshot.rooms != roomRows_ || isOther)) {
    roomRows_ = snapshot.rooms;
    showRooms();
  }
}

void ProjectsPane::showProjects() {
  const Colours& with = colours();
  setLength(*projects_, projectRows_->size());
  for (std::size_t i = 0; i < projectRows_->size(); ++i) {
    const ProjectRow& row = (*projectRows_)[i];
    const QIcon kind = icon(row.isPrivate ? Glyph::ePrivate : Glyph::eProject, with.quiet);
    setItem(*projects_->topLevelItem(static_cast<int>(i)),
            row.name.isEmpty() ? row.cookie : row.name, kind, stateText(row), stateIcon(row, with),
            row.problem.isEmpty() ? stateText(row) : row.problem, row.isOpen);
  }
  fitColumns(*projects_);
  projectsHint_->setText(!problem_.isEmpty() ? problem_
                                             : QStringLiteral("None yet. Ctrl+N makes one."));
  projectsHint_->setVisible(projectRows_->empty() || !problem_.isEmpty());
}

void ProjectsPane::showRooms() {
  const Colours& with = colours();
  const std::size_t count = roomRows_ ? roomRows_->size() : 0;
  setLength(*rooms_, count);
  for (std::size_t i = 0; i < count; ++i) {
    const RoomRow& row = (*roomRows_)[i];
    const QString state =
        row.isHere ? QStringLiteral("you are here") : holdText(row.hold, row.holder);
    setItem(*rooms_->topLevelItem(static_cast<int>(i)), row.name, icon(Glyph::eRoom, with.quiet),
            state, row.isHere ? icon(Glyph::eHere, with.accent) : holdIcon(row.hold, with), state,
            row.isHere);
  }
  fitColumns(*rooms_);
  const bool hasRooms = !open_.cookie.isEmpty() && !open_.isPrivate;
  roomsHint_->setText(open_.cookie.isEmpty() ? QStringLiteral("Rooms belong to an open project.")
                      : open_.isPrivate      ? QStringLiteral("A private project has no rooms.")
                                        : QStringLiteral("None yet. Room > New room makes one."));
  roomsHint_->setVisible(!hasRooms || count == 0);
}

std::optional<ProjectRow> ProjectsPane::chosenProject() const {
  const int row = projects_->indexOfTopLevelItem(projects_->currentItem());
  if (row < 0 || !projectRows_) return std::nullopt;
  return (*projectRows_)[static_cast<std::size_t>(row)];
}

std::optional<RoomRow> ProjectsPane::chosenRoom() const {
  const int row = rooms_->indexOfTopLevelItem(rooms_->currentItem());
  if (row < 0 || !roomRows_) return std::nullopt;
  return (*roomRows_)[static_cast<std::size_t>(row)];
}

void ProjectsPane::changeEvent(QEvent* event) {
  if (event->type() == QEvent::PaletteChange && projectRows_) {
    showProjects();
    showRooms();
  }
  QWidget::changeEvent(event);
}
