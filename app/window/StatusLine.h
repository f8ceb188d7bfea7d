#pragma once

#include <QStatusBar>

#include "app/window/EventFeed.h"

class QLabel;

/// Who and where this station is, what it counted, and what it waits for.
class StatusLine : public QStatusBar {
  Q_OBJECT

 public:
  explicit StatusLine(QWidget* parent = nullptr);

  void showNews(const News& news);
  void showActiveUsers(int count);

  /// The host thread has been at this for so long; with an empty text it is not.
  void showBusy(const QString& what, int seconds);
  [[nodiscard]] QString busyText() const;

 private:
  QLabel* sign_;
  QLabel* busy_;
  QLabel* who_;
  QLabel* network_;
  QLabel* counts_;
  int activeUsers_ = 0;
  unsigned long sent_ = 0;
  unsigned long received_ = 0;
};
