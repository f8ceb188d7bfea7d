#pragma once

// Places and sizes on the desktop, in units of one unscaled pixel. The origin is the top-left
// corner; x grows to the right, y downwards.

/// A place: distances from the origin.
struct XY {
  double x = 0;
  double y = 0;

  friend bool operator==(const XY&, const XY&) = default;
};

/// A width and a height. A widget's own are never negative; see Glob::resize.
struct Size {
  double width = 0;
  double height = 0;

  friend bool operator==(const Size&, const Size&) = default;
};

/// A place with a size: what a widget covers.
struct Rect {
  XY position;
  Size size;

  /// Whether a point lies inside; the left and top edges do, the right and bottom ones do not.
  [[nodiscard]] bool contains(const XY& point) const {
    return point.x >= position.x && point.x < position.x + size.width && point.y >= position.y &&
           point.y < position.y + size.height;
  }

  friend bool operator==(const Rect&, const Rect&) = default;
};
