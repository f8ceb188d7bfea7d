#include "app/window/ObjectsModel.h"

#include <QMimeData>
#include <algorithm>

#include "app/window/Appearance.h"
#include "app/window/Texts.h"
#include "station/containers/Containers.h"
#include "station/edit/Timecode.h"
#include "station/media/MediaCache.h"

namespace korvel {

namespace {

ObjectRow named(const JsonValue& value) {
  ObjectRow row;
  row.cookie = readableText(value["cookie"].asString());
  row.key = row.cookie;
  row.name = readableText(value["name"].asString());
  return row;
}

ObjectRow listRow(const JsonValue& value) {
  ObjectRow row = named(value);
  for (const JsonValue& each : value["contents"].elements()) {
    row.contents.append(readableText(each.asString()));
  }
  row.detail = ObjectsModel::tr("%Ln objects", nullptr, static_cast<int>(row.contents.size()));
  return row;
}

ObjectRow filterRow(const JsonValue& value) {
  ObjectRow row = named(value);
  row.detail = readableText(value["filter"].asString());
  return row;
}

ObjectRow mediaRow(const JsonValue& value) {
  ObjectRow row = named(value);
  row.detail = readableText(value["file"].asString());
  // A file and its proxies have one cookie; the path tells them apart.
  row.key += QLatin1Char(' ') + row.detail;
  row.extra = readableText(value["proxy_of"].asString());
  return row;
}

ObjectRows rowsFrom(const JsonValue& state, ObjectRow (*make)(const JsonValue&)) {
  ObjectRows rows;
  for (const JsonValue& value : state.elements()) rows.push_back(make(value));
  return rows;
}

}  // namespace

ObjectRow editRow(const JsonValue& line) {
  if (line.isNull()) return {};
  ObjectRow row = named(line);
  row.owner = readableText(line["owner"].asString());
  row.problem = readableText(line["problem"].asString());
  row.isLog = line["kind"].asString() == "log";
  row.isOpen = line["open"].asBool();
  row.isDirty = line["dirty"].asBool();
  row.isDeleted = line["deleted"].asBool();
  return row;
}

ObjectRows rowsOf(Station& station, ObjectKind kind) {
  switch (kind) {
    case ObjectKind::eBins:
      return rowsFrom(station.bins().state(), listRow);
    case ObjectKind::eRacks:
      return rowsFrom(station.racks().state(), listRow);
    case ObjectKind::eFilters:
      return rowsFrom(station.filters().state(), filterRow);
    case ObjectKind::eMedia:
      return rowsFrom(station.media().state(), mediaRow);
    case ObjectKind::eEdits:
      break;
  }
  return {};
}

std::string familyOf(ObjectKind kind) {
  constexpr std::array<const char*, kObjectKinds> kFamilies{"edit", "bin", "rack", "filter",
                                                            "media"};
  return kFamilies[static_cast<std::size_t>(kind)];
}

void sortByKey(ObjectRows& rows) { std::ranges::sort(rows, {}, &ObjectRow::key); }

void putRow(ObjectRows& rows, const QString& key, ObjectRow row) {
  const auto at = std::ranges::lower_bound(rows, key, {}, &ObjectRow::key);
  const bool isKnown = at != rows.end() && at->key == key;
  if (row.key.isEmpty()) {
    if (isKnown) rows.erase(at);
  } else if (isKnown) {
    *at = std::move(row);
  } else {
    rows.insert(at, std::move(row));
  }
}

namespace {

using Column = ObjectsModel::Column;

/// Above so many added and removed rows, a reset is faster than single steps.
constexpr std::size_t kMostSingleRows = 200;
/// Collects the questions of all rows that come into view at once.
constexpr int kAskDelayMs = 30;

QList<Column> columnsOf(ObjectKind kind) {
  switch (kind) {
    case ObjectKind::eEdits:
      return {Column::eName,   Column::eNews,     Column::eMay,     Column::eOwner, Column::eState,
              Column::eLength, Column::eModified, Column::eSavedBy, Column::eSource};
    case ObjectKind::eMedia:
      return {Column::eName, Column::eNews, Column::eDetail, Column::eExtra};
    default:
      return {Column::eName, Column::eNews, Column::eDetail};
  }
}

Glyph glyphOf(ObjectKind kind) {
  switch (kind) {
    case ObjectKind::eBins:
      return Glyph::eBin;
    case ObjectKind::eRacks:
      return Glyph::eRack;
    case ObjectKind::eFilters:
      return Glyph::eFilter;
    case ObjectKind::eMedia:
      return Glyph::eMedia;
    default:
      return Glyph::eEdit;
  }
}

QString detailHeading(ObjectKind kind) {
  if (kind == ObjectKind::eFilters) return ObjectsModel::tr("Finds");
  return kind == ObjectKind::eMedia ? ObjectsModel::tr("File") : ObjectsModel::tr("Holds");
}

QString stateText(const ObjectRow& row) {
  if (row.isDirty)
    return row.isOpen ? ObjectsModel::tr("open, unsaved") : ObjectsModel::tr("unsaved");
  if (row.isUnsavedElsewhere) return ObjectsModel::tr("unsaved there");
  return row.isOpen ? ObjectsModel::tr("open") : QString();
}

/// At the rate of the timeline's ruler where the edit tells none.
QString lengthText(const ObjectRow& row) {
  if (!row.length) return {};
  return QString::fromStdString(Timecode(row.rate > 0 ? row.rate : 24).textAt(*row.length));
}

/// "harbour.mov", or "harbour.mov and 2 more".
QString sourceText(const ObjectRow& row) {
  const QString main = oneLine(row.source);
  if (row.sources < 2) return main;
  return ObjectsModel::tr("%1 and %n more", nullptr, row.sources - 1).arg(main);
}

bool hasSameKeys(const ObjectRows& a, const ObjectRows& b) {
  return std::ranges::equal(a, b, {}, &ObjectRow::key, &ObjectRow::key);
}

/// How many keys are in one of the two alone.
std::size_t differingKeys(const ObjectRows& a, const ObjectRows& b) {
  std::size_t same = 0;
  for (std::size_t i = 0, j = 0; i < a.size() && j < b.size();) {
    const int order = a[i].key.compare(b[j].key);
    same += order == 0;
    i += order <= 0;
    j += order >= 0;
  }
  return a.size() + b.size() - 2 * same;
}

}  // namespace

ObjectsModel::ObjectsModel(ObjectKind kind, NewsBook& news, QObject* parent)
    : QAbstractTableModel(parent), kind_(kind), columns_(columnsOf(kind)), news_(news) {
  askTimer_.setSingleShot(true);
  connect(&askTimer_, &QTimer::timeout, this,
          [this] { Q_EMIT mayWanted(std::exchange(toAsk_, {})); });
}

void ObjectsModel::startAfresh() {
  may_.clear();
  asked_.clear();
  toAsk_.clear();
  isAfresh_ = true;
}

// Both lists are sorted by key, so one pass finds added, removed and changed rows.
QString shownName(const ObjectRow& row) {
  constexpr qsizetype kShortCookie = 9;
  if (row.name.isEmpty()) return row.cookie;
  if (!row.isNamesake) return oneLine(row.name);
  return QStringLiteral("%1  (%2)").arg(oneLine(row.name), row.cookie.left(kShortCookie));
}

void ObjectsModel::setRows(const Shared<ObjectRows>& rows) {
  if (!rows) return;
  // A list that is empty in both projects counts as seen, too.
  if (rows == rows_ && !std::exchange(isAfresh_, false)) return;
  isAfresh_ = false;
  news_.take(kind_, *rows);
  // Single steps keep the selection and the scroll position of the views.
  forgetAnswers(*rows_, *rows);
  if (hasSameKeys(*rows_, *rows)) return takeOverInPlace(rows);
  if (differingKeys(*rows_, *rows) > kMostSingleRows) {
    beginResetModel();
    rows_ = rows;
    endResetModel();
    return;
  }
  takeOverOneByOne(*rows);
  takeOverInPlace(rows);
}

void ObjectsModel::takeOverOneByOne(const ObjectRows& now) {
  auto shown = std::make_shared<ObjectRows>(*rows_);
  rows_ = shown;
  for (std::size_t i = 0; i < shown->size() || i < now.size();) {
    const bool isGone = i < shown->size() && (i >= now.size() || (*shown)[i].key < now[i].key);
    const bool isNew = i < now.size() && (i >= shown->size() || now[i].key < (*shown)[i].key);
    const int row = static_cast<int>(i);
    const auto at = shown->begin() + static_cast<std::ptrdiff_t>(i);
    if (isGone) {
      beginRemoveRows({}, row, row);
      shown->erase(at);
      endRemoveRows();
      continue;
    }
    if (isNew) {
      beginInsertRows({}, row, row);
      shown->insert(at, now[i]);
      endInsertRows();
    }
    ++i;
  }
}

void ObjectsModel::takeOverInPlace(const Shared<ObjectRows>& rows) {
  const Shared<ObjectRows> before = std::exchange(rows_, rows);
  int first = -1;
  for (std::size_t i = 0; i < rows->size(); ++i) {
    const bool differs = (*before)[i] != (*rows)[i];
    if (differs && first < 0) first = static_cast<int>(i);
    if (!differs && first >= 0) tellChanged(std::exchange(first, -1), static_cast<int>(i) - 1);
  }
  if (first >= 0) tellChanged(first, static_cast<int>(rows->size()) - 1);
}

void ObjectsModel::tellChanged(int first, int last) {
  Q_EMIT dataChanged(index(first, 0), index(last, columnCount() - 1));
}

// Forgets answers that a new owner or a change of another station may have made wrong.
void ObjectsModel::forgetAnswers(const ObjectRows& before, const ObjectRows& now) {
  if (kind_ != ObjectKind::eEdits) return;
  for (std::size_t i = 0, j = 0; i < before.size() && j < now.size();) {
    const int order = before[i].key.compare(now[j].key);
    const bool differs = before[i].owner != now[j].owner ||
                         before[i].elsewhere.count != now[j].elsewhere.count ||
                         before[i].problem != now[j].problem;
    if (order == 0 && differs) {
      may_.remove(now[j].cookie);
      asked_.remove(now[j].cookie);
    }
    i += order <= 0;
    j += order >= 0;
  }
}

void ObjectsModel::takeAnswers(const QHash<QString, bool>& answers) {
  for (auto answer = answers.begin(); answer != answers.end(); ++answer) {
    // The object changed since it was asked about; it is asked about again.
    if (!asked_.contains(answer.key())) continue;
    may_[answer.key()] = answer.value();
    if (const int row = rowOf(answer.key()); row >= 0) tellChanged(row, row);
  }
}

void ObjectsModel::setPeople(const QHash<QString, Badges>& people) {
  const QHash<QString, Badges> before = std::exchange(people_, people);
  if (before == people) return;
  for (int row = 0; row < rowCount(); ++row) {
    const QString& cookie = at(row).cookie;
    if (before.value(cookie) != people.value(cookie)) tellChanged(row, row);
  }
}

std::optional<bool> ObjectsModel::mayChange(const QString& cookie) const {
  const auto answer = may_.find(cookie);
  return answer == may_.end() ? std::nullopt : std::optional(*answer);
}

void ObjectsModel::askSoon(const QString& cookie) const {
  if (asked_.contains(cookie)) return;
  asked_.insert(cookie);
  toAsk_.append(cookie);
  if (!askTimer_.isActive()) askTimer_.start(kAskDelayMs);
}

int ObjectsModel::rowOf(const QString& key) const {
  const auto at = std::ranges::lower_bound(*rows_, key, {}, &ObjectRow::key);
  return at != rows_->end() && at->key == key ? static_cast<int>(at - rows_->begin()) : -1;
}

bool ObjectsModel::hasNews(int row) const { return news_.has(at(row).key); }

int ObjectsModel::newsCount() const {
  return static_cast<int>(
      std::ranges::count_if(*rows_, [this](const ObjectRow& row) { return news_.has(row.key); }));
}

void ObjectsModel::markSeen(int row) {
  if (!hasNews(row)) return;
  news_.forget(at(row).key);
  tellChanged(row, row);
}

void ObjectsModel::markAllSeen() {
  for (int row = 0; row < rowCount(); ++row) markSeen(row);
}

QString ObjectsModel::titleOf(ObjectKind kind) {
  constexpr std::array<const char*, kObjectKinds> kTitles{
      QT_TR_NOOP("Edits and logs"), QT_TR_NOOP("Bins"), QT_TR_NOOP("Racks"), QT_TR_NOOP("Filters"),
      QT_TR_NOOP("Media")};
  return tr(kTitles[static_cast<std::size_t>(kind)]);
}

QString ObjectsModel::tabText() const {
  return rows_->empty() ? title() : QStringLiteral("%1  %L2").arg(title()).arg(rows_->size());
}

int ObjectsModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(rows_->size());
}

int ObjectsModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(columns_.size());
}

QVariant ObjectsModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
  return headerText(columns_[section]);
}

QString ObjectsModel::headerText(Column column) const {
  switch (column) {
    case eName:
      return tr("Name");
    case eOwner:
      return tr("Owner");
    case eMay:
      return tr("You may");
    case eState:
      return tr("State");
    case eDetail:
      return detailHeading(kind_);
    case eExtra:
      return tr("Proxy of");
    case eNews:
      return tr("News");
    case eModified:
      return tr("Saved");
    case eSavedBy:
      return tr("By");
    case eLength:
      return tr("Length");
    case eSource:
      return tr("Source");
  }
  return {};
}

QString ObjectsModel::mayText(const ObjectRow& row) const {
  const auto answer = may_.find(row.cookie);
  if (answer == may_.end()) return QStringLiteral("…");
  return *answer ? tr("change it") : tr("look only");
}

QString ObjectsModel::newsOf(const ObjectRow& row,
                             QString (*inWords)(const NewsBook::Mark&)) const {
  if (!row.problem.isEmpty()) return tr("unreadable");
  if (row.isDeleted) return tr("deleted by another");
  const auto mark = news_.mark(row.key);
  return mark ? inWords(*mark) : QString();
}

QString ObjectsModel::textOf(const ObjectRow& row, Column column) const {
  switch (column) {
    case eName:
      return shownName(row);
    case eOwner:
      return row.owner.isEmpty() ? tr("nobody") : oneLine(row.owner);
    case eMay:
      return mayText(row);
    case eState:
      return stateText(row);
    case eDetail:
      return oneLine(row.detail);
    case eExtra:
      return oneLine(row.extra);
    case eNews:
      return newsOf(row, newsText);
    case eModified:
      return row.savedAt.isValid() ? shownTime(row.savedAt.toLocalTime()) : QString();
    case eSavedBy:
      return oneLine(row.savedBy);
    case eLength:
      return lengthText(row);
    case eSource:
      return sourceText(row);
  }
  return {};
}

