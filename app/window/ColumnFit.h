#pragma once

#include <QObject>
#include <vector>

class QTreeView;

namespace korvel {

/// Keeps the columns of a list within its width: the first takes what the others leave, and where
/// there is too little for it the last ones, which matter least, are hidden until there is room
/// again. Nothing is ever off to the right. A width that the user gives a column is kept.
class ColumnFit : public QObject {
 public:
  /// How wide a column is, and how narrow it may become before it is hidden.
  struct Width {
    int wanted = 0;
    int least = 0;
  };

  /// `first` is what the first column has at least, `widths` are those of the second and so on.
  /// Lives as long as the view.
  ColumnFit(QTreeView& view, int first, std::vector<Width> widths);

  /// The second column shows other texts now, and wants to be this wide.
  void setSecond(Width width);

 private:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void fit();
  void takeWidth(int column, int width);

  QTreeView& view_;
  int first_;
  std::vector<Width> widths_;
  bool isFitting_ = false;
};

}  // namespace korvel
