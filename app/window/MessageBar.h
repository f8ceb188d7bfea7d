#pragma once

#include <QFrame>
#include <QObject>
#include <QStringList>
#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

#include "app/window/ActionTable.h"
#include "app/window/HostLink.h"
#include "app/window/WindowLayout.h"

class QGridLayout;
class QLabel;
class QToolButton;

namespace korvel {

/// A strip below the lists that tells how an action ended, and why one was refused. Takes no focus;
/// stays until it is closed or another takes its place.
class MessageBar : public QFrame {
  Q_OBJECT

 public:
  enum class Kind { eError, eNote, eChange };

  explicit MessageBar(const QString& name, QWidget* parent = nullptr);

  /// Whether a text gets as many lines as it needs, or one that ends in "…" with the whole in its
  /// tool tip, and its buttons below it.
  enum class Lines { eAll, eOne };
  void setLines(Lines lines);

  void tell(Kind kind, const QString& text);

  /// Offers things to do about it, three at most; none takes the last offer back.
  void offer(const QStringList& actions);

  /// Takes no click for a moment, since what is offered has changed under the hand.
  void holdOff();

  [[nodiscard]] QString text() const { return text_; }
  [[nodiscard]] QToolButton& button(std::size_t which = 0) const { return *buttons_[which]; }

 Q_SIGNALS:
  /// The user chose an offered action; counted from zero.
  void acted(int which);

  /// It tells something from now on, or nothing any more.
  void tells(bool isTelling);

 private:
  void resizeEvent(QResizeEvent* event) override;
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;
  void changeEvent(QEvent* event) override;
  void drawSigns();
  void showText();
  void placeButtons();

  QGridLayout* grid_;
  QWidget* offers_;  ///< holds the buttons
  QLabel* sign_;
  QLabel* label_;
  std::array<QToolButton*, 3> buttons_;
  QToolButton* close_;
  QString text_;
  Kind kind_ = Kind::eNote;
  Lines lines_ = Lines::eAll;
  std::optional<bool> areBeside_;  ///< the buttons and the text
};

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

  /// Why something cannot be done; where it belongs to another, with the offer to ask for it.
  void tellRefusal(const QString& why);

  /// Something was done, and these lines take it back; none where it cannot be.
  void tellUndoably(const QString& text, const QStringList& undoLines);

  /// The answer to an ask is told elsewhere: that it was asked needs no telling any more.
  void dropAskedNote();

  /// Selects a newly made object as soon as its list has it.
  void chooseMade();

  /// Chooses an edit now, or when the list has it.
  void chooseSoon(const QString& cookie);

  /// Takes away the refusal of a room or project that can be entered by now.
  void takeSnapshot(const Snapshot& snapshot);

 Q_SIGNALS:
  /// The user wants to add a few words to the ask for an edit, room or project.
  void wordsWanted(const QString& object, Target target);

 private:
  void tell(const QString& text, const QString& action, const std::function<void()>& act);
  void tellOfMessage(const CommandOutcome& said);
  void settleMessage(const CommandOutcome& outcome);
  void offerHeld(const QString& word);
  void tellAnswer(const CommandOutcome& outcome);
  [[nodiscard]] QString permission(const JsonValue& answer) const;
  [[nodiscard]] QString inWords(const CommandOutcome& outcome) const;
  [[nodiscard]] QString takenUpText(const QString& cookie) const;
  void noteMade(const CommandOutcome& outcome);
  void noteRefusal(const CommandOutcome& outcome);
  void offerAsking(const CommandOutcome& refused);
  void offerAsking(Target target, const QString& word, const QString& holder);
  void nameHolder(const QString& word);
  [[nodiscard]] QString holderOf(const QString& command, const QString& word) const;
  void showAgain(const CommandOutcome& outcome);

  QWidget& window_;
  HostLink& link_;
  const WindowPanes& panes_;
  QString madeEdit_;  ///< cookies of what was just made here, until the lists have it
  QString madeProject_;
  QString asked_;        ///< the note of the last ask
  QString advice_;       ///< on the message that was sent last
  CommandOutcome held_;  ///< the last entry refused since another holds it; without a line for none
  std::vector<std::function<void()>> acts_;  ///< of what is offered, in its order
  Shared<std::vector<ProjectRow>> projects_;
  Shared<std::vector<RoomRow>> rooms_;
  bool tellsOfSending_ = false;
};

}  // namespace korvel
