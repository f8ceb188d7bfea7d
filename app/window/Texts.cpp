#include "app/window/Texts.h"

#include <QHelpEvent>
#include <QPainter>
#include <QPlainTextEdit>
#include <QStringDecoder>
#include <QStyle>
#include <QTextDocument>
#include <QToolTip>
#include <algorithm>

#include "app/base/Options.h"

namespace korvel {

namespace {

constexpr qsizetype kLongestTip = 4000;
constexpr qsizetype kLongestInMenu = 80;
constexpr qsizetype kLongestTitle = 120;

bool isControl(QChar letter) {
  return letter.category() == QChar::Other_Control || letter.category() == QChar::Separator_Line ||
         letter.category() == QChar::Separator_Paragraph;
}

}  // namespace

QString asTyped(const QString& line) {
  constexpr qsizetype kLongestLetter = 4;  // bytes
  const bool isWidened = std::ranges::all_of(line, [](QChar each) { return each.unicode() < 256; });
  if (!isWidened) return line;
  const QByteArray bytes = line.toLatin1();
  for (qsizetype cut = 0; cut < std::min(kLongestLetter, bytes.size() + 1); ++cut) {
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder(bytes.chopped(cut));
    if (!decoder.hasError()) return cut == 0 ? text : text + QChar(QChar::ReplacementCharacter);
  }
  return line;
}

QString plainTip(const QString& text) {
  if (text.isEmpty()) return {};
  // Qt reads a tool tip that looks like HTML as such: a name must not become markup.
  return Qt::convertFromPlainText(text.left(kLongestTip), Qt::WhiteSpaceNormal);
}

QString oneLine(const QString& text) {
  QString line = text;
  for (QChar& letter : line) {
    if (isControl(letter)) letter = QLatin1Char(' ');
  }
  return line;
}

QString plainTitle(const QString& text) {
  // Qt takes "[*]" in a window title for the mark of unsaved changes.
  return oneLine(text.left(kLongestTitle)).replace(QStringLiteral("[*]"), QStringLiteral("[*][*]"));
}

QString shownTime(const QDateTime& time) {
  if (!time.isValid()) return QStringLiteral("-");
  const bool isToday = time.date() == QDate::currentDate();
  return time.toString(isToday ? QStringLiteral("HH:mm:ss") : QStringLiteral("yyyy-MM-dd HH:mm"));
}

QString menuText(const QString& text) {
  const QString line = oneLine(
      text.size() > kLongestInMenu ? text.left(kLongestInMenu) + QStringLiteral("…") : text);
  // A single & would mark a mnemonic.
  return QString(line).replace(QLatin1Char('&'), QStringLiteral("&&"));
}

QString quoted(const QString& word) {
  return QString::fromStdString(quotedWord(word.toStdString()));
}

namespace {

/// Qt's time to break a word over lines grows with the square of its length: 60 000 letters take it
/// most of a second.
constexpr int kLongestWord = 2000;

bool hasEndlessWord(const QString& text) {
  int length = 0;
  return std::ranges::any_of(text, [&length](QChar letter) {
    length = letter.isSpace() ? 0 : length + 1;
    return length > kLongestWord;
  });
}

}  // namespace

void wrapFor(QPlainTextEdit& view, const QString& text) {
  if (hasEndlessWord(text)) view.setWordWrapMode(QTextOption::WrapAnywhere);
}

void showLongText(QPlainTextEdit& view, const QString& text) {
  view.clear();
  view.setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
  wrapFor(view, text);
  view.setPlainText(text);
}

namespace {

constexpr int kLeastLabelWidth = 24;

}  // namespace

ElidedLabel::ElidedLabel(QWidget* parent) : QLabel(parent) { setTextFormat(Qt::PlainText); }

bool ElidedLabel::isElided() const {
  return fontMetrics().horizontalAdvance(text()) > contentsRect().width();
}

QSize ElidedLabel::minimumSizeHint() const {
  return {kLeastLabelWidth, QLabel::minimumSizeHint().height()};
}

bool ElidedLabel::event(QEvent* event) {
  if (event->type() == QEvent::ToolTip && toolTip().isEmpty() && isElided()) {
    QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(), plainTip(text()), this);
    return true;
  }
  return QLabel::event(event);
}

void ElidedLabel::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  const QRect room = contentsRect();
  const QString shown = fontMetrics().elidedText(text(), Qt::ElideRight, room.width());
  style()->drawItemText(&painter, room, static_cast<int>(alignment() | Qt::TextSingleLine),
                        palette(), isEnabled(), shown, foregroundRole());
}

}  // namespace korvel
