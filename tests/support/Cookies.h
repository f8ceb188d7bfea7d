#pragma once

#include "host/base/Cookie.h"

namespace korvel {

/// Cookies that tests speak of.
inline Cookie cookie(const char* text) { return Cookie(text, false); }

inline const Cookie kEdit("E0001", false);
inline const Cookie kBin("G0002", false);
inline const Cookie kRack("B0002", false);

}  // namespace korvel
