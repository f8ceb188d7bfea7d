#pragma once

#include <QDockWidget>
#include <QPlainTextEdit>
#include <QStringList>

#include "app/window/Snapshot.h"

class QComboBox;
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

  /// The last message was not sent: puts it back into the entry.
  void restoreUnsent();

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
  void closeEvent(QCloseEvent* event) override;

  QComboBox* recipients_;
  ConversationView* conversation_;
  QLineEdit* entry_;
  QToolButton* others_;
  PanelState state_;
  QString lastSent_;
  bool wantsFocus_ = false;
};

/// The panel's icon, as its file in the resources has it; one drawn here where the file is missing.
QIcon panelIcon(const QString& file);

}  // namespace korvel
