#include "app/window/HoldersModel.h"

#include <QFont>
#include <QSet>
#include <algorithm>
#include <utility>

#include "app/window/Texts.h"

namespace korvel {

int HoldersModel::rowOf(const QString& key) const { return rowFrom(0, key); }

int HoldersModel::rowFrom(int first, const QString& key) const {
  const auto at = std::find_if(rows_.begin() + first, rows_.end(),
                               [&key](const HolderRow& row) { return row.key == key; });
  return at == rows_.end() ? -1 : static_cast<int>(at - rows_.begin());
}

void HoldersModel::setRows(HolderRows rows) {
  removeMissing(rows);
  // Names that are no text are shown alike, so that two rows may have one key.
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

// Always upwards: what is above the place that is filled now has its own place already.
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
      return plainTip(isName ? row.name : row.tip);
    case Qt::AccessibleTextRole:
      return isName ? row.name + QStringLiteral(", ") + row.state : row.state;
    case Qt::FontRole: {
      QFont font;
      font.setBold(true);
      return isName && row.isHere ? QVariant(font) : QVariant();
    }
    default:
      return {};
  }
}

}  // namespace korvel
