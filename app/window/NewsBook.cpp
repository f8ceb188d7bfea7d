#include "app/window/NewsBook.h"

#include <QLocale>
#include <QSet>
#include <QStringList>
#include <QUrl>
#include <filesystem>

#include "app/window/Texts.h"
#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"

namespace korvel {

namespace {

const QString kFirstLine = QStringLiteral("korvel news 1");
// A file that was cut off lacks it. To take the objects of the missing lines for new would be
// wrong.
const QString kLastLine = QStringLiteral("end");
constexpr std::size_t kLargestBook = std::size_t{64} << 20;  // a hundred thousand long names

/// As part of a line, or of a file's name: without blanks, line ends and slashes.
QString escaped(const QString& text) { return QString::fromLatin1(QUrl::toPercentEncoding(text)); }

QString unescaped(const QString& text) { return QUrl::fromPercentEncoding(text.toLatin1()); }

/// Replaces the file; without a word where that cannot be: what is lost are marks.
void write(const std::string& path, const std::string& text) {
  std::error_code problem;
  std::filesystem::create_directories(folderOf(path), problem);
  static_cast<void>(writeAtomically(path, text));
}

/// What was done, and by whom.
QString deedText(const NewsBook::Mark& mark) {
  if (mark.by.isEmpty()) {
    return mark.isNew ? WindowText::tr("new elsewhere") : WindowText::tr("changed elsewhere");
  }
  if (!mark.isNew && !mark.did.isEmpty()) {
    return WindowText::tr("%1 %2", "somebody did something").arg(oneLine(mark.by), mark.did);
  }
  const QString form = mark.isNew ? WindowText::tr("new by %1") : WindowText::tr("changed by %1");
  return form.arg(oneLine(mark.by));
}

/// What was done, by whom and when: of today the time alone, else the day in this form, too.
QString withTime(const NewsBook::Mark& mark, QLocale::FormatType day) {
  if (!mark.at.isValid()) return deedText(mark);
  const bool isToday = mark.at.date() == QDate::currentDate();
  const QString time = clockTimeToMinute(mark.at.time());
  const QString date = QLocale().toString(mark.at.date(), day);
  return listed({deedText(mark), isToday ? time : date + QLatin1Char(' ') + time});
}

}  // namespace

QString newsText(const NewsBook::Mark& mark) { return withTime(mark, QLocale::ShortFormat); }

QString newsInFull(const NewsBook::Mark& mark) { return withTime(mark, QLocale::LongFormat); }

void NewsBook::open(const QString& project, const QString& user) {
  if (project == project_ && user == user_) return;
  save();
  writer_.waitForDone();  // the same project's file may be read next
  project_ = project;
  user_ = user;
  isListed_ = {};
  known_.clear();
  marks_.clear();
  wasHere_ = false;
  if (file().empty()) return;
  const auto text = readFresh(file(), kLargestBook);
  wasHere_ = text && read(*text);
  if (wasHere_) return;
  known_.clear();
  marks_.clear();
}

void NewsBook::take(ObjectKind kind, const ObjectRows& rows) {
  if (project_.isEmpty()) return;
  bool& isListed = isListed_[static_cast<std::size_t>(kind)];
  const bool isFirstLook = !std::exchange(isListed, true);
  for (const ObjectRow& row : rows) takeOne(kind, row, isFirstLook);
  forgetGone(kind, rows);
}

void NewsBook::takeOne(ObjectKind kind, const ObjectRow& row, bool isFirstLook) {
  const auto found = known_.constFind(row.key);
  const bool isKnown = found != known_.constEnd();
  const Known before = isKnown ? *found : Known{};
  // What cannot be read says nothing of what it holds.
  const quint64 content = row.problem.isEmpty() ? row.content : before.content;
  const bool isOther = isKnown && before.content != content;
  // That it is deleted is told for as long as it is; what comes back as it was is no news.
  if (isKnown && !isOther && (row.isDeleted || before.isDeleted)) {
    known_[row.key] = {row.elsewhere.count, content, kind, row.isDeleted};
    return;
  }
  if (isKnown && !isOther && before.changes == row.elsewhere.count) return learnDeed(row);
  known_[row.key] = {row.elsewhere.count, content, kind, row.isDeleted};
  isChanged_ = true;
  if (row.elsewhere.count > before.changes) {
    // What was looked at once is no longer new, though it was made in this visit.
    const bool isNew = marks_.value(row.key).isNew || (!isKnown && wasHere_) ||
                       (row.elsewhere.wasMade && before.changes == 0);
    const QString& by = row.elsewhere.by.isEmpty() ? row.savedBy : row.elsewhere.by;
    marks_[row.key] = {isNew, by, row.elsewhere.at};
    learnDeed(row);
  } else if (isFirstLook && wasHere_ && (isOther || !isKnown) && row.savedBy != user_) {
    marks_[row.key] = {!isKnown, row.savedBy, row.savedAt.toLocalTime()};
  }
}

/// What was done is known a moment after that something was.
void NewsBook::learnDeed(const ObjectRow& row) {
  const auto mark = marks_.find(row.key);
  const RemoteChanges& last = row.elsewhere;
  if (mark == marks_.end() || last.did.isEmpty() || mark->did == last.did) return;
  if (!mark->by.isEmpty() && mark->by != last.doer) return;
  mark->by = last.doer;
  mark->did = last.did;
  isChanged_ = true;
}

void NewsBook::forgetGone(ObjectKind kind, const ObjectRows& rows) {
  const auto isSame = [kind](const Known& known) { return known.kind == kind; };
  if (std::ranges::count_if(known_, isSame) == static_cast<std::ptrdiff_t>(rows.size())) return;
  QSet<QString> there;
  for (const ObjectRow& row : rows) there.insert(row.key);
  known_.removeIf([&](const auto& each) {
    const bool isGone = isSame(each.value()) && !there.contains(each.key());
    if (isGone) marks_.remove(each.key());
    return isGone;
  });
  isChanged_ = true;
}

std::optional<NewsBook::Mark> NewsBook::mark(const QString& key) const {
  const auto found = marks_.constFind(key);
  return found == marks_.constEnd() ? std::nullopt : std::optional(*found);
}

void NewsBook::forget(const QString& key) { isChanged_ |= marks_.remove(key) > 0; }

void NewsBook::save() {
  if (!std::exchange(isChanged_, false) || file().empty()) return;
  writer_.start([path = file(), text = text()] { write(path, text); });
}

std::string NewsBook::file() const {
  if (folder_.empty() || project_.isEmpty()) return {};
  return folder_ + '/' + (escaped(project_) + QLatin1Char(' ') + escaped(user_)).toStdString();
}

// A line an object: key, kind, what it held, and the mark: new or changed, when, by whom, what.
std::string NewsBook::text() const {
  QString text = kFirstLine + QLatin1Char('\n');
  for (auto each = known_.begin(); each != known_.end(); ++each) {
    const std::optional<Mark> marked = mark(each.key());
    const qint64 at = marked && marked->at.isValid() ? marked->at.toMSecsSinceEpoch() : 0;
    // Joined, not filled in one by one: an escaped text holds what looks like the next place.
    text += QStringList{escaped(each.key()),
                        QString::number(static_cast<int>(each->kind)),
                        QString::number(each->content, 16),
                        QStringLiteral("-nc").mid(marked ? marked->isNew ? 1 : 2 : 0, 1),
                        QString::number(at),
                        marked ? escaped(marked->by) : QString(),
                        marked ? escaped(marked->did) : QString()}
                .join(QLatin1Char(' ')) +
            QLatin1Char('\n');
  }
  return (text + kLastLine + QLatin1Char('\n')).toStdString();
}

bool NewsBook::read(const std::string& text) {
  QStringList lines = QString::fromStdString(text).split(QLatin1Char('\n'));
  if (lines.size() < 3 || lines.front() != kFirstLine || lines[lines.size() - 2] != kLastLine) {
    return false;
  }
  for (const QString& line : lines.mid(1, lines.size() - 3)) {
    const QStringList fields = line.split(QLatin1Char(' '));
    // Earlier versions did not keep what was done.
    if (fields.size() != 6 && fields.size() != 7) return false;
    const unsigned kind = fields[1].toUInt();
    if (kind >= kObjectKinds) return false;
    const QString key = unescaped(fields[0]);
    known_[key] = {0, fields[2].toULongLong(nullptr, 16), static_cast<ObjectKind>(kind), false};
    if (fields[3] == QLatin1String("-")) continue;
    const qint64 at = fields[4].toLongLong();
    marks_[key] = {fields[3] == QLatin1String("n"), unescaped(fields[5]),
                   at > 0 ? QDateTime::fromMSecsSinceEpoch(at) : QDateTime(),
                   unescaped(fields.value(6))};
  }
  return true;
}

}  // namespace korvel
