#include "app/window/Lists.h"

#include <QEvent>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QMenu>
#include <QScrollBar>
#include <QSortFilterProxyModel>
#include <QTreeView>
#include <algorithm>
#include <numeric>
#include <utility>

#include "app/window/ObjectsModel.h"
#include "app/window/Texts.h"

namespace korvel {

// A collator that sorts numbers by value. The locale "C" cannot, so English stands in for it.
QCollator naturalOrder() {
  const QLocale here;
  QCollator order(here.language() == QLocale::C ? QLocale(QLocale::English) : here);
  order.setNumericMode(true);
  order.setCaseSensitivity(Qt::CaseInsensitive);
  return order;
}

NaturalOrderProxy::NaturalOrderProxy(QObject* parent)
    : QSortFilterProxyModel(parent), order_(naturalOrder()) {}

// Before the base connects to the model: what it is told of it may sort at once.
void NaturalOrderProxy::setSourceModel(QAbstractItemModel* model) {
  const auto forget = [this] { places_.clear(); };
  connect(model, &QAbstractItemModel::modelReset, this, forget);
  connect(model, &QAbstractItemModel::layoutChanged, this, forget);
  connect(model, &QAbstractItemModel::rowsMoved, this, forget);
  connect(model, &QAbstractItemModel::rowsInserted, this,
          [this](const QModelIndex&, int first, int last) {
            if (places_.empty()) return;
            places_.insert(places_.begin() + first, static_cast<std::size_t>(last - first + 1), {});
          });
  connect(model, &QAbstractItemModel::rowsRemoved, this,
          [this](const QModelIndex&, int first, int last) {
            if (places_.empty()) return;
            places_.erase(places_.begin() + first, places_.begin() + last + 1);
          });
  connect(model, &QAbstractItemModel::dataChanged, this,
          [this](const QModelIndex& first, const QModelIndex& last) {
            if (places_.empty()) return;
            std::fill(places_.begin() + first.row(), places_.begin() + last.row() + 1,
                      std::nullopt);
          });
  QSortFilterProxyModel::setSourceModel(model);
}

const QCollatorSortKey& NaturalOrderProxy::placeOf(const QModelIndex& index) const {
  auto& place = places_[static_cast<std::size_t>(index.row())];
  if (!place) place.emplace(order_.sortKey(index.data(sortRole()).toString()));
  return *place;
}

bool NaturalOrderProxy::lessThan(const QModelIndex& left, const QModelIndex& right) const {
  const int column = left.column();
  if (places_.empty() || column_ != column) {
    const QVariant one = left.data(sortRole());
    if (one.typeId() == QMetaType::Double)
      return one.toDouble() < right.data(sortRole()).toDouble();
    column_ = column;
    places_.assign(static_cast<std::size_t>(sourceModel()->rowCount()), {});
  }
  return placeOf(left).compare(placeOf(right)) < 0;
}

void ObjectsProxy::keepTo(const std::optional<QSet<QString>>& cookies) {
  if (cookies_ == cookies) return;
  cookies_ = cookies;
  invalidateFilter();
}

void ObjectsProxy::narrow(const QString& text) {
  if (text_ == text) return;
  text_ = text;
  invalidateFilter();
}

bool ObjectsProxy::filterAcceptsRow(int row, const QModelIndex&) const {
  const ObjectRow& object = qobject_cast<const ObjectsModel*>(sourceModel())->at(row);
  const bool isIn = !cookies_ || cookies_->contains(object.cookie);
  return isIn && (text_.isEmpty() || shownName(object).contains(text_, Qt::CaseInsensitive));
}

void setColumnWidths(QTreeView& view, std::initializer_list<int> widths) {
  for (int column = 0; const int width : widths) {
    view.setColumnWidth(column, std::max(width, view.header()->sectionSizeHint(column)));
    ++column;
  }
}

int widthOfTimes(const QWidget& view) {
  constexpr int kAround = 20;
  const QDateTime evening(QDate(2026, 11, 28), QTime(22, 44));
  return view.fontMetrics().horizontalAdvance(shownDayAndTime(evening)) + kAround;
}

namespace {

constexpr int kLeastWidth = 24;
constexpr int kAmpleFirst = 480;  ///< of most names nothing is cut at this width

}  // namespace

ColumnFit::ColumnFit(QTreeView& view, int first, std::vector<Width> widths)
    : QObject(&view), view_(view), first_(first), widths_(std::move(widths)) {
  QHeaderView& header = *view.header();
  header.setStretchLastSection(false);
  header.setMinimumSectionSize(kLeastWidth);
  for (int column = 0; Width & each : widths_) {
    const int heading = view.isHeaderHidden() ? 0 : header.sectionSizeHint(++column);
    each.wanted = std::max(each.wanted, heading);
    each.least = std::max(each.least, heading);
  }
  // How wide names are is asked of those in sight, not of a thousand.
  header.setResizeContentsPrecision(0);
  // The first column takes the rest, so that no horizontal scroll bar is needed.
  header.setSectionResizeMode(0, QHeaderView::Stretch);
  connect(&header, &QHeaderView::sectionResized, this,
          [this](int column, int, int width) { takeWidth(column, width); });
  view.viewport()->installEventFilter(this);
  header.setContextMenuPolicy(Qt::CustomContextMenu);
  connect(&header, &QHeaderView::customContextMenuRequested, this, [this, &header](QPoint at) {
    auto* menu = new QMenu(&view_);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    offer(*menu);
    menu->popup(header.mapToGlobal(at));
  });
  fit();
}

void ColumnFit::offer(QMenu& menu) {
  const QAbstractItemModel& model = *view_.model();
  for (int column = 1; column < model.columnCount(); ++column) {
    QAction* action = menu.addAction(model.headerData(column, Qt::Horizontal).toString());
    action->setCheckable(true);
    action->setChecked(!unwanted_.contains(column));
    connect(action, &QAction::toggled, this, [this, column](bool isWanted) {
      std::set<int> columns = unwanted_;
      isWanted ? void(columns.erase(column)) : void(columns.insert(column));
      setUnwanted(columns);
    });
  }
}

void ColumnFit::setUnwanted(const std::set<int>& columns) {
  unwanted_ = columns;
  fit();
}

bool ColumnFit::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::Resize) fit();
  return QObject::eventFilter(watched, event);
}

