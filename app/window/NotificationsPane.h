#pragma once

#include <QPlainTextEdit>
#include <QStringList>
#include <QWidget>

#include "app/window/EventFeed.h"

class QLabel;
class QListWidget;
class QListWidgetItem;

namespace korvel {

/// Lines of a conversation, of which only new ones are laid out. Stays at its end unless the reader
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
/// the chosen one. What came while nobody saw the list is bold until the list is left again.
class NotificationsPane : public QWidget {
  Q_OBJECT

 public:
  static constexpr int kMost = 1000;

  explicit NotificationsPane(QWidget* parent = nullptr);

  void add(const std::vector<NotificationLine>& lines);

  /// How many came since the list was last on the screen.
  [[nodiscard]] int unread() const { return unread_; }

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
  void hideEvent(QHideEvent* event) override;

  QListWidget* list_;
  QLabel* hint_;
  QPlainTextEdit* whole_;
  int unread_ = 0;
};

/// "ANNA: text", or the text alone where nobody knows who wrote it; on one line, of a long one the
/// beginning and its length.
QString notificationText(const NotificationLine& line);

}  // namespace korvel
