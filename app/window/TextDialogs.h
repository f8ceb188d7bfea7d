#pragma once

#include <QString>
#include <functional>

class QWidget;

namespace korvel {

// Dialogs of text that do not stand in the way of the window, and are gone once they are closed.

/// Shows a table or list of the station, in letters of one width.
void showTable(QWidget& parent, const QString& title, const QString& text);

/// Shows a text of any length with its lines wrapped.
void showWholeText(QWidget& parent, const QString& title, const QString& text);

/// Asks for a command line; `take` is told it unless it is empty.
void askLine(QWidget& parent, const std::function<void(const QString& line)>& take);

}  // namespace korvel