void ColumnFit::setSecond(Width width) {
  widths_.front() = width;
  fit();
}

void ColumnFit::setSecondEmpty(bool isEmpty) {
  if (!isEmpty && !isSecondEmpty_) return;
  isSecondEmpty_ = isEmpty;
  fit();
}

void ColumnFit::takeWidth(int column, int width) {
  // Only widths that the user has dragged count; a hidden column reports 0.
  if (isFitting_ || column == 0 || width == 0) return;
  Width& own = widths_[static_cast<std::size_t>(column) - 1];
  own.wanted = width;
  own.least = std::min(own.least, width);
  own.most = width;
}

void ColumnFit::fit() {
  isFitting_ = true;
  std::vector<int> widths = fitting();
  makeRoomForFirst(widths);
  shareSpare(widths);
  for (std::size_t i = 0; i < widths.size(); ++i) {
    const int column = static_cast<int>(i) + 1;
    view_.setColumnHidden(column, widths[i] == 0);
    if (widths[i] > 0) view_.setColumnWidth(column, widths[i]);
  }
  isFitting_ = false;
}

/// The widths of the columns behind the first, as far as there is room; 0 for those that are
/// hidden.
std::vector<int> ColumnFit::fitting() const {
  std::vector<int> fitting(widths_.size());
  int room = view_.viewport()->width() - first_;
  for (std::size_t i = 0; i < widths_.size(); ++i) {
    const bool isWanted = !unwanted_.contains(static_cast<int>(i) + 1);
    const int keeps = std::max(0, widths_[i].beside - first_);
    const bool fits = isWanted && room >= widths_[i].least + keeps;
    const bool isCut = widths_[i].isWholeOrLeast && room - keeps < widths_[i].wanted;
    const int width = isCut ? widths_[i].least : std::min(widths_[i].wanted, room - keeps);
    if (fits) fitting[i] = width;
    if (!isWanted) continue;
    room = fits ? room - width : 0;
  }
  return fitting;
}

/// Columns that came later may have taken what an earlier one left to the first: they and it give
/// way as far as they can.
void ColumnFit::makeRoomForFirst(std::vector<int>& widths) const {
  int lack = std::accumulate(widths.begin(), widths.end(), -view_.viewport()->width());
  int beside = 0;
  for (std::size_t i = 0; i < widths.size(); ++i) {
    if (widths[i] > 0) beside = std::max(beside, widths_[i].beside);
  }
  lack += beside;
  for (std::size_t i = 0; i < widths.size() && lack > 0; ++i) {
    if (widths[i] == 0 || widths_[i].isWholeOrLeast) continue;
    const int given = std::min(lack, widths[i] - widths_[i].least);
    widths[i] -= given;
    lack -= given;
  }
  if (!isSecondEmpty_ || widths.front() == 0) return;
  const QAbstractItemView& view = view_;  // a tree's own is not for others
  const int heading = view_.header()->sectionSizeHint(1);
  const int all = std::accumulate(widths.begin(), widths.end(), view.sizeHintForColumn(0));
  const int cut = std::max(0, all - view_.viewport()->width());
  widths.front() -= std::min(cut, std::max(0, widths.front() - heading));
}

/// What the first column can do without goes to texts that would be cut.
void ColumnFit::shareSpare(std::vector<int>& widths) const {
  int spare = std::accumulate(widths.begin(), widths.end(), kAmpleFirst);
  spare = view_.viewport()->width() - spare;
  for (std::size_t i = 0; i < widths.size() && spare > 0; ++i) {
    if (widths[i] == 0) continue;
    const int taken = std::clamp(widths_[i].most - widths[i], 0, spare);
    widths[i] += taken;
    spare -= taken;
  }
}

