#include "host/ui/TextBox.h"

#include <algorithm>

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
