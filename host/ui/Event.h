#pragma once

#include "host/base/LightweightString.h"
#include "host/ui/Geometry.h"

/// One thing that the user's hands did. A plain value, alive while it is delivered.
struct Event {
  enum eType {
    eMousePress,
    eMouseRelease,
    eMouseMove,
    eMouseWheel,
    eKeyPress,   ///< a key that is no text: see `key`
    eTextInput,  ///< typed or pasted text: see `text`
  };
  enum eButton { eNoButton, eLeftButton, eRightButton };
  enum eKey {
    eNoKey,
    eReturn,
    eEscape,
    eTab,
    eBackspace,
    eDelete,
    eLeft,
    eRight,
    eUp,
    eDown,
    eHome,
    eEnd,
  };

  eType type = eMouseMove;
  XY position;  ///< where the mouse is, on the desktop
  eButton button = eNoButton;
  eKey key = eNoKey;
  LightweightString<wchar_t> text;
  double wheel = 0;  ///< lines to scroll, positive towards the end
};
