#pragma once

#include <QStatusBar>

#include "app/window/EventFeed.h"
#include "app/window/Snapshot.h"

class QLabel;

namespace korvel {

class ElidedLabel;

/// Who and where this station is, what it counted, and what it waits for. Where there is no room
/// for all, the counts give way first, then the network; the tool tip has everything.
class StatusLine : public QStatusBar {
  Q_OBJECT

 public:
  explicit StatusLine(QWidget* parent = nullptr);

  void showNews(const News& news);
  void showPresence(const PresenceState& presence);

  /// The host thread has been at this for so long; with an empty text it is not.
  void showBusy(const QString& what, int seconds);

  /// What it waits for; else what is wrong; else that it is ready.
  [[nodiscard]] QString busyText() const;

  /// What does not work well, in the station's words; empty where all does.
  [[nodiscard]] const QString& trouble() const { return trouble_; }

 private:
  void resizeEvent(QResizeEvent* event) override;
  void changeEvent(QEvent* event) override;
  void fit();
  void showSign();
  void showCounts();

  QLabel* sign_;
  ElidedLabel* busy_;
  ElidedLabel* who_;
  ElidedLabel* network_;
  ElidedLabel* counts_;
  QString plugin_;
  QString waiting_;  ///< for what; empty for nothing
  QString trouble_;
  PresenceState presence_;
  unsigned long sent_ = 0;
  unsigned long received_ = 0;
};

}  // namespace korvel
