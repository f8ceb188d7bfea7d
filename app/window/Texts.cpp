#include "app/window/Texts.h"

#include <QTextDocument>

#include "app/base/CommandLine.h"

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

QString plainTip(const QString& text) {
  if (text.isEmpty()) return {};
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
  return QString(line).replace(QLatin1Char('&'), QStringLiteral("&&"));
}

QString quoted(const QString& word) {
  return QString::fromStdString(quotedWord(word.toStdString()));
}

}  // namespace korvel
