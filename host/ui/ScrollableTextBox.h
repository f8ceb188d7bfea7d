#pragma once

#include <cstddef>

#include "host/ui/Glob.h"
#include "host/ui/Palette.h"

/// Lines of text that cannot be changed by the user's hands.
class KV_HOST_API MultiLineTextBox : public Glob {
 public:
  using Lines = Vector<LightweightString<wchar_t>>;

  MultiLineTextBox();
  ~MultiLineTextBox() override;

  void setLines(const Lines& lines) { lines_ = lines; }
  [[nodiscard]] const Lines& lines() const { return lines_; }

 private:
  Lines lines_;
};

/// A box with a scroll bar that shows a part of its lines.
///
/// New lines come into sight when the end was in sight; whoever has scrolled back stays where he
/// reads.
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

  void setPalette(const Palette& palette) { palette_ = palette; }
  [[nodiscard]] const Palette& palette() const { return palette_; }

  /// The number of the line on top, and how many have room.
  [[nodiscard]] std::size_t firstVisibleLine() const { return first_; }
  [[nodiscard]] std::size_t visibleLines() const;

  /// Scrolls by so many lines, as far as there are lines.
  void scroll(double lines);

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
