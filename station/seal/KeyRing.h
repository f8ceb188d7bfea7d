#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "station/base/Result.h"

namespace korvel {

/// One of the keys that the stations of a share seal their datagrams with.
struct SealKey {
  static constexpr std::size_t kIdBytes = 8;
  static constexpr std::size_t kBytes = 32;

  std::array<unsigned char, kIdBytes> id{};  ///< what a datagram names it by; made from the key
  std::array<unsigned char, kBytes> bytes{};
  std::string made;     ///< when, as "2024-05-31T12:00:00Z"
  bool isUsed = false;  ///< whether stations seal with it

  /// The identifier as people read and type it: 16 hexadecimal digits.
  [[nodiscard]] std::string idText() const;
};

/// The keys of a share: the file ".keyring" in the projects directory, JSON, readable for its owner
/// and the editors' group alone. A user who can read the share has the keys; a stranger on the
/// network has not. Messages sealed with any of them are taken; at most one is used for sealing.
/// Any thread; blocks as long as the share does.
class KeyRing {
 public:
  static constexpr const char* kFile = ".keyring";
  static constexpr std::size_t kMostKeys = 16;

  /// The file's keys; none where there is no file. Failure: a file that cannot be read, is larger
  /// than a ring can be, or is no ring.
  static Result<KeyRing> read(const std::string& projectsDirectory);

  /// A ring from the bytes of such a file. `path` is for what is said of them.
  static Result<KeyRing> parse(const std::string& bytes, const std::string& path);

  /// Replaces the file, whole or not at all, with mode 0640.
  [[nodiscard]] Result<void> write(const std::string& projectsDirectory) const;

  /// Makes a new random key, which is used at once only where none is; its identifier.
  Result<std::string> add();

  /// Has stations seal with a key from now on. An unambiguous beginning of an identifier will do.
  Result<std::string> use(const std::string& id);

  /// Takes a key out. The one in use only with `isForced`: what others seal with it until they have
  /// read the ring is taken for a stranger's then.
  Result<std::string> remove(const std::string& id, bool isForced);

  [[nodiscard]] const std::vector<SealKey>& keys() const { return keys_; }
  [[nodiscard]] bool isEmpty() const { return keys_.empty(); }

  /// The key to seal with, or null.
  [[nodiscard]] const SealKey* used() const;

  /// The key of an identifier as a datagram bears it, SealKey::kIdBytes long; null for another's.
  [[nodiscard]] const SealKey* find(std::string_view id) const;

 private:
  [[nodiscard]] Result<std::size_t> indexOf(const std::string& id) const;

  std::vector<SealKey> keys_;
};

}  // namespace korvel
