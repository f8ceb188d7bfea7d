#pragma once

#include <QFrame>
#include <QWidget>

#include "app/window/EventFeed.h"

class QLabel;
class QListWidget;
class QPlainTextEdit;
class QToolButton;

/// All notifications with their times, the latest first, and the whole text of the chosen one.
class NotificationsPane : public QWidget {
  Q_OBJECT

 public:
  static constexpr int kMost = 1000;

  explicit NotificationsPane(QWidget* parent = nullptr);

  void add(const std::vector<NotificationLine>& lines);
  [[nodiscard]] QListWidget& list() const { return *list_; }

 private:
  void showChosen();

  QListWidget* list_;
  QLabel* hint_;
  QPlainTextEdit* whole_;
};
