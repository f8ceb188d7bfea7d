#pragma once

#include <QLineEdit>
#include <QSortFilterProxyModel>
#include <QStackedWidget>
#include <QTabBar>
#include <QTimer>
#include <QTreeView>
#include <QWidget>
#include <array>
#include <optional>

#include "app/window/Lists.h"
#include "app/window/ObjectsModel.h"

class QKeyEvent;
class QLabel;
class QMenu;
class QSettings;
class QToolButton;

namespace korvel {

/// The open project's objects, a tab a kind, with a field that narrows the list. Says what to do
/// where there is nothing to show.
class ObjectsPane : public QWidget {
  Q_OBJECT

 public:
  explicit ObjectsPane(QWidget* parent = nullptr);

  void show(const Snapshot& snapshot);
  void takeAnswers(const QHash<QString, bool>& answers);

  [[nodiscard]] ObjectKind kind() const;
  void setKind(ObjectKind kind);

  /// The rows chosen in the list that is shown, the current one first.
  [[nodiscard]] std::vector<ObjectRow> chosen() const;

  /// Whether the program, not the user, is changing the selection right now.
  [[nodiscard]] bool isChoosing() const { return isChoosing_; }

  /// The object of this cookie, whatever its kind.
  [[nodiscard]] std::optional<ObjectRow> find(const QString& cookie) const;

  /// All bins, or whatever kind.
  [[nodiscard]] const ObjectRows& rows(ObjectKind kind) const;

  /// Chooses an object, as a click would.
  void choose(ObjectKind kind, const QString& key);
  void markSeen(const QString& key);

  /// Marks all objects of all kinds as looked at.
  void markAllSeen();
  [[nodiscard]] bool hasNews() const;

  /// Which columns each list shows and by which it is sorted, as an earlier run left it.
  void restoreColumns(QSettings& kept);
  void saveColumns(QSettings& kept) const;

  /// Adds an entry for each column of the list that is shown, which shows or hides it.
  void offerColumns(QMenu& menu);

  /// Shows what is in a bin or rack alone, of every kind, until the user wants all again.
  void showWithin(ObjectKind kind, const QString& key);
  void showAll();

  /// Shows the edits and logs whose names have this text in them.
  void showFound(const QString& text);

  /// The names of all objects of all kinds but filters that have a text in them, as the field that
  /// narrows finds them; none for no text.
  [[nodiscard]] QStringList namesWith(const QString& text) const;

  /// Goes to the field that narrows the list.
  void startSearch();

  [[nodiscard]] ObjectsModel& model(ObjectKind kind) const;
  [[nodiscard]] QTreeView& view(ObjectKind kind) const;

 Q_SIGNALS:
  void mayWanted(const QStringList& cookies);

  /// Something else is chosen.
  void choiceChanged();
  void menuWanted(const QPoint& at);
  void opened(const ObjectRow& row);

  /// Objects were dropped on a bin or rack.
  void dropped(ObjectKind kind, const QString& container, const QStringList& cookies);

 private:
  struct List {
    ObjectsModel* model = nullptr;
    ObjectsProxy* proxy = nullptr;
    QTreeView* view = nullptr;
    ColumnFit* columns = nullptr;
    ChoiceKeeper* keeper = nullptr;

    /// Another project's rows come next.
    void startAfresh() const;
  };

  [[nodiscard]] const List& list(ObjectKind kind) const;
  List makeList(ObjectKind kind);
  void takeRows(const List& list, const Shared<ObjectRows>& rows);
  void showKind();
  void showTitles();
  void showEmptiness();
  void narrow(const QString& text);
  void keepToOpened();
  void chooseFirst();
  void leaveSearch();
  bool takeListKey(const QKeyEvent& event);
  bool eventFilter(QObject* watched, QEvent* event) override;
  void changeEvent(QEvent* event) override;

  NewsBook news_;
  QTimer keepNews_;
  QTabBar* tabs_;
  QLineEdit* search_;
  QStackedWidget* stack_;
  QLabel* empty_;
  QToolButton* within_;  ///< says which container is open, and closes it
  std::array<List, kObjectKinds> lists_;
  ObjectKind openedKind_ = ObjectKind::eBins;
  QString opened_;  ///< the key of the bin or rack that is open; empty for none
  QString project_;
  bool hasProject_ = false;
  bool lacksChoice_ = false;  ///< a project was entered and had no edit to show yet
  bool isChoosing_ = false;
};

}  // namespace korvel
