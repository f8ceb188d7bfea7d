#pragma once

#include <QDateTime>
#include <QString>
#include <string>

namespace korvel {

/// A text of the station as the window shows it: UTF-8; bytes that are none become the replacement
/// character.
inline QString readableText(const std::string& utf8) { return QString::fromStdString(utf8); }

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

/// A time as people say it today: "12:04" of today, with the day of any other; "-" where none is
/// known.
QString shownTime(const QDateTime& time);

/// A word as it must be typed for a command line to hold it whole.
QString quoted(const QString& word);

}  // namespace korvel
