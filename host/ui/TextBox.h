#pragma once

// Text on panels: a box to type one line into, the same with a title, and a box that shows many
// lines.
//
// What is typed reaches a panel as texts, not as calls: the panel asks for a text of its own
// choice to be sent when return is pressed, and reads the box when that text arrives.
//
//     requestCallback("returnPressed", panel, eReturnPressed)
//     user presses return -> sendMsg(panel, "returnPressed", box) -> panel.handleMessageEvent(..)

#include <cstddef>
#include <map>

#include "host/ui/Glob.h"
#include "host/ui/Palette.h"

/// A box that one line of text is typed into.
class KV_HOST_API TextBox : public Glob {
 public:
  /// What a box can tell a handler about.
  enum eCallback : int {
    eTextChanged = 1,    ///< after each change by the user's hands
    eEscapePressed = 2,  ///< the escape key
    eReturnPressed = 3,  ///< the return key; the text stays as it is
  };

  /// An empty box without a prompt.
  TextBox();
  ~TextBox() override;

  /// What was typed or set so far, without a line end.
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

/// A one-line entry box with a title before it, which may be empty.
class KV_HOST_API TitleTextBox : public Glob {
 public:
  /// A box of this size in all; the title takes the room that its letters need.
  TitleTextBox(const LightweightString<wchar_t>& title, double width, double height);
  ~TitleTextBox() override;

  /// The words before the box.
  [[nodiscard]] const LightweightString<wchar_t>& title() const { return title_; }

  /// The box itself, which fills what the title leaves.
  [[nodiscard]] TextBox& textBox() const { return *textBox_; }

  /// What is in the box, and putting something else there. No handler is told of setText().
  [[nodiscard]] LightweightString<wchar_t> getText() const { return textBox_->text(); }
  void setText(const LightweightString<wchar_t>& text) { textBox_->setText(text); }

  /// TextBox::requestCallback of the box.
  void requestCallback(const LightweightString<char>& text, Glob* handler, int callback) {
    textBox_->requestCallback(text, handler, callback);
  }

  void resize(double width, double height) override;

 private:
  LightweightString<wchar_t> title_;
  TextBox* textBox_;
};

/// Lines of text that cannot be changed by the user's hands.
class KV_HOST_API MultiLineTextBox : public Glob {
 public:
  using Lines = Vector<LightweightString<wchar_t>>;

  /// A box without lines.
  MultiLineTextBox();
  ~MultiLineTextBox() override;

  /// Replaces all lines. Each element is one line, whatever characters it holds.
  void setLines(const Lines& lines) { lines_ = lines; }
  [[nodiscard]] const Lines& lines() const { return lines_; }

 private:
  Lines lines_;
};

/// A box with a scroll bar that shows a part of its lines.
///
/// New lines come into sight when the end was in sight. A user who has scrolled back stays at the
/// same lines.
class KV_HOST_API ScrollableTextBoxBase : public Glob {
 public:
  using Lines = MultiLineTextBox::Lines;

  ~ScrollableTextBoxBase() override;

  /// All lines, the first on top. Each element is one line whatever characters it holds.
  [[nodiscard]] const Lines& getStrings() const { return content_->lines(); }

  /// More lines than anybody scrolls back.
  static constexpr std::size_t kMostLines = 1000;

  /// Replaces all lines; of more than kMostLines the last are kept.
  void setStrings(const Lines& lines);

  /// The colours of the lines and of what is behind them.
  void setPalette(const Palette& palette) { palette_ = palette; }
  [[nodiscard]] const Palette& palette() const { return palette_; }

  /// The number of the line on top, and how many have room.
  [[nodiscard]] std::size_t firstVisibleLine() const { return first_; }
  [[nodiscard]] std::size_t visibleLines() const;

  /// Scrolls by so many lines, as far as there are lines.
  void scroll(double lines);

  /// The end stays in sight where it was; else the line on top stays, as far as lines go on.
  void resize(double width, double height) override;
  bool handleEvent(const Event& event) override;
  [[nodiscard]] bool takesFocus() const override { return true; }

 protected:
  ScrollableTextBoxBase(std::unique_ptr<MultiLineTextBox> content, double width, double height);

 private:
  [[nodiscard]] std::size_t lastFirstLine() const;

  MultiLineTextBox* content_;
  Palette palette_;
  std::size_t first_ = 0;
};

/// The same around a kind of text box.
template <typename Box>
class ScrollableTextBox : public ScrollableTextBoxBase {
 public:
  ScrollableTextBox(double width, double height)
      : ScrollableTextBoxBase(std::make_unique<Box>(), width, height) {}
};
