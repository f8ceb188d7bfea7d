#include "host/ui/TextBox.h"

#include <algorithm>
#include <cmath>

#include "host/ui/UifStd.h"
#include "station/base/Events.h"
#include "station/base/Strings.h"
#include "station/ui/PanelDriver.h"

namespace korvel {

namespace {

bool isLineEnd(wchar_t letter) { return letter == L'\r' || letter == L'\n'; }

/// What one line can hold of a text: each line end, CR LF included, becomes one blank.
std::wstring onOneLine(std::wstring_view text) {
  std::wstring line;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == L'\r' && i + 1 < text.size() && text[i + 1] == L'\n') continue;
    line += isLineEnd(text[i]) ? L' ' : text[i];
  }
  return line;
}

}  // namespace

}  // namespace korvel

using namespace korvel;

TextBox::TextBox() = default;
TextBox::~TextBox() = default;

void TextBox::setText(const LightweightString<wchar_t>& text) {
  text_ = text;
  caret_ = text.size();
}

void TextBox::requestCallback(const LightweightString<char>& text, Glob* handler, int callback) {
  requests_[callback] = {text, handler};
}

bool TextBox::sendsCallback(const LightweightString<char>& text) const {
  return std::ranges::any_of(requests_,
                             [&text](const auto& each) { return each.second.text == text; });
}

void TextBox::tell(eCallback callback) {
  const auto request = requests_.find(callback);
  if (request == requests_.end()) return;
  // A copy: the handler may ask for another callback, or destroy this box.
  const Request told = request->second;
  Glob::sendMsg(told.handler, told.text, this);
}

bool TextBox::handleEvent(const Event& event) {
  switch (event.type) {
    case Event::eTextInput:
      insert(event.text);
      return true;
    case Event::eKeyPress:
      return handleKey(event.key);
    case Event::eMousePress:
      return event.button == Event::eLeftButton;
    default:
      return false;
  }
}

bool TextBox::handleKey(Event::eKey key) {
  switch (key) {
    case Event::eReturn:
      tell(eReturnPressed);
      return true;
    case Event::eEscape:
      tell(eEscapePressed);
      return true;
    case Event::eBackspace:
      if (caret_ > 0) erase(--caret_);
      return true;
    case Event::eDelete:
      erase(caret_);
      return true;
    case Event::eLeft:
      caret_ -= caret_ > 0 ? 1 : 0;
      break;
    case Event::eRight:
      caret_ = std::min(caret_ + 1, text_.size());
      break;
    case Event::eHome:
      caret_ = 0;
      break;
    case Event::eEnd:
      caret_ = text_.size();
      break;
    default:
      return false;
  }
  draw();
  return true;
}

void TextBox::insert(const LightweightString<wchar_t>& typed) {
  const std::wstring line = onOneLine(typed.view());
  std::wstring whole = text_.str();
  whole.insert(caret_, line);
  text_ = LightweightString<wchar_t>(std::wstring_view(whole));
  caret_ += line.size();
  draw();
  tell(eTextChanged);
}

void TextBox::erase(std::size_t from) {
  if (from >= text_.size()) return;
  std::wstring whole = text_.str();
  whole.erase(from, 1);
  text_ = LightweightString<wchar_t>(std::wstring_view(whole));
  draw();
  tell(eTextChanged);
}

namespace korvel {

namespace {

/// A title's width, from the mean width of a letter.
double widthOf(const LightweightString<wchar_t>& title) {
  constexpr double kLetterToFontSize = 0.6;
  if (title.empty()) return 0;
  const double letters = static_cast<double>(title.size()) * UifStd::getFont().size;
  return letters * kLetterToFontSize + UifStd::getWidgetGap();
}

}  // namespace

}  // namespace korvel

TitleTextBox::TitleTextBox(const LightweightString<wchar_t>& title, double width, double height)
    : title_(title), textBox_(addChild(std::make_unique<TextBox>(), UserTopRight(0, 0))) {
  TitleTextBox::resize(width, height);
}

TitleTextBox::~TitleTextBox() = default;

void TitleTextBox::resize(double width, double height) {
  textBox_->resize(width - widthOf(title_), height);
  Glob::resize(width, height);
}

namespace korvel {

namespace {

bool isInMessagePanel(const Glob* widget) {
  for (; widget; widget = widget->parent()) {
    if (widget->idstring() == kMessagePanelId) return true;
  }
  return false;
}

}  // namespace

}  // namespace korvel

MultiLineTextBox::MultiLineTextBox() = default;
MultiLineTextBox::~MultiLineTextBox() = default;

ScrollableTextBoxBase::ScrollableTextBoxBase(std::unique_ptr<MultiLineTextBox> content,
                                             double width, double height)
    : content_(addChild(std::move(content))) {
  ScrollableTextBoxBase::resize(width, height);
}

ScrollableTextBoxBase::~ScrollableTextBoxBase() = default;

void ScrollableTextBoxBase::setStrings(const Lines& lines) {
  const bool showsEnd = first_ == lastFirstLine();
  // Messages of others add lines without end.
  const bool isLong = lines.size() > kMostLines;
  content_->setLines(isLong ? Lines(lines.end() - kMostLines, lines.end()) : lines);
  first_ = showsEnd ? lastFirstLine() : std::min(first_, lastFirstLine());
  if (!isInMessagePanel(this)) return;
  noteTextShown();
  events().panel(utf8Lines(*this));
}

std::size_t ScrollableTextBoxBase::visibleLines() const {
  return static_cast<std::size_t>(size().height / UifStd::getLineHeight());
}

std::size_t ScrollableTextBoxBase::lastFirstLine() const {
  const std::size_t all = getStrings().size();
  return all > visibleLines() ? all - visibleLines() : 0;
}

void ScrollableTextBoxBase::scroll(double lines) {
  const double last = static_cast<double>(lastFirstLine());
  const double wish = static_cast<double>(first_) + std::trunc(lines);
  first_ = static_cast<std::size_t>(std::clamp(wish, 0.0, last));
  draw();
}

void ScrollableTextBoxBase::resize(double width, double height) {
  const bool showsEnd = first_ == lastFirstLine();
  content_->resize(width, height);
  Glob::resize(width, height);
  first_ = showsEnd ? lastFirstLine() : std::min(first_, lastFirstLine());
}

bool ScrollableTextBoxBase::handleEvent(const Event& event) {
  if (event.type == Event::eMouseWheel) {
    scroll(event.wheel);
    return true;
  }
  if (event.type != Event::eKeyPress) return false;
  switch (event.key) {
    case Event::eUp:
      scroll(-1);
      return true;
    case Event::eDown:
      scroll(1);
      return true;
    case Event::eHome:
      scroll(-static_cast<double>(first_));
      return true;
    case Event::eEnd:
      scroll(static_cast<double>(getStrings().size()));
      return true;
    default:
      return false;
  }
}
