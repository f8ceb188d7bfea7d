#include "app/window/PeoplePane.h"

#include <QAction>
#include <QEvent>
#include <QHBoxLayout>
#include <QMenu>
#include <QToolButton>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "app/window/Appearance.h"
#include "app/window/Lists.h"
#include "app/window/Menus.h"
#include "app/window/ObjectsModel.h"
#include "app/window/People.h"
#include "app/window/Texts.h"

namespace korvel {

namespace {

enum PersonColumn { ePerson, ePersonProject, ePersonRoom, ePersonEdits, ePersonHost, ePersonSince };

constexpr int kPersonKeyRole = Qt::UserRole;
constexpr int kLeastPerson = 120;
constexpr std::size_t kMostEditsNamed = 8;

/// The name of an edit of the open project; empty for another.
QString editName(const Shared<ObjectRows>& edits, const QString& cookie) {
  if (!edits) return {};
  const auto found = std::ranges::lower_bound(*edits, cookie, {}, &ObjectRow::key);
  return found != edits->end() && found->key == cookie ? shownName(*found) : QString();
}

std::vector<PersonEdit> personEdits(const StationRow& station, const Shared<ObjectRows>& edits) {
  QStringList cookies = station.unsaved;
  for (const QString& each : station.open) {
    if (!cookies.contains(each)) cookies.append(each);
  }
  std::vector<PersonEdit> found;
  for (const QString& each : cookies) {
    found.push_back({each, editName(edits, each), station.unsaved.contains(each)});
  }
  return found;
}

PersonRow silentPerson(const QString& user) {
  PersonRow row;
  row.station.user = user;
  row.station.key = QStringLiteral("marker ") + user;
  row.isSilent = true;
  return row;
}

QString editCount(const std::vector<PersonEdit>& edits) {
  const auto count = static_cast<int>(edits.size());
  const auto unsaved = static_cast<int>(std::ranges::count_if(edits, &PersonEdit::isUnsaved));
  const QString text = PeoplePane::tr("%n open", nullptr, count);
  return unsaved == 0 ? text
                      : PeoplePane::tr("%1, %Ln of them unsaved", nullptr, unsaved).arg(text);
}

/// "Quay (unsaved), Pier", or how many of another project.
QString personEditsText(const std::vector<PersonEdit>& edits) {
  if (edits.empty()) return {};
  const bool isElsewhere =
      std::ranges::all_of(edits, [](const PersonEdit& each) { return each.name.isEmpty(); });
  if (isElsewhere || edits.size() > kMostEditsNamed) return editCount(edits);
  QStringList texts;
  for (const PersonEdit& each : edits) {
    const QString name = personName(each.name.isEmpty() ? each.cookie : each.name);
    texts.append(each.isUnsaved ? PeoplePane::tr("%1 (unsaved)").arg(name) : name);
  }
  return listed(texts);
}

QString personTitle(const PersonRow& row) {
  const QString name = personName(row.station.user);
  if (row.station.isSelf) return PeoplePane::tr("%1 (this station)").arg(name);
  return row.station.isHere ? name : PeoplePane::tr("%1 (gone)").arg(name);
}

/// All of it in words, for the tool tip and for those who do not see the columns.
QString personInWords(const PersonRow& row) {
  if (row.isSilent) {
    return PeoplePane::tr("%1: marked active, by a station that tells nothing of itself or is gone")
        .arg(personName(row.station.user));
  }
  QString text = stationText(row.station);
  if (row.station.isSelf) text = PeoplePane::tr("This station: %1").arg(text);
  const QString edits = personEditsText(row.edits);
  return edits.isEmpty() ? text : PeoplePane::tr("%1. Edits: %2").arg(text, edits);
}

Badge personBadge(const PersonRow& row) {
  const bool isUnsaved = std::ranges::any_of(row.edits, &PersonEdit::isUnsaved);
  return {row.station.user, row.station.host, isUnsaved, !row.station.isHere};
}

/// Why nobody there would read what is written; empty where somebody may.
QString whyNotWrite(const std::optional<PersonRow>& row) {
  if (!row) return PeoplePane::tr("Choose somebody in the list first.");
  if (row->station.isSelf) return PeoplePane::tr("This is your own station.");
  if (row->station.isHere) return {};
  return PeoplePane::tr("This station is gone: nobody would read it there.");
}

/// The edits of the open project.
std::vector<PersonEdit> reachableEdits(const std::optional<PersonRow>& row) {
  std::vector<PersonEdit> edits = row ? row->edits : std::vector<PersonEdit>();
  std::erase_if(edits, [](const PersonEdit& each) { return each.name.isEmpty(); });
  return edits;
}

QString whyNotGo(const std::optional<PersonRow>& row) {
  if (!row) return PeoplePane::tr("Choose somebody in the list first.");
  if (row->edits.empty()) return PeoplePane::tr("No edit is open there.");
  return reachableEdits(row).empty()
             ? PeoplePane::tr("What is open there belongs to another project.")
             : QString();
}

QToolButton* personButton(QAction& action, const char* name) {
  auto* button = new QToolButton;
  button->setDefaultAction(&action);
  button->setObjectName(QLatin1String(name));
  button->setProperty("role", "button");
  button->setFocusPolicy(Qt::StrongFocus);
  return button;
}

}  // namespace

PeoplePane::PeoplePane(QWidget* parent)
    : QWidget(parent),
      list_(new QTreeWidget),
      write_(new QAction(tr("&Write to"), this)),
      go_(new QAction(tr("&Go to the edit"), this)) {
  build();
  connect(list_, &QTreeWidget::currentItemChanged, this, &PeoplePane::enable);
  connect(list_, &QTreeWidget::itemActivated, write_, &QAction::trigger);
  connect(write_, &QAction::triggered, this, [this] {
    if (const auto row = chosen()) Q_EMIT writeWanted(row->station.user);
  });
  connect(go_, &QAction::triggered, this, &PeoplePane::goToEdit);
  enable();
}

void PeoplePane::build() {
  list_->setObjectName(QStringLiteral("people"));
  list_->setAccessibleName(tr("People at work"));
  new ArrowKeys(*list_);
  list_->setHeaderLabels(
      {tr("Name"), tr("Project"), tr("Room"), tr("Edits"), tr("Machine"), tr("Since")});
  list_->setRootIsDecorated(false);
  list_->setUniformRowHeights(true);
  list_->setAllColumnsShowFocus(true);
  list_->setTextElideMode(Qt::ElideRight);
  list_->setIconSize({27, 18});
  list_->setContextMenuPolicy(Qt::ActionsContextMenu);
  list_->addActions({write_, go_});
  // What matters least is hidden first where there is no room for all.
  new ColumnFit(*list_, kLeastPerson,
                {{120, 70}, {100, 60}, {320, 80}, {110, 60}, {widthOfTimes(*list_), 70}});
  auto* tools = new QHBoxLayout;
  tools->setContentsMargins(10, 6, 10, 6);
  tools->setSpacing(8);
  tools->addWidget(personButton(*write_, "writeTo"));
  tools->addWidget(personButton(*go_, "goToEdit"));
  tools->addStretch();
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  layout->addLayout(tools);
  layout->addWidget(list_, 1);
}

void PeoplePane::show(const Snapshot& snapshot) {
  std::vector<PersonRow> rows;
  const auto& edits = snapshot.objects[static_cast<std::size_t>(ObjectKind::eEdits)];
  for (const StationRow& each : snapshot.presence.stations) {
    rows.push_back({each, personEdits(each, edits), false});
  }
  for (const QString& user : snapshot.presence.marked) rows.push_back(silentPerson(user));
  if (rows != rows_) take(std::move(rows));
}

// Items that stay are the same ones, so that what is chosen and where the list stands stays, too.
void PeoplePane::take(std::vector<PersonRow> rows) {
  const QString before = list_->currentItem()
                             ? list_->currentItem()->data(ePerson, kPersonKeyRole).toString()
                             : QString();
  rows_ = std::move(rows);
  for (std::size_t i = 0; i < rows_.size(); ++i) {
    fill(*itemAt(static_cast<int>(i), rows_[i].station.key), rows_[i]);
  }
  while (list_->topLevelItemCount() > static_cast<int>(rows_.size())) {
    delete list_->takeTopLevelItem(list_->topLevelItemCount() - 1);
  }
  // When the current item is taken out, its neighbour becomes current, whom nobody chose.
  QTreeWidgetItem* kept = nullptr;
  for (int i = 0; i < list_->topLevelItemCount() && !before.isEmpty(); ++i) {
    QTreeWidgetItem* const item = list_->topLevelItem(i);
    if (item->data(ePerson, kPersonKeyRole).toString() == before) kept = item;
  }
  if (list_->currentItem() != kept) list_->setCurrentItem(kept);
  enable();
}

QTreeWidgetItem* PeoplePane::itemAt(int place, const QString& key) {
  for (int i = place; i < list_->topLevelItemCount(); ++i) {
    if (list_->topLevelItem(i)->data(ePerson, kPersonKeyRole).toString() != key) continue;
    if (i > place) list_->insertTopLevelItem(place, list_->takeTopLevelItem(i));
    return list_->topLevelItem(place);
  }
  auto* item = new QTreeWidgetItem;
  item->setData(ePerson, kPersonKeyRole, key);
  list_->insertTopLevelItem(place, item);
  return item;
}

void PeoplePane::fill(QTreeWidgetItem& item, const PersonRow& row) {
  const StationRow& station = row.station;
  const QString since = row.isSilent ? QString() : shownTime(station.since);
  const QString texts[] = {personTitle(row),         personName(station.project),
                           personName(station.room), personEditsText(row.edits),
                           personName(station.host), since};
  const QString words = personInWords(row);
  for (int column = 0; const QString& text : texts) {
    item.setText(column, text);
    item.setToolTip(column, plainTip(words));
    item.setForeground(column, station.isHere ? colours().text : colours().quiet);
    ++column;
  }
  item.setIcon(ePerson, badgeIcon(personBadge(row)));
  item.setData(ePerson, Qt::AccessibleTextRole, words);
}

std::optional<PersonRow> PeoplePane::chosen() const {
  const QTreeWidgetItem* const item = list_->currentItem();
  if (!item) return std::nullopt;
  const QString key = item->data(ePerson, kPersonKeyRole).toString();
  const auto found =
      std::ranges::find(rows_, key, [](const PersonRow& each) { return each.station.key; });
  return found == rows_.end() ? std::nullopt : std::optional(*found);
}

void PeoplePane::enable() {
  const auto row = chosen();
  setAllowed(*write_, whyNotWrite(row));
  setAllowed(*go_, whyNotGo(row));
}

void PeoplePane::goToEdit() {
  const std::vector<PersonEdit> edits = reachableEdits(chosen());
  if (edits.size() == 1) return Q_EMIT editWanted(edits.front().cookie);
  auto* menu = new QMenu(this);
  menu->setObjectName(QStringLiteral("editsOfPerson"));
  menu->setAttribute(Qt::WA_DeleteOnClose);
  for (const PersonEdit& each : edits) {
    const QString text = menuText(each.isUnsaved ? tr("%1 (unsaved)").arg(each.name) : each.name);
    menu->addAction(text, this, [this, cookie = each.cookie] { Q_EMIT editWanted(cookie); });
  }
  const QRect place = list_->visualItemRect(list_->currentItem());
  menu->popup(list_->viewport()->mapToGlobal(place.bottomLeft()));
}

// Icons and texts keep the colours in which they were drawn.
void PeoplePane::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() != QEvent::PaletteChange) return;
  for (std::size_t i = 0; i < rows_.size(); ++i) {
    fill(*list_->topLevelItem(static_cast<int>(i)), rows_[i]);
  }
}

}  // namespace korvel
