#pragma once

#include <cstdint>

#include "host/base/LightweightString.h"

/// What happened to a bin, a rack or a filter. A plain value. Any thread.
///
/// Text form: the value as unsigned decimal, without padding.
class ContainerModification {
 public:
  enum eValue : std::uint32_t {
    eNothing = 0,
    eRewritten = 1,  ///< the container's file was rewritten: wait for it, then reload
    eReload = 2,     ///< reload now
    eDestroyed = 3,  ///< the container is gone
  };

  /// Nothing happened.
  ContainerModification() = default;
  explicit ContainerModification(eValue value) : value_(value) {}

  /// Reads the decimal number at the start of a text: leading blanks are skipped, reading stops at
  /// the first character that is no digit, no digits give 0. Only the low 32 bits are kept. A value
  /// of 4 or more is kept too, is not valid, and reports the assertion "valid_".
  explicit ContainerModification(const LightweightString<char>& text);

  [[nodiscard]] LightweightString<char> asString() const;

  std::uint32_t value_ = eNothing;
  bool valid_ = true;  ///< whether the value is one of eValue; does not travel
};
