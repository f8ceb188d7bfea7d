#pragma once

#include <QAbstractListModel>
#include <QWidget>
#include <deque>

#include "app/window/EventFeed.h"

class QComboBox;
class QListView;
class QSortFilterProxyModel;

namespace korvel {

/// The latest lines of the log, the oldest first; bounded.
class LogModel : public QAbstractListModel {
  Q_OBJECT

 public:
  static constexpr std::size_t kMostLines = 5000;

  using QAbstractListModel::QAbstractListModel;

  void append(const std::vector<LogLine>& lines);

  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;

  /// The role under which a line tells its kind.
  static constexpr int kKindRole = Qt::UserRole;

 private:
  std::deque<LogLine> lines_;
};

/// What the station sent, received and wrote to its log, with a choice of which to show.
class LogPane : public QWidget {
  Q_OBJECT

 public:
  explicit LogPane(QWidget* parent = nullptr);

  void append(const std::vector<LogLine>& lines);

  [[nodiscard]] QComboBox& choice() const { return *choice_; }
  [[nodiscard]] QListView& view() const { return *view_; }

 private:
  void narrow();

  LogModel* model_;
  QSortFilterProxyModel* proxy_;
  QComboBox* choice_;
  QListView* view_;
};

}  // namespace korvel
