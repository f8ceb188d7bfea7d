#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "station/seal/KeyRing.h"

namespace korvel {

/// The seal behind a datagram's text: who sent it, its place in the order of what he sent, and a
/// code that only those who have the share's key can make.
///
///     text | 00 | "KVS1" | key id 8 | sender 8 | boot 8 | sequence 8 | time 8 | code 16
///
/// Numbers are big-endian; the time is in milliseconds since 1970, UTC. The code is BLAKE2b with
/// the key over everything before it. A station that knows nothing of seals ends the text at the
/// zero byte.
struct Seal {
  static constexpr std::string_view kMagic = "KVS1";
  static constexpr std::size_t kCodeBytes = 16;
  static constexpr std::size_t kBytes = 1 + 4 + 8 + 8 + 8 + 8 + 8 + kCodeBytes;

  std::array<unsigned char, SealKey::kIdBytes> key{};  ///< the identifier of the key
  std::uint64_t sender = 0;    ///< the same for as long as a user works at a machine
  std::uint64_t boot = 0;      ///< another each time a station starts
  std::uint64_t sequence = 0;  ///< from 1
  std::int64_t time = 0;       ///< milliseconds since 1970

  /// The identifier of the key as people read it.
  [[nodiscard]] std::string keyText() const;
};

/// A datagram taken apart.
struct SealedText {
  std::string_view text;     ///< what stations without seals see of it
  std::optional<Seal> seal;  ///< nothing where it bears none
};

/// Takes a datagram apart, without a look at the code.
SealedText takeSealApart(std::string_view datagram);

/// The datagram that carries a text with a seal.
std::string sealed(std::string_view text, const Seal& seal, const SealKey& key);

/// Whether the code of a datagram with a seal was made with this key.
bool isSealedWith(std::string_view datagram, const SealKey& key);

}  // namespace korvel
