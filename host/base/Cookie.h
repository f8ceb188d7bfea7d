#pragma once

// Names of stored objects, the same on every station.
//
// The host makes a cookie when an object is made, and never gives it to another object. Stations
// speak of objects by the cookie's text alone: it is what stands in messages, in names of files
// and of lock files. That is why the text must read back exactly, and why it holds no byte that
// separates fields of a message (0xAC) or parts of a path.
//
//     station A                                        station B
//     Cookie::create('E') -> asString() --"E0a1b.."--> Cookie(text, false) == the same object
//
// The three type bytes belong to the identity: a project's cookie and the cookie of an edit with
// the same UUID are two objects. convertCookie() makes the one from the other.

#include <array>
#include <cstdint>

#include "host/base/HostApi.h"
#include "host/base/LightweightString.h"

/// 128 bits that are unique to one stored object; all zero in a null cookie.
struct UUID {
  std::array<std::uint8_t, 16> bytes{};

  friend bool operator==(const UUID&, const UUID&) = default;
};

/// The kind letters of cookies, as this host gives them out.
enum CookieType : char {
  CookieTypeNone = '\0',
  CookieTypeEdit = 'E',       ///< an edit (log type 2)
  CookieTypeShot = 'S',       ///< a log of any other log type
  CookieTypeProject = 'P',    ///< a project
  CookieTypeNoProject = 'I',  ///< stands where no project is meant at all
  CookieTypeBin = 'G',        ///< a bin (log group)
  CookieTypeMediaBin = 'M',   ///< a bin made by the media manager
  CookieTypeRack = 'B',       ///< a rack
  CookieTypeFilter = 'F',     ///< a project filter
  CookieTypeMaterial = 'V',   ///< a media file
};

/// The host's identifier of a stored object: a UUID and three type bytes, of which the first is the
/// kind letter.
///
/// Text form (ASCII; holds no byte 0xAC, no blank and no path separator):
///
///     kind letter   UUID in lower-case hex            the other two type bytes, only when
///        |          without leading zeros, but        one of them is not zero
///        |          at least four digits              |
///        E          0001                              -ff00
///
/// so that "P0001" is a project cookie and reads back exactly. A null cookie's text is empty.
/// A plain value. Any thread.
class KV_HOST_API Cookie {
 public:
  /// The null cookie.
  Cookie() = default;

  /// A cookie from its parts.
  Cookie(const UUID& uuid, char type, std::uint8_t subtype = 0, std::uint8_t extra = 0);

  /// A cookie from text. With `fromName` false the text must be the text form, else the result is
  /// null. With `fromName` true any text gives a cookie: the one it spells if it is a text form,
  /// else a material cookie
  /// ('V') whose UUID is derived from the text alone (RFC 4122 version 5), equal texts giving equal
  /// cookies.
  Cookie(const char* text, bool fromName);

  /// A new random cookie of a kind.
  static Cookie create(char type);

  /// The number of this workstation, by which remote commands address it.
  static int getLocalMachineNumber();

  /// Whether this is no object at all.
  [[nodiscard]] bool isNull() const;

  /// The kind letter, the unique part, and all three type bytes.
  [[nodiscard]] char getType() const { return static_cast<char>(typeBytes_[0]); }
  [[nodiscard]] const UUID& getUuid() const { return uuid_; }
  [[nodiscard]] const std::array<std::uint8_t, 3>& getTypeBytes() const { return typeBytes_; }

  /// The text form; with `abbreviated` the kind letter and at most eight digits, for people (it
  /// does not read back).
  [[nodiscard]] LightweightString<char> asString(bool abbreviated = false) const;

  /// The same in wide characters, for names of files.
  [[nodiscard]] LightweightString<wchar_t> asWString() const;

  /// Orders by kind letter, UUID, then the other type bytes: negative, zero or positive.
  [[nodiscard]] int compare(const Cookie& other) const;

  friend bool operator==(const Cookie& a, const Cookie& b) { return a.compare(b) == 0; }
  friend bool operator<(const Cookie& a, const Cookie& b) { return a.compare(b) < 0; }

 private:
  UUID uuid_;
  std::array<std::uint8_t, 3> typeBytes_{};
};

using CookieVec = Vector<Cookie>;

/// The same object's cookie under another kind: the UUID kept, the kind letter `type` (69 is 'E'),
/// the second type byte `subtype`, the third zero. The null cookie stays null.
KV_HOST_API Cookie convertCookie(const Cookie& cookie, int type, int subtype);