ArrowKeys::ArrowKeys(QAbstractItemView& view) : QObject(&view), view_(view) {
  view.installEventFilter(this);
  connect(view.selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
    if (view_.selectionMode() != QAbstractItemView::SingleSelection) return;
    const QModelIndexList rows = view_.selectionModel()->selectedRows();
    if (rows.size() != 1) return;
    if (rows.front().row() == view_.currentIndex().row()) return;
    view_.selectionModel()->setCurrentIndex(rows.front(), QItemSelectionModel::NoUpdate);
  });
}

bool ArrowKeys::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() != QEvent::KeyPress) return QObject::eventFilter(watched, event);
  const int key = static_cast<QKeyEvent*>(event)->key();
  const bool isMove = key == Qt::Key_Up || key == Qt::Key_Down || key == Qt::Key_Home ||
                      key == Qt::Key_End || key == Qt::Key_PageUp || key == Qt::Key_PageDown;
  const bool hasChoice = view_.selectionModel()->hasSelection();
  if (!isMove || hasChoice || view_.model()->rowCount() == 0) return false;
  const QModelIndex current = view_.currentIndex();
  view_.setCurrentIndex(current.isValid() ? current : view_.model()->index(0, 0));
  view_.selectionModel()->select(view_.currentIndex(),
                                 QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
  return true;
}

namespace {

/// Chooses whole rows from the first to the last, none where `first` is below zero.
void addRows(QItemSelection& selection, const QAbstractItemModel& model, int first, int last) {
  if (first < 0) return;
  selection.append(
      QItemSelectionRange(model.index(first, 0), model.index(last, model.columnCount() - 1)));
}

}  // namespace

ChoiceKeeper::ChoiceKeeper(const ObjectsModel& model, QSortFilterProxyModel& proxy, QTreeView& view,
                           QObject* parent)
    : QObject(parent), model_(model), proxy_(proxy), view_(view) {
  connect(&proxy, &QAbstractItemModel::modelAboutToBeReset, this, &ChoiceKeeper::remember);
  connect(&proxy, &QAbstractItemModel::modelReset, this, &ChoiceKeeper::restore);
}

QString ChoiceKeeper::keyAt(int proxyRow) const {
  return model_.at(proxy_.mapToSource(proxy_.index(proxyRow, 0)).row()).key;
}

QSet<QString> ChoiceKeeper::chosenKeys() const {
  QSet<QString> keys;
  for (const QModelIndex& index : view_.selectionModel()->selectedRows()) {
    keys.insert(keyAt(index.row()));
  }
  return keys;
}

void ChoiceKeeper::beforeRows() { before_ = chosenKeys(); }

void ChoiceKeeper::afterRows() {
  const auto isThere = [this](const QString& key) { return model_.rowOf(key) >= 0; };
  QSet<QString> went = before_;
  went.removeIf([&](const QString& key) { return isThere(key); });
  const bool isOthers = !before_.isEmpty() && before_ != returned_;
  if (isOthers && went.isEmpty()) gone_.clear();
  gone_ += went;
  QSet<QString> back = gone_;
  back.removeIf([&](const QString& key) { return !isThere(key); });
  if (back.isEmpty()) return;
  // What went together may come back one after the other.
  gone_ -= back;
  for (const QString& key : back) {
    const QModelIndex row = proxy_.mapFromSource(model_.index(model_.rowOf(key), 0));
    if (!row.isValid()) continue;
    view_.selectionModel()->setCurrentIndex(
        row, QItemSelectionModel::Select | QItemSelectionModel::Rows);
  }
  returned_ = chosenKeys();
}

void ChoiceKeeper::startAfresh() {
  before_.clear();
  gone_.clear();
  returned_.clear();
}

// By key: a reset invalidates all indexes.
void ChoiceKeeper::remember() {
  chosen_ = chosenKeys();
  const QModelIndex current = view_.currentIndex();
  current_ = current.isValid() ? keyAt(current.row()) : QString();
  // The view has lost its row positions by now, but its scroll bar counts rows.
  const int first = view_.verticalScrollBar()->value();
  top_ = first > 0 && first < proxy_.rowCount() ? keyAt(first) : QString();
}

// Selects neighbouring rows as one range: thousands of single selections take Qt seconds.
void ChoiceKeeper::restore() {
  QItemSelection selection;
  QModelIndex current;
  QModelIndex top;
  int first = -1;
  for (int row = 0; row < proxy_.rowCount(); ++row) {
    const QString key = keyAt(row);
    if (key == current_) current = proxy_.index(row, 0);
    if (key == top_) top = proxy_.index(row, 0);
    const bool isChosen = chosen_.contains(key);
    if (isChosen && first < 0) first = row;
    if (!isChosen) addRows(selection, proxy_, std::exchange(first, -1), row - 1);
  }
  addRows(selection, proxy_, first, proxy_.rowCount() - 1);
  view_.selectionModel()->setCurrentIndex(current, QItemSelectionModel::NoUpdate);
  view_.selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
  if (top.isValid()) view_.scrollTo(top, QAbstractItemView::PositionAtTop);
}

}  // namespace korvel
