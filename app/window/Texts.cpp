#include "app/window/Texts.h"

#include <QHelpEvent>
#include <QLibraryInfo>
#include <QLocale>
#include <QPainter>
#include <QPlainTextEdit>
#include <QRegularExpression>
#include <QStringDecoder>
#include <QStyle>
#include <QTextDocument>
#include <QToolTip>
#include <algorithm>
#include <string_view>

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
  return isToday ? clockTime(time.time()) : shownDayAndTime(time);
}

// Of a system's formats the short one has seconds in a few countries only, and the long one has the
// time zone in all.
QString clockTime(const QTime& time) {
  static const QRegularExpression kMinutes(QStringLiteral("(\\W)(mm?)(?!.*s)"));
  const QLocale here;
  const QString format = here.timeFormat(QLocale::ShortFormat);
  return here.toString(time, QString(format).replace(kMinutes, QStringLiteral("\\1\\2\\1ss")));
}

QString clockTimeToMinute(const QTime& time) {
  static const QRegularExpression kSeconds(QStringLiteral("\\Wss?"));
  const QLocale here;
  return here.toString(time, here.timeFormat(QLocale::ShortFormat).remove(kSeconds));
}

QString shownDayAndTime(const QDateTime& time) {
  return QLocale().toString(time.date(), QLocale::ShortFormat) + QLatin1Char(' ') +
         clockTimeToMinute(time.time());
}

namespace {

/// A text with a number, and the same for one thing.
struct Plural {
  std::string_view many;
  const char* one;
};
constexpr Plural kSingulars[] = {
    {"Delete these %Ln for everybody in the project? They go to the project's trash.",
     "Delete this for everybody in the project? It goes to the project's trash."},
    {"Deleted %Ln objects.", "Deleted one object."},
    {"%Ln edits are imported.", "One edit is imported."},
    {"%Ln edits have changes that are not saved. Discarded changes are lost.",
     "One edit has changes that are not saved. Discarded changes are lost."},
    {"Unsaved changes of %1 in %Ln edits were left when the station ended.",
     "Unsaved changes of %1 in one edit were left when the station ended."},
    {"%n more", nullptr},
    {"%1 and %n more", nullptr},
    {"%n open", nullptr},
    {"%1, %Ln of them unsaved", nullptr},
    {"%1 (%n unread)", nullptr},
    {"%Ln unread, the latest:  %1", nullptr},
    {"%Ln new or changed by others", nullptr},
    {"%Ln here", nullptr},
    {"%Ln gone without goodbye", nullptr},
    {"%Ln more marked active", nullptr},
    {"%Ln users are active.", "One user is active."},
    {"%Ln users active", "1 user active"},
    {"%Ln objects", "1 object"},
    {"%n asks: %1", "%n ask: %1"},
};

}  // namespace

QString EnglishPlurals::translate(const char*, const char* sourceText, const char*, int n) const {
  if (n != 1) return {};
  const auto found = std::ranges::find(kSingulars, std::string_view(sourceText), &Plural::many);
  return found == std::end(kSingulars) ? QString() : QString::fromUtf8(found->one);
}

WindowLanguage::WindowLanguage() { QCoreApplication::installTranslator(&plurals_); }

bool WindowLanguage::load(const QString& folder) {
  if (!own_.isEmpty()) return true;
  for (const QString& language : QLocale().uiLanguages()) {
    if (QLocale(language).language() == QLocale::English) return false;
    if (!own_.load(QStringLiteral("window_%1").arg(QString(language).replace('-', '_')), folder)) {
      continue;
    }
    QCoreApplication::installTranslator(&own_);
    // Asked after the window's own, and before English.
    const QString texts = QLibraryInfo::path(QLibraryInfo::TranslationsPath);
    if (toolkits_.load(QLocale(language), QStringLiteral("qtbase"), QStringLiteral("_"), texts)) {
      QCoreApplication::installTranslator(&toolkits_);
    }
    return true;
  }
  return false;
}

QString listed(const QStringList& things) {
  return things.join(WindowText::tr(", ", "between things that are listed"));
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
