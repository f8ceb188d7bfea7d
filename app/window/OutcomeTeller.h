#pragma once

#include <QObject>
#include <functional>

#include "app/window/HostLink.h"
#include "app/window/WindowLayout.h"

namespace korvel {

/// Tells how commands ended: why one was refused, what was answered, what was made, what can be
/// undone.
class OutcomeTeller : public QObject {
  Q_OBJECT

 public:
  /// All must outlive it.
  OutcomeTeller(QWidget& window, HostLink& link, const WindowPanes& panes);

  void take(const CommandOutcome& outcome);

  /// What could not be sent, or not whole, stays told: the command itself went well.
  void tellOfSending(const QString& problem);

  /// Something was done, and these lines take it back; none where it cannot be.
  void tellUndoably(const QString& text, const QStringList& undoLines);

  /// Chooses what was made here as soon as its list has it.
  void chooseMade();

 private:
  void tell(const QString& text, const QString& action, const std::function<void()>& act);
  void tellOfMessage(const CommandOutcome& said);
  void tellAnswer(const CommandOutcome& outcome);
  void noteMade(const CommandOutcome& outcome);
  void showAgain(const CommandOutcome& outcome);

  QWidget& window_;
  HostLink& link_;
  const WindowPanes& panes_;
  QString madeEdit_;  ///< cookies of what was just made here, until the lists have it
  QString madeProject_;
  QString advice_;  ///< on the message that was sent last
  std::function<void()> act_;
  bool tellsOfSending_ = false;
};

}  // namespace korvel
