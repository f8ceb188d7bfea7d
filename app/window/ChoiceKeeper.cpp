#include "app/window/ChoiceKeeper.h"

#include <QItemSelectionModel>
#include <QScrollBar>
#include <QSortFilterProxyModel>
#include <QTreeView>
#include <utility>

#include "app/window/ObjectsModel.h"

namespace korvel {

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

void ChoiceKeeper::remember() {
  chosen_.clear();
  for (const QModelIndex& index : view_.selectionModel()->selectedRows()) {
    chosen_.insert(keyAt(index.row()));
  }
  const QModelIndex current = view_.currentIndex();
  current_ = current.isValid() ? keyAt(current.row()) : QString();
  // The view knows no places any more, but it scrolls by rows.
  const int first = view_.verticalScrollBar()->value();
  top_ = first > 0 && first < proxy_.rowCount() ? keyAt(first) : QString();
}

// Rows side by side are chosen as one range: thousands of single ones take the toolkit seconds.
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
