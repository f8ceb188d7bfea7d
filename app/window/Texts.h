#pragma once

#include <QCoreApplication>
#include <QDateTime>
#include <QLabel>
#include <QString>
#include <QTranslator>
#include <string>

class QPlainTextEdit;

namespace korvel {

/// Texts that belong to no class of the toolkit's. Every text of the window's own goes through
/// tr(): that of the class where it has Q_OBJECT, in free functions that of the class that they
/// serve, elsewhere this one's. A text is a whole sentence or label with places for what differs;
/// one with a number is written in the plural, with "%n" or "%Ln". What comes from the station
/// (refusals, steps of the history, what it waits for) and what is typed at the console stays as it
/// is: the console, the log and other stations say it in the same words.
class WindowText {
  Q_DECLARE_TR_FUNCTIONS(WindowText)
};

/// English in the singular, for texts that are written in the plural: "1 edit" for "%Ln edits".
/// The toolkit has no other forms where no translation is loaded.
class EnglishPlurals : public QTranslator {
 public:
  using QTranslator::QTranslator;

  [[nodiscard]] bool isEmpty() const override { return false; }

  /// The text for one thing, with its places for numbers; null for more, and for other texts.
  [[nodiscard]] QString translate(const char* context, const char* sourceText,
                                  const char* disambiguation, int n) const override;
};

/// The language of the window: that of the user where there are texts in it, else English. Lives on
/// the window's thread, not longer than the application.
class WindowLanguage {
 public:
  WindowLanguage();

  /// Takes the user's language where the folder has it, "window_de.qm", and the toolkit's own texts
  /// in it. False where it has none, or where the user likes English more.
  bool load(const QString& folder);

 private:
  EnglishPlurals plurals_;
  QTranslator own_;
  QTranslator toolkits_;
};

/// Things in one sentence or line, one after the other: "Quay, Pier".
QString listed(const QStringList& things);

/// A text of the station as the window shows it: UTF-8; bytes that are none become the replacement
/// character.
inline QString readableText(const std::string& utf8) { return QString::fromStdString(utf8); }

/// A line of the message panel as it was typed. The panel widens the bytes of a text one by one, so
/// that each letter beyond ASCII became several. A letter cut at the end becomes the replacement
/// character.
QString asTyped(const QString& line);

/// A tool tip that shows a text as it is: names and messages of others never become markup.
QString plainTip(const QString& text);

/// A text as a window's title shows it: on one line, not endless, and without the toolkit's places
/// for marks.
QString plainTitle(const QString& text);

/// A text as a menu shows it: on one line, not endless, and without places for letters to press.
QString menuText(const QString& text);

/// A text as one line of a list shows it: blanks where it has line ends or other control
/// characters.
QString oneLine(const QString& text);

/// A time as the system writes it: of today "12:04:11", with the day of any other; "-" where none
/// is known.
QString shownTime(const QDateTime& time);

/// A time of the day as the system writes it, to the second and to the minute.
QString clockTime(const QTime& time);
QString clockTimeToMinute(const QTime& time);

/// A day in short, and a time to the minute, as the system writes them.
QString shownDayAndTime(const QDateTime& time);

/// A word as it must be typed for a command line to hold it whole.
QString quoted(const QString& word);

/// Has a view wrap its lines so that showing `text` takes no longer than it must: at the ends of
/// words, or anywhere as soon as a word is too long for that.
void wrapFor(QPlainTextEdit& view, const QString& text);

/// Shows a text of any length.
void showLongText(QPlainTextEdit& view, const QString& text);

/// One line of plain text that ends in "…" where it does not fit; its tool tip is then the whole of
/// it, unless it has been given another.
class ElidedLabel : public QLabel {
 public:
  explicit ElidedLabel(QWidget* parent = nullptr);

  [[nodiscard]] bool isElided() const;
  [[nodiscard]] QSize minimumSizeHint() const override;

 private:
  bool event(QEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
};

}  // namespace korvel