QVariant ObjectsModel::iconOf(const ObjectRow& row, Column column) const {
  const Colours& with = colours();
  switch (column) {
    case eName:
      return icon(row.isLog ? Glyph::eLog : glyphOf(kind_), with.quiet);
    case eMay: {
      const auto answer = may_.find(row.cookie);
      if (answer == may_.end()) return icon(Glyph::eWaiting, with.quiet);
      return *answer ? icon(Glyph::eYes, with.good) : icon(Glyph::eNo, with.held);
    }
    case eState:
      if (row.isDirty) return icon(Glyph::eDirty, with.warn);
      return row.isOpen ? icon(Glyph::eOpen, with.accent) : QVariant();
    case eNews:
      if (!row.problem.isEmpty()) return icon(Glyph::eProblem, with.bad);
      return news_.has(row.key) ? icon(Glyph::eChanged, with.accent) : QVariant();
    default:
      return {};
  }
}

QVariant ObjectsModel::colourOf(const ObjectRow& row, Column column) const {
  const bool isQuiet = column == eOwner || column == eDetail || column == eExtra ||
                       column == eModified || column == eSavedBy || column == eLength ||
                       column == eSource;
  if (isQuiet) return colours().quiet;
  if (column == eNews) return row.problem.isEmpty() ? colours().accent : colours().bad;
  if (column == eState && row.isDirty) return colours().warn;
  return {};
}

