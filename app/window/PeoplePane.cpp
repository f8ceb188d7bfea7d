#include "app/window/PeoplePane.h"

#include <QAction>
#include <QApplication>
#include <QCoreApplication>
#include <QEvent>
#include <QHBoxLayout>
#include <QIcon>
#include <QMenu>
#include <QPainter>
#include <QStringList>
#include <QStyle>
#include <QTextBoundaryFinder>
#include <QToolButton>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>
#include <array>
#include <utility>

#include "app/window/Appearance.h"
#include "app/window/Lists.h"
#include "app/window/Menus.h"
#include "app/window/ObjectsModel.h"
#include "app/window/Texts.h"
#include "station/base/Strings.h"

namespace korvel {

namespace {

constexpr qsizetype kLongestName = 60;  // letters of a name in a sentence
constexpr qsizetype kMostNamed = 12;    // people in a sentence

struct PeopleTexts {
  Q_DECLARE_TR_FUNCTIONS(People)
};

Badge badgeOf(const StationRow& station, bool isUnsaved) {
  return {station.user, station.host, isUnsaved, !station.isHere};
}

void addEdits(Whereabouts& where, const StationRow& station) {
  for (const QString& cookie : station.open) {
    where.edits[cookie].push_back(badgeOf(station, station.unsaved.contains(cookie)));
  }
  // What is closed with unsaved changes is in the second list alone.
  for (const QString& cookie : station.unsaved) {
    if (!station.open.contains(cookie)) where.edits[cookie].push_back(badgeOf(station, true));
  }
}

}  // namespace

Whereabouts whereaboutsOf(const PresenceState& presence, const QString& openProject) {
  Whereabouts where;
  for (const StationRow& station : presence.stations) {
    if (station.isSelf || station.projectCookie.isEmpty()) continue;
    where.projects[station.projectCookie].push_back(badgeOf(station, false));
    const bool isInRoom = station.projectCookie == openProject && !station.room.isEmpty();
    if (isInRoom) where.rooms[station.room].push_back(badgeOf(station, false));
    addEdits(where, station);
  }
  return where;
}

namespace {

/// The first letter as people see it, with its accents; empty where there is none. An endless heap
/// of accents is left out.
QString firstLetter(const QString& word) {
  constexpr qsizetype kLongestLetter = 12;
  QTextBoundaryFinder letters(QTextBoundaryFinder::Grapheme, word);
  const qsizetype end = letters.toNextBoundary();
  if (end <= 0) return {};
  if (end <= kLongestLetter) return word.left(end);
  return word.left(word.front().isHighSurrogate() ? 2 : 1);
}

/// What of a name can be an initial: words of letters, digits and pictures.
QStringList wordsOf(const QString& name) {
  constexpr QChar kJoiner(0x200D);  // within a picture of several people
  QString text = name.left(kLongestName);
  for (QChar& each : text) {
    const bool isPart = each.isLetterOrNumber() || each.isMark() || each.isSurrogate() ||
                        each == kJoiner || each.category() == QChar::Symbol_Other;
    if (!isPart) each = QLatin1Char(' ');
  }
  return text.split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

}  // namespace

QString initialsOf(const QString& user) {
  const QStringList words = wordsOf(user);
  if (words.isEmpty()) return QStringLiteral("?");
  const QString first = firstLetter(words.front());
  const QString rest = words.size() > 1 ? words[1] : words.front().mid(first.size());
  return (first + firstLetter(rest)).toUpper();
}

QColor colourOf(const QString& user) {
  // All of one lightness: 4.8 to 1 against white letters and lists, 3.5 to 1 against dark lists.
  constexpr std::array<QRgb, 12> kColours{0xdd2020, 0x9f6328, 0x757511, 0x4e7d1f,
                                          0x138313, 0x208150, 0x127e7e, 0x2e74b9,
                                          0x5f5fe8, 0x9250d3, 0xc41cc4, 0xcb337f};
  return QColor(kColours[hash64(upperCased(user.toStdString())) % kColours.size()]);
}

QString personName(const QString& user) {
  const QString name =
      oneLine(user.size() > kLongestName ? user.left(kLongestName) + QStringLiteral("…") : user);
  const bool isPlain = std::ranges::all_of(name, [](QChar each) {
    const QChar::Direction direction = each.direction();
    return direction != QChar::DirR && direction != QChar::DirAL &&
           each.category() != QChar::Other_Format;
  });
  constexpr char16_t kIsolate = 0x2068;
  constexpr char16_t kEndOfIsolate = 0x2069;
  return isPlain ? name : QChar(kIsolate) + name + QChar(kEndOfIsolate);
}

namespace {

QString badgeText(const Badge& badge) {
  const QString name = personName(badge.user);
  if (badge.isGone && badge.isUnsaved) {
    return PeopleTexts::tr("%1 gone without goodbye, with unsaved changes").arg(name);
  }
  if (badge.isGone) return PeopleTexts::tr("%1 gone without goodbye").arg(name);
  return badge.isUnsaved ? PeopleTexts::tr("%1 with unsaved changes").arg(name) : name;
}

}  // namespace

QString peopleText(const Badges& people) {
  QStringList texts;
  for (const Badge& each : people) {
    if (texts.size() < kMostNamed) texts.append(badgeText(each));
  }
  const auto more = static_cast<int>(std::ssize(people) - texts.size());
  if (more > 0) texts.append(PeopleTexts::tr("%n more", nullptr, more));
  return listed(texts);
}

QString stationText(const StationRow& station) {
  const QString name = personName(station.user);
  const QString host = personName(station.host);
  const QString since = shownTime(station.since);
  const QString text = station.isHere
                           ? PeopleTexts::tr("%1 on %2: here since %3").arg(name, host, since)
                           : PeopleTexts::tr("%1 on %2: gone without goodbye, there since %3")
                                 .arg(name, host, since);
  const QString project = personName(station.project);
  if (project.isEmpty()) return PeopleTexts::tr("%1, in no project").arg(text);
  if (station.room.isEmpty()) return PeopleTexts::tr("%1, in project \"%2\"").arg(text, project);
  return PeopleTexts::tr("%1, in project \"%2\", in room \"%3\"")
      .arg(text, project, personName(station.room));
}

namespace {

constexpr int kMostBadges = 3;
constexpr int kBetweenBadges = 3;
constexpr int kAroundLetters = 4;
constexpr int kDot = 7;  // the sign of unsaved changes

QFont badgeFont(int height) {
  QFont font = QApplication::font();
  font.setPixelSize(std::max(8, height * 5 / 8));
  font.setBold(true);
  return font;
}

int badgeWidth(const QString& text, int height) {
  // An initial may be a picture or a letter of any width.
  const int wanted = QFontMetrics(badgeFont(height)).horizontalAdvance(text) + 2 * kAroundLetters;
  return std::clamp(wanted, height * 5 / 4, height * 5 / 2);
}

void drawDot(QPainter& painter, const QRectF& place) {
  const QRectF dot(place.right() - kDot + 3, place.top() - 2, kDot, kDot);
  painter.setPen(QPen(colours().panel, 1.4));
  painter.setBrush(colours().warn);
  painter.drawEllipse(dot);
}

void drawBadge(QPainter& painter, const QRect& place, const Badge& badge) {
  const QRectF box = QRectF(place).adjusted(0.5, 0.5, -0.5, -0.5);
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  if (badge.isGone) {
    painter.setPen(QPen(colours().quiet, 1, Qt::DashLine));
    painter.setBrush(colours().panel);
  } else {
    painter.setPen(Qt::NoPen);
    painter.setBrush(colourOf(badge.user));
  }
  painter.drawRoundedRect(box, 4, 4);
  painter.setPen(badge.isGone ? colours().quiet : QColor(Qt::white));
  painter.setFont(badgeFont(place.height()));
  painter.drawText(place, Qt::AlignCenter | Qt::TextSingleLine, initialsOf(badge.user));
  if (badge.isUnsaved) drawDot(painter, box);
  painter.restore();
}

QString moreText(std::size_t count) { return QStringLiteral("+%1").arg(count); }

/// How many badges fit beside one another, and how wide they are with what tells of the others.
struct BadgeRow {
  std::size_t shown = 0;
  std::size_t more = 0;
  int width = 0;
};

BadgeRow badgeRow(const Badges& badges, std::size_t shown, int height) {
  BadgeRow row{shown, badges.size() - shown, 0};
  for (std::size_t i = 0; i < shown; ++i) {
    row.width += badgeWidth(initialsOf(badges[i].user), height) + kBetweenBadges;
  }
  if (row.more > 0) row.width += badgeWidth(moreText(row.more), height) + kBetweenBadges;
  return row;
}

/// As many as have room; at least how many there are.
BadgeRow fittingRow(const Badges& badges, int room, int height) {
  std::size_t shown = std::min<std::size_t>(badges.size(), kMostBadges);
  BadgeRow row = badgeRow(badges, shown, height);
  while (row.width > room && shown > 0) row = badgeRow(badges, --shown, height);
  return row;
}

void drawMore(QPainter& painter, const QRect& place, std::size_t count) {
  painter.save();
  painter.setPen(colours().text);
  painter.setFont(badgeFont(place.height()));
  painter.drawText(place, Qt::AlignCenter | Qt::TextSingleLine, moreText(count));
  painter.restore();
}

void drawRow(QPainter& painter, const QRect& room, const Badges& badges, const BadgeRow& row,
             Qt::LayoutDirection direction) {
  const int height = room.height();
  int left = room.right() + 1 - row.width;
  const auto next = [&](const QString& text) {
    const QRect place(left, room.top(), badgeWidth(text, height), height);
    left += place.width() + kBetweenBadges;
    return QStyle::visualRect(direction, room, place);
  };
  for (std::size_t i = 0; i < row.shown; ++i) {
    drawBadge(painter, next(initialsOf(badges[i].user)), badges[i]);
  }
  if (row.more > 0) drawMore(painter, next(moreText(row.more)), row.more);
}

}  // namespace

namespace {

constexpr int kBadgesAt = 240;  // where badges end behind a short name

}  // namespace

QIcon badgeIcon(const Badge& badge) {
  QIcon made;
  for (const int height : {18, 36}) {
    QPixmap pixmap(height * 3 / 2, height);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    drawBadge(painter, QRect(0, 2, pixmap.width() - 2, height - 3), badge);
    painter.end();
    made.addPixmap(pixmap);
    made.addPixmap(pixmap, QIcon::Selected);  // else styles tint it
  }
  return made;
}

void BadgesDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                           const QModelIndex& index) const {
  const auto badges = index.data(kBadgesRole).value<Badges>();
  if (badges.empty()) return QStyledItemDelegate::paint(painter, option, index);
  QStyleOptionViewItem item = option;
  initStyleOption(&item, index);
  const QStyle& style = *(item.widget ? item.widget->style() : QApplication::style());
  const QRect room = style.subElementRect(QStyle::SE_ItemViewItemText, &item, item.widget);
  const int height = std::min(QFontMetrics(item.font).height(), room.height() - 2);
  const BadgeRow row = fittingRow(badges, room.width() / 2, height);
  item.text = QFontMetrics(item.font).elidedText(item.text, item.textElideMode,
                                                 room.width() - row.width - 4);
  style.drawControl(QStyle::CE_ItemViewItem, &item, painter, item.widget);
  // One below another, and never far from the name: a wide column has its edge elsewhere.
  const int text = QFontMetrics(item.font).horizontalAdvance(item.text);
  const int width = std::min(room.width(), std::max(kBadgesAt, text + 12 + row.width));
  QRect places(room.left(), room.center().y() - height / 2, width, height);
  places = QStyle::visualRect(item.direction, room, places);
  drawRow(*painter, places, badges, row, item.direction);
}

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
