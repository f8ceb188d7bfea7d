#pragma once

#include "host/ui/TextBox.h"

/// A one-line entry box with a title before it, which may be empty.
class KV_HOST_API TitleTextBox : public Glob {
 public:
  TitleTextBox(const LightweightString<wchar_t>& title, double width, double height);
  ~TitleTextBox() override;

  [[nodiscard]] const LightweightString<wchar_t>& title() const { return title_; }

  /// The box itself, which fills what the title leaves.
  [[nodiscard]] TextBox& textBox() const { return *textBox_; }

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
