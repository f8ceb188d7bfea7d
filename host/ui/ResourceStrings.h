#pragma once

// Texts of the user interface by number, so that a plug-in holds no words of any language. Numbers
// and texts belong to the host; a number without a text shows as nothing, and the log names it.

#include "host/base/HostApi.h"
#include "host/base/LightweightString.h"

/// The host's text of a number, in the user's language: titles, labels and tooltips. Empty, with a
/// line in the log, for a number that the host has no text for. Any thread.
///
/// The plug-in asks for two: 12027 is the message panel's title, 12028 the label of its list of
/// recipients. It asks anew for each panel that is built, so another language shows in the next
/// one.
KV_HOST_API LightweightString<wchar_t> resourceStrW(unsigned number);
