#pragma once

#include <QDialog>
#include <QObject>
#include <QPointer>
#include <functional>
#include <set>
#include <vector>

#include "app/window/EventFeed.h"
#include "app/window/HostLink.h"
#include "app/window/Snapshot.h"

class QLabel;
class QLineEdit;
class QPushButton;
class QTreeWidget;
class QTreeWidgetItem;

namespace korvel {

class MessageBar;

/// All asks that wait for an answer, others' and one's own: gives, keeps or takes back the chosen
/// one, with a few words if some are typed, which stay where that fails. Also what the user is to
/// be told of when it is free, and ends that. What is chosen goes by the ask, whatever comes or
/// goes beside it.
class AskDialog : public QDialog {
  Q_OBJECT

 public:
  explicit AskDialog(QWidget* parent);

  void take(const std::vector<AskRow>& asks);

  /// The answer with these words was taken: they are no longer needed.
  void noteAnswered(const QString& words);

  [[nodiscard]] QTreeWidget& list() const { return *list_; }
  [[nodiscard]] QLineEdit& words() const { return *words_; }

 Q_SIGNALS:
  /// The line of the console that answers the ask of this number, and the words as they were typed.
  void answered(long number, const QString& line, const QString& words);

 private:
  void build();
  void answer(const QString& how);
  void enable();
  [[nodiscard]] const AskRow* chosen() const;

  QTreeWidget* list_;
  QLabel* gone_;  ///< says that the chosen ask waits no more
  QLineEdit* words_;
  long answered_ = -1;  ///< the ask that was answered last
  QPushButton* give_;
  QPushButton* keep_;
  std::vector<AskRow> rows_;
};

/// Tells of asks that wait for this user's answer, and of answers that came, in a bar each; several
/// in one line.
class AskTeller : public QObject {
  Q_OBJECT

 public:
  /// Is told whether a line that was run succeeded.
  using Ended = std::function<void(bool succeeded)>;

  /// Runs a line of the console, as the window's actions do.
  using Runner = std::function<void(const QString& line, const Ended& then)>;

  /// All must outlive it.
  AskTeller(QWidget& window, MessageBar& asks, MessageBar& answers, Runner run);

  void takeSnapshot(const Snapshot& snapshot);
  void takeAnswers(const std::vector<AskAnswer>& answers);

  /// Lists all that wait.
  void showAll();

  /// How many wait for this user's answer.
  [[nodiscard]] std::size_t waiting() const;

 Q_SIGNALS:
  /// Something was given or is free now, and the user wants to have it open.
  void openWanted(const AskAnswer& answer);

 private:
  void showAsks();
  void act(int which);
  void answerOnce(long number, const QString& line, const QString& words);
  void showAnswers();
  bool forgetAnswers(const QString& kind, const QString& name);
  void actOnAnswer(int which);
  [[nodiscard]] std::vector<AskRow> others() const;

  QWidget& window_;
  MessageBar& asks_;
  MessageBar& answers_;
  Runner run_;
  Shared<std::vector<AskRow>> rows_;
  std::set<long> answering_;     ///< numbers of asks that were answered and are still listed
  std::vector<AskAnswer> told_;  ///< answers that stand in their bar
  QPointer<AskDialog> dialog_;
  QString unsent_;  ///< words that were typed into the dialog before it was closed
};

/// The line that answers an ask, "give" or "no", with words or none.
QString answerLine(const AskRow& ask, const QString& how, const QString& words);

}  // namespace korvel
