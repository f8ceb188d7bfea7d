#pragma once

#include <QAbstractListModel>
#include <QAbstractTableModel>
#include <QSortFilterProxyModel>
#include <QString>
#include <QThreadPool>
#include <QWidget>
#include <deque>
#include <mutex>
#include <optional>

#include "app/window/EventFeed.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListView;
class QListWidget;
class QListWidgetItem;
class QPlainTextEdit;
class QTreeView;

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

/// All notifications with their times and who wrote them, the latest first, and the whole text of
/// the chosen one. What came counts as unread until somebody looks: brings the list to the front,
/// moves the mouse over it or presses a key in it. A list that was left open is not looked at by
/// itself. What is new is bold until the list is left, or what is newer comes. Asks and answers are
/// listed and not counted: their bars stand until they are dealt with.
class NotificationsPane : public QWidget {
  Q_OBJECT

 public:
  static constexpr int kMost = 1000;

  explicit NotificationsPane(QWidget* parent = nullptr);

  void add(const std::vector<NotificationLine>& lines);

  /// How many words came since somebody looked at the list.
  [[nodiscard]] int unread() const { return unread_; }

  /// The user brought the list to the front: nothing is unread any more.
  void takeLook();

  /// Chooses the latest, so that its whole text shows.
  void chooseLatest();
  [[nodiscard]] QListWidget& list() const { return *list_; }
  [[nodiscard]] QPlainTextEdit& whole() const { return *whole_; }

 Q_SIGNALS:
  void unreadChanged(int count);
  void wholeWanted(const QString& title, const QString& text);

 private:
  void addLine(const NotificationLine& line);
  void showChosen();
  void setUnread(int count);
  void showEvent(QShowEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;
  void hideEvent(QHideEvent* event) override;
  void changeEvent(QEvent* event) override;
  void markAllRead();

  QListWidget* list_;
  QLabel* hint_;
  QPlainTextEdit* whole_;
  int unread_ = 0;
};

/// What happened in the open project, the latest first; bounded.
class HappenedModel : public QAbstractTableModel {
  Q_OBJECT

 public:
  static constexpr std::size_t kMost = 500;

  enum Column { eWhat, eObject, eWhen };

  using QAbstractTableModel::QAbstractTableModel;

  /// All there is, the latest first.
  void load(const std::vector<HappenedLine>& lines);

  /// What came since, the oldest first. What is told again takes the place of what was told, in
  /// front where it happened again.
  void add(const std::vector<HappenedLine>& lines);

  [[nodiscard]] const HappenedLine& at(int row) const {
    return lines_[static_cast<std::size_t>(row)];
  }

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

 private:
  void addOne(const HappenedLine& line);

  std::deque<HappenedLine> lines_;
};

/// What of it is to be shown: what one user did, what was done to one object, what has these words.
class HappenedProxy : public QSortFilterProxyModel {
 public:
  using QSortFilterProxyModel::QSortFilterProxyModel;

  void keepTo(const QString& user, const QString& words, const std::optional<QString>& cookie);

 protected:
  [[nodiscard]] bool filterAcceptsRow(int row, const QModelIndex& parent) const override;

 private:
  QString user_;
  QString words_;
  std::optional<QString> cookie_;
};

/// Who did what to what in the open project and when, the latest first; of one colleague, with some
/// words, or of the chosen edit alone. A double click or Return goes to the edit.
class HappenedPane : public QWidget {
  Q_OBJECT

 public:
  explicit HappenedPane(QWidget* parent = nullptr);

  /// Another project is open: what happened in it until now, the latest first. What has a lower
  /// number than `first` belongs to another.
  void load(const std::vector<HappenedLine>& lines, long first);
  void add(const std::vector<HappenedLine>& lines);

  /// The object that the user looks at; empty for none.
  void setChosen(const QString& cookie);

  [[nodiscard]] QTreeView& list() const { return *list_; }
  [[nodiscard]] QComboBox& who() const { return *who_; }
  [[nodiscard]] QLineEdit& search() const { return *search_; }
  [[nodiscard]] QCheckBox& chosenOnly() const { return *chosenOnly_; }

 Q_SIGNALS:
  /// The user wants to see this object.
  void objectWanted(const QString& what, const QString& cookie);

 private:
  void build();
  void noteDoers(const std::vector<HappenedLine>& lines);
  void narrow();
  void changeEvent(QEvent* event) override;

  HappenedModel* model_;
  HappenedProxy* proxy_;
  QComboBox* who_;
  QLineEdit* search_;
  QCheckBox* chosenOnly_;
  QTreeView* list_;
  QString chosen_;
  long first_ = 0;
};

/// Shows words as a notification of the desktop, where the session has a bus for them: one at a
/// time, each in the place of the last. Never waits for the desktop. Window thread.
class DesktopNotices {
 public:
  DesktopNotices() { worker_.setMaxThreadCount(1); }
  DesktopNotices(const DesktopNotices&) = delete;
  DesktopNotices& operator=(const DesktopNotices&) = delete;

  /// Waits for what is under way, two seconds at most.
  ~DesktopNotices() = default;

  /// Whether this session has a bus. One that is not there must not be started by the toolkit.
  [[nodiscard]] static bool isPossible();

  /// Both are plain texts. Of several within a moment the last is shown.
  void tell(const QString& title, const QString& text);

 private:
  struct Notice {
    QString title;
    QString text;
  };

  void work();
  std::optional<Notice> next();

  std::mutex mutex_;
  std::optional<Notice> waiting_;
  bool isWorking_ = false;
  unsigned shown_ = 0;  ///< the desktop's number of the last; the worker's
  QThreadPool worker_;  ///< ends before what it uses
};

/// "ANNA: text", or the text alone where nobody knows who wrote it; on one line, of a long one the
/// beginning and its length.
QString notificationText(const NotificationLine& line);

}  // namespace korvel
