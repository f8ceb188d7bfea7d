#pragma once

#include <QCollator>
#include <QObject>
#include <QSet>
#include <QSortFilterProxyModel>
#include <QString>
#include <initializer_list>
#include <optional>
#include <set>
#include <vector>

class QAbstractItemModel;
class QAbstractItemView;
class QMenu;
class QTreeView;
class QWidget;

namespace korvel {

/// Compares names as people do: "Edit 2" is before "Edit 10", capital letters do not matter.
QCollator naturalOrder();

/// A list in the natural order of its sort role's texts or numbers. Where a text belongs is worked
/// out once, since thousands of rows are sorted again with every letter that narrows a list.
class NaturalOrderProxy : public QSortFilterProxyModel {
 public:
  explicit NaturalOrderProxy(QObject* parent = nullptr);

  void setSourceModel(QAbstractItemModel* model) override;

 protected:
  [[nodiscard]] bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;

 private:
  const QCollatorSortKey& placeOf(const QModelIndex& index) const;

  QCollator order_;
  mutable int column_ = -1;                                      ///< whose texts the places are of
  mutable std::vector<std::optional<QCollatorSortKey>> places_;  ///< by the source's row
};

/// The rows of an ObjectsModel, those of a container alone where one is open.
class ObjectsProxy : public NaturalOrderProxy {
 public:
  using NaturalOrderProxy::NaturalOrderProxy;

  /// Shows objects of these cookies alone; all with nothing.
  void keepTo(const std::optional<QSet<QString>>& cookies);

  /// Shows objects alone whose names have this text in them.
  void narrow(const QString& text);

 protected:
  [[nodiscard]] bool filterAcceptsRow(int row, const QModelIndex& parent) const override;

 private:
  std::optional<QSet<QString>> cookies_;
  QString text_;
};

/// Gives the columns of a list these widths, and each at least what its heading needs.
void setColumnWidths(QTreeView& view, std::initializer_list<int> widths);

/// How wide a column of times is.
int widthOfTimes(const QWidget& view);

/// Keeps the columns of a list within its width: the first takes what the others leave, and where
/// there is too little for it the last ones, which matter least, are hidden until there is room
/// again. Nothing is ever off to the right. A width that the user gives a column is kept. The menu
/// of the list's head hides columns and shows them again.
class ColumnFit : public QObject {
 public:
  /// How wide a column is, and how narrow it may become before it is hidden.
  struct Width {
    int wanted = 0;
    int least = 0;
    int beside = 0;               ///< what the first column must have left for this one to be shown
    bool isWholeOrLeast = false;  ///< nothing between: of a text that is cut its sign says as much
    int most = 0;                 ///< how wide it may become where the list has room to spare
  };

  /// `first` is what the first column has at least, `widths` are those of the second and so on; a
  /// column has room for its heading in any case. Lives as long as the view.
  ColumnFit(QTreeView& view, int first, std::vector<Width> widths);

  /// The second column shows other texts now, and wants to be this wide.
  void setSecond(Width width);

  /// Whether the second column has no text in any row: it leaves all but its heading's room to
  /// names that would be cut. Looks at the names of now.
  void setSecondEmpty(bool isEmpty);

  /// The columns that the user does not want to see.
  [[nodiscard]] const std::set<int>& unwanted() const { return unwanted_; }
  void setUnwanted(const std::set<int>& columns);

  /// Adds an entry for each column but the first, which shows or hides it.
  void offer(QMenu& menu);

 private:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void fit();
  [[nodiscard]] std::vector<int> fitting() const;
  void makeRoomForFirst(std::vector<int>& widths) const;
  void shareSpare(std::vector<int>& widths) const;
  void takeWidth(int column, int width);

  QTreeView& view_;
  int first_;
  std::vector<Width> widths_;
  std::set<int> unwanted_;
  bool isSecondEmpty_ = false;
  bool isFitting_ = false;
};

/// Has the keys that move in a list choose a row where none is chosen: by itself the list moves on
/// from its current row, so that the only row of a list could not be chosen. And makes the one row
/// that a screen reader chooses the current one, as the mouse and the keys do. Lives as long as
/// the view.
class ArrowKeys : public QObject {
 public:
  explicit ArrowKeys(QAbstractItemView& view);

 private:
  bool eventFilter(QObject* watched, QEvent* event) override;

  QAbstractItemView& view_;
};

class ObjectsModel;

/// Keeps what is chosen in a list, and where the list stands, when so much changed at once that its
/// model begins anew. What was chosen as it went is chosen again once it is back, unless something
/// else was chosen meanwhile. Goes by the objects' keys.
class ChoiceKeeper : public QObject {
  Q_OBJECT

 public:
  /// `view` shows `proxy`, which shows `model`; all must outlive it.
  ChoiceKeeper(const ObjectsModel& model, QSortFilterProxyModel& proxy, QTreeView& view,
               QObject* parent);

  /// To be called before and after the model takes the rows of a snapshot.
  void beforeRows();
  void afterRows();

  /// Forgets what went: another project was entered.
  void startAfresh();

 private:
  void remember();
  void restore();
  [[nodiscard]] QSet<QString> chosenKeys() const;
  [[nodiscard]] QString keyAt(int proxyRow) const;

  const ObjectsModel& model_;
  QSortFilterProxyModel& proxy_;
  QTreeView& view_;
  QSet<QString> chosen_;
  QString current_;
  QString top_;             ///< the first row in sight; empty at the list's beginning
  QSet<QString> before_;    ///< chosen before the model took its rows
  QSet<QString> gone_;      ///< went while they were chosen
  QSet<QString> returned_;  ///< chosen since something was chosen again here
};

}  // namespace korvel
