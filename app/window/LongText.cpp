#include "app/window/LongText.h"

#include <QPlainTextEdit>
#include <algorithm>

namespace korvel {

namespace {

/// The toolkit's time to break a word over lines grows with the square of its length: 60 000
/// letters take it most of a second.
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

}  // namespace korvel
