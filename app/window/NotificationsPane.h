#pragma once

#include <QPlainTextEdit>
#include <QStringList>
#include <QWidget>

#include "app/window/EventFeed.h"

class QLabel;
class QListWidget;
class QListWidgetItem;

namespace korvel {

/// Lines of a conversation; only the new ones are laid out. It stays at its end unless the reader
/// scrolled away.
class ConversationView : public QPlainTextEdit {
  Q_OBJECT

 public:
  explicit ConversationView(QWidget* parent = nullptr);

  void setLines(const QStringList& lines);

 private:
  QStringList lines_;
};

/// All notifications with their times and who wrote them, the latest first, and the whole text of
/// the chosen one. What came counts as unread until somebody looks: brings the list to the front,
/// moves the mouse over it or presses a key in it. A list that was left open is not looked at by
/// itself. What is new is bold until the list is left, or what is newer comes.
class NotificationsPane : public QWidget {
  Q_OBJECT

 public:
  static constexpr int kMost = 1000;

  explicit NotificationsPane(QWidget* parent = nullptr);

  void add(const std::vector<NotificationLine>& lines);

  /// How many came since somebody looked at the list.
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

/// "ANNA: text", or the text alone where nobody knows who wrote it; on one line, of a long one the
/// beginning and its length.
QString notificationText(const NotificationLine& line);

}  // namespace korvel
