#pragma once

#include <QPlainTextEdit>
#include <QStringList>

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

}  // namespace korvel
