#pragma once

// Names come from people of all countries, and travel as bytes: through messages, files and the
// environment. Inside the host and its plug-ins they are wide texts, in which one element is one
// character.

#include "host/base/HostApi.h"
#include "host/base/LightweightString.h"

// Conversions between the host's two kinds of text. Any thread.
//
// 8-bit text is UTF-8, wide text holds one code point per element. A byte that is no part of a
// UTF-8 sequence is decoded to U+DC00 + byte (an unpaired low surrogate, which no valid text holds)
// and encoded back to that byte, so any byte string survives fromUTF8 followed by toUTF8 unchanged.

/// The UTF-8 form of a wide text.
KV_HOST_API LightweightString<char> toUTF8(const LightweightString<wchar_t>& text);

/// The wide form of UTF-8 bytes. `length` counts bytes; -1 means up to the terminating zero. Null
/// gives an empty text.
KV_HOST_API LightweightString<wchar_t> fromUTF8(const char* text, int length = -1);

/// The wide form of a whole 8-bit string, zero bytes included.
KV_HOST_API LightweightString<wchar_t> fromUTF8(const LightweightString<char>& text);

namespace Kv {

/// Maps `text` to upper case in place, by Unicode's full mapping (one letter may become several),
/// the same on every station whatever its locale.
KV_HOST_API void toUpper(LightweightString<wchar_t>& text);

/// Widens each byte to the character of the same number, without decoding: a UTF-8 sequence of two
/// bytes becomes two characters in the range U+0080 to U+00FF.
KV_HOST_API LightweightString<wchar_t> WStringFromAscii(const char* text);
KV_HOST_API LightweightString<wchar_t> WStringFromAscii(const LightweightString<char>& text);

}  // namespace Kv
