#include "app/window/People.h"

#include <QApplication>
#include <QCoreApplication>
#include <QIcon>
#include <QPainter>
#include <QStringList>
#include <QStyle>
#include <QTextBoundaryFinder>
#include <algorithm>
#include <array>

#include "app/window/Appearance.h"
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
  const QRect places(room.left(), room.center().y() - height / 2, room.width(), height);
  drawRow(*painter, places, badges, row, item.direction);
}

}  // namespace korvel
