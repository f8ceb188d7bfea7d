#pragma once

#include "host/base/LightweightString.h"
#include "host/ui/Geometry.h"

/// How big a tool is shown; the number is what is saved.
enum eSizeState : int {
  eExpandedState = 0,  ///< a panel
  eIconState = 1,      ///< an icon
};

/// What a component is created with: anew, or as it was when it was saved.
struct GlobCreationInfo {
  LightweightString<char> typeName;

  /// Not zero when the component is restored from what was saved of it; then the two below count.
  int restore = 0;
  int sizeState = eIconState;
  XY position;  ///< on the desktop
};