QString ObjectsModel::toolTipOf(const ObjectRow& row) const {
  QStringList lines{textOf(row, eName)};
  if (!row.problem.isEmpty()) lines.append(row.problem);
  for (int i = 1; i < columns_.size(); ++i) {
    const QString text = columns_[i] == eNews ? newsOf(row, newsInFull) : textOf(row, columns_[i]);
    if (!text.isEmpty()) {
      lines.append(
          tr("%1: %2", "a heading, and what is below it").arg(headerText(columns_[i]), text));
    }
  }
  if (const auto people = people_.value(row.cookie); !people.empty()) {
    lines.append(tr("Open at: %1").arg(peopleText(people)));
  }
  lines.append(row.cookie);
  return plainTip(lines.join(QLatin1Char('\n')));
}

/// What the name of an object tells of who has it open elsewhere.
QVariant ObjectsModel::peopleAt(const ObjectRow& row, int role) const {
  const auto people = people_.constFind(row.cookie);
  if (people == people_.constEnd()) return {};
  if (role == kBadgesRole) return QVariant::fromValue(*people);
  return tr("%1, open at: %2").arg(shownName(row), peopleText(*people));
}

namespace {

constexpr const char* kCookiesType = "application/x-korvel-cookies";

}  // namespace

Qt::ItemFlags ObjectsModel::flags(const QModelIndex& index) const {
  const bool isContainer = kind_ == ObjectKind::eBins || kind_ == ObjectKind::eRacks;
  const Qt::ItemFlags own = QAbstractTableModel::flags(index);
  if (!index.isValid()) return own;
  return own | Qt::ItemIsDragEnabled | (isContainer ? Qt::ItemIsDropEnabled : Qt::NoItemFlags);
}

