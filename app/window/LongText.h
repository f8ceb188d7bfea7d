#pragma once

class QPlainTextEdit;
class QString;

namespace korvel {

/// Has a view wrap its lines so that showing `text` takes no longer than it must: at the ends of
/// words, or anywhere as soon as a word is too long for that.
void wrapFor(QPlainTextEdit& view, const QString& text);

/// Shows a text of any length.
void showLongText(QPlainTextEdit& view, const QString& text);

}  // namespace korvel
