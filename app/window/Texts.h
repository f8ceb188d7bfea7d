#pragma once

#include <QString>
#include <string>

/// A text of the station as the window shows it: UTF-8; bytes that are none become the replacement
/// character.
inline QString readableText(const std::string& utf8) { return QString::fromStdString(utf8); }

/// A word as it must be typed for a command line to hold it whole.
QString quoted(const QString& word);
