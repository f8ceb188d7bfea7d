#pragma once

// Measures and looks that every panel takes from one place, so that the host's own panels and
// those of plug-ins look alike and grow together with the screen's scale. All lengths are unscaled
// pixels.

#include "host/base/HostApi.h"
#include "host/base/LightweightString.h"
#include "host/ui/Palette.h"

/// A typeface at a size in units of one unscaled pixel.
struct Font {
  LightweightString<char> family;
  double size = 0;
  enum eWeight { eRegular, eBold } weight = eRegular;

  friend bool operator==(const Font&, const Font&) = default;
};

/// The frame around a panel, of the same thickness on all four sides.
struct Border {
  double thickness = 0;

  friend bool operator==(const Border&, const Border&) = default;
};

/// The measures and looks that all panels of the host share. User-interface thread.
class KV_HOST_API UifStd {
 public:
  /// The frame of a panel, the typeface of its title, and the typeface of all other texts.
  static Border getBorder();
  static Font getTitleFont();
  static Font getFont();

  /// The height of a button, of a one-line box and of a panel's title.
  static double getButtonHeight();

  /// The height of one line of text in a box of several lines.
  static double getLineHeight();

  /// The distance between two widgets.
  static double getWidgetGap();

  /// The colours that new panels take.
  static const Palette& getPalette();
};
