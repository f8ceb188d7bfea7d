#pragma once

#include <QDockWidget>
#include <QPlainTextEdit>
#include <QStringList>
#include <QTimer>
#include <QWidget>
#include <deque>
#include <vector>

#include "app/window/EventFeed.h"
#include "app/window/Snapshot.h"

class QComboBox;
class QLabel;
class QLineEdit;
class QToolButton;

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

/// Shows the message panel, which lives on the host thread, and hands over what the user does with
/// it. It is there while the panel is open.
class PanelDock : public QDockWidget {
  Q_OBJECT

 public:
  explicit PanelDock(QWidget* parent = nullptr);

  void show(const PanelState& panel);

  /// The next time that the panel is seen open, its entry takes the keyboard: the user opened it.
  void focusWhenOpen() { wantsFocus_ = true; }

  /// What became of a message that was sent from here; one that was refused comes back into the
  /// entry, before what was typed since.
  void settle(const QString& words, bool isSent);

  /// Says how many notifications nobody has looked at: what others write is there, not here.
  void showUnread(int count);

  [[nodiscard]] QComboBox& recipients() const { return *recipients_; }
  [[nodiscard]] QLineEdit& entry() const { return *entry_; }
  [[nodiscard]] ConversationView& conversation() const { return *conversation_; }
  [[nodiscard]] const PanelState& state() const { return state_; }

 Q_SIGNALS:
  void recipientChosen(const QString& recipient);
  void sent(const QString& recipient, const QString& text);
  void closeWanted();
  void notificationsWanted();

 private:
  void send();
  void showRecipients(const PanelState& panel);
  void fitOthers();
  void advise(const QString& words);
  void closeEvent(QCloseEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

  QComboBox* recipients_;
  ConversationView* conversation_;
  QLineEdit* entry_;
  QToolButton* others_;
  QLabel* advice_;  ///< why others would not see what is being written as it is
  PanelState state_;
  QStringList unsettled_;  ///< what was sent, until it is known what became of it
  QString replies_;        ///< what the button of others' words says
  QString shortReplies_;   ///< where there is little room
  bool wantsFocus_ = false;
};

/// All that was said: own and others' words, asks and answers, the latest last; with everybody or
/// with one colleague, and searched by words. What others said counts as unread until somebody
/// answers it, or looks: brings the pane to the front, moves the mouse over it or presses a key in
/// it. What comes while the pane has the mouse or the keyboard is looked at already.
class ConversationPane : public QWidget {
  Q_OBJECT

 public:
  /// Of more the oldest are forgotten, and of longer texts only so many letters are shown.
  static constexpr int kMost = 2000;
  static constexpr qsizetype kLongestSaid = 4000;

  explicit ConversationPane(QWidget* parent = nullptr);

  /// What was said before this start. What add() brought until now comes after it. What others said
  /// after `seenUntil` was not looked at then; where that is invalid, all was.
  void load(const std::vector<SaidLine>& lines, const QDateTime& seenUntil = {});
  void add(const std::vector<SaidLine>& lines);

  /// How much of others' came since somebody looked.
  [[nodiscard]] int unread() const { return static_cast<int>(unread_.size()); }
  void takeLook();

  [[nodiscard]] QComboBox& colleagues() const { return *colleagues_; }
  [[nodiscard]] QLineEdit& search() const { return *search_; }
  [[nodiscard]] QPlainTextEdit& view() const { return *view_; }

 Q_SIGNALS:
  void unreadChanged(int count);

  /// Somebody looked: all that was said until then is read.
  void seen(const QDateTime& until);

  /// The user wants to write to this colleague, to nobody yet where it is empty.
  void writeWanted(const QString& user);

 private:
  void build();
  void fill();
  void append(const SaidLine& line);
  void keep(const SaidLine& line);
  [[nodiscard]] QString answeree() const;
  [[nodiscard]] bool isShown(const SaidLine& line) const;
  [[nodiscard]] bool isLookedAt() const;
  void setUnread(const QStringList& unread);
  void tellSeen();
  void showEvent(QShowEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;
  void changeEvent(QEvent* event) override;

  QComboBox* colleagues_;
  QLineEdit* search_;
  QPlainTextEdit* view_;
  std::deque<SaidLine> lines_;
  QTimer searching_;  ///< while somebody types, a long conversation is not searched at each letter
  QStringList unread_;  ///< of each line that nobody looked at, its ask; empty of words
  QDateTime seenUntil_;
};

/// The panel's icon, as its file in the resources has it; one drawn here where the file is missing.
QIcon panelIcon(const QString& file);

}  // namespace korvel
