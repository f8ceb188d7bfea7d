#include "app/window/ConversationView.h"

#include <QScrollBar>
#include <algorithm>

#include "app/window/LongText.h"

namespace korvel {

ConversationView::ConversationView(QWidget* parent) : QPlainTextEdit(parent) {
  setReadOnly(true);
  setTabChangesFocus(true);
  setPlaceholderText(QStringLiteral("Nothing written yet."));
  setAccessibleName(QStringLiteral("Conversation"));
  setMinimumHeight(40);
}

void ConversationView::setLines(const QStringList& lines) {
  const bool isLonger =
      lines.size() >= lines_.size() && std::equal(lines_.begin(), lines_.end(), lines.begin());
  const bool isAtEnd = verticalScrollBar()->value() >= verticalScrollBar()->maximum();
  if (isLonger) {
    for (qsizetype i = lines_.size(); i < lines.size(); ++i) {
      wrapFor(*this, lines[i]);
      appendPlainText(lines[i]);
    }
  } else {
    showLongText(*this, lines.join(QLatin1Char('\n')));
  }
  lines_ = lines;
  if (isAtEnd) verticalScrollBar()->setValue(verticalScrollBar()->maximum());
}

}  // namespace korvel
