#pragma once

// Colours. A new panel takes the palette that UifStd has for all, and hands it to the boxes that
// it holds. So a panel's text is always readable on its own background, in the light theme and the
// dark.

#include <cstdint>

#include "host/base/HostApi.h"

/// A colour without transparency.
struct Colour {
  std::uint8_t red = 0;
  std::uint8_t green = 0;
  std::uint8_t blue = 0;

  friend bool operator==(const Colour&, const Colour&) = default;
};

/// The colours in which a panel and what it holds are drawn. A plain value.
class KV_HOST_API Palette {
 public:
  /// Dark letters on light surfaces, or light ones on dark.
  enum eTheme { eLight, eDark };

  /// The colours of a theme.
  explicit Palette(eTheme theme = eDark);

  [[nodiscard]] const Colour& window() const { return window_; }  ///< an empty surface
  [[nodiscard]] const Colour& button() const { return button_; }  ///< buttons and tool panels
  [[nodiscard]] const Colour& text() const { return text_; }      ///< letters on all of them
  [[nodiscard]] const Colour& entry() const { return entry_; }    ///< where text is typed or listed

  friend bool operator==(const Palette&, const Palette&) = default;

 private:
  Colour window_;
  Colour button_;
  Colour text_;
  Colour entry_;
};
