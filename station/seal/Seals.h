#pragma once

#include <array>
#include <atomic>
#include <bitset>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "station/base/StationSettings.h"
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

/// Remembers the sequence numbers of each sender's messages, so that a recorded message that is
/// sent again is not taken. One thread.
class ReplayWindow {
 public:
  static constexpr std::size_t kWidth = 1024;  ///< how far messages may overtake each other
  static constexpr std::size_t kMostBoots = 4096;

  /// How far from this machine's clock the first message of a start may be, in milliseconds.
  static constexpr std::int64_t kTolerance = 120'000;

  enum class Verdict {
    eNew,
    eRepeated,
    eStale,  ///< of a start that was not heard yet, and not of now
  };

  /// `now` as Seal::time.
  Verdict take(const Seal& seal, std::int64_t now);

 private:
  struct Heard {
    std::uint64_t highest = 0;
    std::bitset<kWidth> below;  ///< bit n: highest - n was heard
    std::int64_t last = 0;      ///< when something was heard
  };

  void forgetOldest();

  std::map<std::pair<std::uint64_t, std::uint64_t>, Heard> boots_;
};

/// The seals of a station: puts them on what it sends, and judges those of what it hears. Follows
/// the share's key ring while it lives, without a restart of anything.
class Seals {
 public:
  /// How a datagram is judged.
  enum class Verdict {
    eSealed,    ///< of a sender who has the key, and new
    eUnsealed,  ///< of an unproven sender; taken by this station's policy
    eRefused,   ///< not sealed, or stale, where a seal is required
    eForged,    ///< the code is wrong, or it was changed on its way
    eRepeated,  ///< heard before: a copy that came another way, or a recording
  };

  struct Judged {
    Verdict verdict = Verdict::eUnsealed;
    std::string_view text;     ///< without the seal; of the bytes given
    std::uint64_t sender = 0;  ///< as Seal::sender, where the seal proves it

    [[nodiscard]] bool isTaken() const {
      return verdict == Verdict::eSealed || verdict == Verdict::eUnsealed;
    }
  };

  /// Reads the ring at once, and looks at it again every few seconds on a thread of its own. Where
  /// it cannot be read, the keys known before stay. `sender` is this station's, from its user, host
  /// and machine.
  Seals(SealPolicy policy, std::string projectsDirectory, std::uint64_t sender);

  /// For tests and tools: with these keys, and no folder to follow.
  Seals(SealPolicy policy, KeyRing keys, std::uint64_t sender);
  Seals(const Seals&) = delete;
  Seals& operator=(const Seals&) = delete;
  ~Seals();

  /// What goes onto the network for a text: sealed where there is a key to do it with. Any thread.
  [[nodiscard]] std::string outgoing(std::string_view text);

  /// Judges a datagram; `now` in milliseconds since 1970. The thread that reads the socket.
  Judged judge(std::string_view datagram, std::int64_t now);

  /// Whether texts without a seal are to be marked: there is a key, so their sender could have used
  /// it.
  [[nodiscard]] bool marksUnsealed() const;

  /// The identifiers of the keys that are known.
  [[nodiscard]] std::vector<std::string> keyIds() const;

  /// The sender of a user at a host on a machine.
  static std::uint64_t senderOf(const std::string& user, const std::string& host, int machine);

 private:
  struct Following;

  [[nodiscard]] std::shared_ptr<const KeyRing> keys() const;
  [[nodiscard]] Judged unsealed(std::string_view text) const;

  const SealPolicy policy_;
  const std::uint64_t sender_;
  const std::uint64_t boot_;
  std::atomic<std::uint64_t> sequence_{0};
  std::shared_ptr<Following> following_;
  ReplayWindow window_;
};

/// Notices names that are used by more than one sender, and names of senders who seal on messages
/// without a seal. Host thread.
class Impostors {
 public:
  /// More users than any facility has; names can be invented without end.
  static constexpr std::size_t kMostNames = 4096;

  /// A message says that it is of this user. `sender` is proven by its seal, and 0 where nothing
  /// proves it. What the user is to be told, once a name; empty for nothing.
  std::string note(const std::string& user, std::uint64_t sender);

 private:
  struct Name {
    std::uint64_t sender = 0;  ///< the first that was proven
    bool isTold = false;
  };

  std::map<std::string, Name> names_;
};

/// How the option calls a policy: "off", "accept", "require".
const char* sealPolicyText(SealPolicy policy);

/// Milliseconds since 1970 by this machine's clock.
std::int64_t millisecondsNow();

}  // namespace korvel
