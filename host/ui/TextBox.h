#pragma once

#include <cstddef>
#include <map>

#include "host/ui/Glob.h"

/// A box that one line of text is typed into.
class KV_HOST_API TextBox : public Glob {
 public:
  /// What a box can tell a handler about.
  enum eCallback : int {
    eTextChanged = 1,    ///< after each change by the user's hands
    eEscapePressed = 2,  ///< the escape key
    eReturnPressed = 3,  ///< the return key; the text stays as it is
  };

  TextBox();
  ~TextBox() override;

  [[nodiscard]] const LightweightString<wchar_t>& text() const { return text_; }

  /// Replaces the text; the caret goes to its end. Tells no handler.
  void setText(const LightweightString<wchar_t>& text);

  /// The text that is shown in place of an empty one. It is no part of text().
  void setPrompt(const LightweightString<wchar_t>& prompt) { prompt_ = prompt; }
  [[nodiscard]] const LightweightString<wchar_t>& prompt() const { return prompt_; }

  /// The number of characters before the caret.
  [[nodiscard]] std::size_t caret() const { return caret_; }

  /// Sends `text` to `handler`, on behalf of this box, whenever `callback` (an eCallback) happens;
  /// in place of what was asked for before. The handler must outlive the box. Other numbers are
  /// never sent.
  void requestCallback(const LightweightString<char>& text, Glob* handler, int callback);

  /// Whether this text was asked for to be sent.
  [[nodiscard]] bool sendsCallback(const LightweightString<char>& text) const;

  /// Text input goes in at the caret; a line end in it becomes a blank, since the box has one line.
  bool handleEvent(const Event& event) override;
  [[nodiscard]] bool takesFocus() const override { return true; }

 private:
  struct Request {
    LightweightString<char> text;
    Glob* handler = nullptr;
  };

  bool handleKey(Event::eKey key);
  void insert(const LightweightString<wchar_t>& typed);
  void erase(std::size_t from);
  void tell(eCallback callback);

  LightweightString<wchar_t> text_;
  LightweightString<wchar_t> prompt_;
  std::size_t caret_ = 0;
  std::map<int, Request> requests_;
};