QStringList ObjectsModel::mimeTypes() const { return {QLatin1String(kCookiesType)}; }

QMimeData* ObjectsModel::mimeData(const QModelIndexList& indexes) const {
  QStringList cookies;
  QSet<QString> known;  // a file and its proxies share a cookie
  for (const QModelIndex& index : indexes) {
    const QString& cookie = at(index.row()).cookie;
    if (known.contains(cookie)) continue;
    known.insert(cookie);
    cookies << cookie;
  }
  auto* data = new QMimeData;
  data->setData(QLatin1String(kCookiesType), cookies.join(QLatin1Char('\n')).toUtf8());
  return data;
}

bool ObjectsModel::canDropMimeData(const QMimeData* data, Qt::DropAction, int, int,
                                   const QModelIndex& parent) const {
  return data->hasFormat(QLatin1String(kCookiesType)) && flags(parent) & Qt::ItemIsDropEnabled;
}

bool ObjectsModel::dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                                const QModelIndex& parent) {
  if (!canDropMimeData(data, action, row, column, parent)) return false;
  const QString cookies = QString::fromUtf8(data->data(QLatin1String(kCookiesType)));
  Q_EMIT dropped(at(parent.row()).cookie, cookies.split(QLatin1Char('\n')));
  return true;
}

QVariant ObjectsModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid()) return {};
  const ObjectRow& row = at(index.row());
  const Column column = columns_[index.column()];
  switch (role) {
    case Qt::DisplayRole:
      // Views ask for visible rows only, so permissions of thousands of edits are never asked at
      // once.
      if (column == eMay && !may_.contains(row.cookie)) askSoon(row.cookie);
      return textOf(row, column);
    case Qt::DecorationRole:
      return iconOf(row, column);
    case Qt::ForegroundRole:
      return colourOf(row, column);
    case Qt::ToolTipRole:
      return toolTipOf(row);
    case eSortRole:
      // What is shown of a time is short and in no order.
      if (column == eModified)
        return row.savedAt.toUTC().toString(QStringLiteral("yyyyMMddHHmmss"));
      // Of several rates the same timecode is not the same length.
      return column == eLength ? QVariant(row.length.value_or(-1)) : textOf(row, column);
    case eCookieRole:
      return row.cookie;
    case kBadgesRole:
    case Qt::AccessibleTextRole:
      return column == eName ? peopleAt(row, role) : QVariant();
    default:
      return {};
  }
}

}  // namespace korvel
