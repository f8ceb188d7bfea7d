#include "station/seal/Seals.h"

#include <sodium.h>
#include <sys/stat.h>
#include <algorithm>
#include <array>
#include <condition_variable>
#include <thread>

#include "host/base/Log.h"
#include "station/base/Events.h"
#include "station/base/HostThread.h"
#include "station/base/Strings.h"
#include "station/os/Posix.h"

namespace korvel {

namespace {

constexpr std::size_t kNumberBytes = 8;

void appendNumber(std::string& bytes, std::uint64_t number) {
  for (int shift = 56; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift & 0xFF);
}

std::uint64_t numberAt(std::string_view bytes) {
  std::uint64_t number = 0;
  for (const char byte : bytes.substr(0, kNumberBytes)) {
    number = number << 8 | static_cast<unsigned char>(byte);
  }
  return number;
}

const unsigned char* unsignedBytes(std::string_view bytes) {
  return reinterpret_cast<const unsigned char*>(bytes.data());
}

std::array<unsigned char, Seal::kCodeBytes> codeOf(std::string_view bytes, const SealKey& key) {
  std::array<unsigned char, Seal::kCodeBytes> code{};
  crypto_generichash(code.data(), code.size(), unsignedBytes(bytes), bytes.size(), key.bytes.data(),
                     key.bytes.size());
  return code;
}

}  // namespace

std::string Seal::keyText() const {
  SealKey named;
  named.id = key;
  return named.idText();
}

SealedText takeSealApart(std::string_view datagram) {
  if (datagram.size() < Seal::kBytes) return {datagram, {}};
  const std::string_view text = datagram.substr(0, datagram.size() - Seal::kBytes);
  std::string_view rest = datagram.substr(text.size());
  if (rest.front() != '\0' || rest.substr(1, Seal::kMagic.size()) != Seal::kMagic) {
    return {datagram, {}};
  }
  rest.remove_prefix(1 + Seal::kMagic.size());
  Seal seal;
  std::copy_n(unsignedBytes(rest), seal.key.size(), seal.key.begin());
  rest.remove_prefix(seal.key.size());
  for (std::uint64_t* const number : {&seal.sender, &seal.boot, &seal.sequence}) {
    *number = numberAt(rest);
    rest.remove_prefix(kNumberBytes);
  }
  seal.time = static_cast<std::int64_t>(numberAt(rest));
  return {text, seal};
}

std::string sealed(std::string_view text, const Seal& seal, const SealKey& key) {
  std::string bytes;
  bytes.reserve(text.size() + Seal::kBytes);
  bytes.append(text);
  bytes += '\0';
  bytes.append(Seal::kMagic);
  for (const unsigned char byte : key.id) bytes += static_cast<char>(byte);
  appendNumber(bytes, seal.sender);
  appendNumber(bytes, seal.boot);
  appendNumber(bytes, seal.sequence);
  appendNumber(bytes, static_cast<std::uint64_t>(seal.time));
  for (const unsigned char byte : codeOf(bytes, key)) bytes += static_cast<char>(byte);
  return bytes;
}

bool isSealedWith(std::string_view datagram, const SealKey& key) {
  if (datagram.size() < Seal::kBytes) return false;
  const std::size_t length = datagram.size() - Seal::kCodeBytes;
  const auto code = codeOf(datagram.substr(0, length), key);
  // In constant time: how long a comparison takes must not tell a forger how much of his code is
  // right.
  return sodium_memcmp(code.data(), unsignedBytes(datagram.substr(length)), code.size()) == 0;
}

namespace {

/// How often the ring is looked at. The cache of a mount may delay the answer by up to a minute.
constexpr auto kBetweenLooks = std::chrono::seconds(5);
constexpr unsigned kLooksOfACache = 6;

std::uint64_t randomNumber() {
  if (sodium_init() < 0) return 0;
  std::uint64_t number = 0;
  randombytes_buf(&number, sizeof number);
  return number;
}

/// What tells one state of the ring's file from another: replacing it makes a new inode.
using Mark = std::array<std::int64_t, 4>;

Mark markOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return {};
  return {static_cast<std::int64_t>(status.st_ino), status.st_size, status.st_mtim.tv_sec,
          status.st_mtim.tv_nsec};
}

}  // namespace

const char* sealPolicyText(SealPolicy policy) {
  switch (policy) {
    case SealPolicy::eOff:
      return "off";
    case SealPolicy::eAccept:
      return "accept";
    case SealPolicy::eRequire:
      break;
  }
  return "require";
}

std::int64_t millisecondsNow() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

ReplayWindow::Verdict ReplayWindow::take(const Seal& seal, std::int64_t now) {
  const std::pair boot{seal.sender, seal.boot};
  auto found = boots_.find(boot);
  if (found == boots_.end()) {
    // Of a start that was not heard before, only the time tells a new message from a recording.
    if (seal.time < now - kTolerance || seal.time > now + kTolerance) return Verdict::eStale;
    if (boots_.size() == kMostBoots) forgetOldest();
    found = boots_.emplace(boot, Heard{seal.sequence, {}, now}).first;
    found->second.below.set(0);
    return Verdict::eNew;
  }
  Heard& heard = found->second;
  heard.last = now;
  if (seal.sequence > heard.highest) {
    const std::uint64_t ahead = seal.sequence - heard.highest;
    heard.below = ahead < kWidth ? heard.below << ahead : std::bitset<kWidth>();
    heard.below.set(0);
    heard.highest = seal.sequence;
    return Verdict::eNew;
  }
  const std::uint64_t behind = heard.highest - seal.sequence;
  // Below the window nothing is known any more, so it counts as heard.
  if (behind >= kWidth || heard.below.test(behind)) return Verdict::eRepeated;
  heard.below.set(behind);
  return Verdict::eNew;
}

void ReplayWindow::forgetOldest() {
  boots_.erase(
      std::ranges::min_element(boots_, {}, [](const auto& entry) { return entry.second.last; }));
}

namespace {

void auditKeys(const KeyRing& ring) {
  JsonValue ids = JsonValue::array();
  std::string used;
  for (const SealKey& key : ring.keys()) {
    ids.append(key.idText());
    if (key.isUsed) used = key.idText();
  }
  events().audit("keys", {{"keys", ids}, {"used", used}});
}

}  // namespace

/// The ring and the thread that follows it. The thread may live longer than the station's Seals
/// when the share hangs.
struct Seals::Following {
  std::mutex mutex;
  std::condition_variable changed;
  std::shared_ptr<const KeyRing> ring = std::make_shared<const KeyRing>();
  std::string directory;
  Mark mark{};
  unsigned looks = 0;
  bool isTold = false;  ///< that the ring cannot be read; once until it can be
  bool isEnding = false;
  bool isAsking = false;
  std::thread thread;

  void read() {
    // NFS goes on saying that a file is missing which was missing before. Looking past its cache
    // each time would cost round trips all day, so every half minute is enough: no key is used
    // before every station knows it.
    if (looks++ % kLooksOfACache == 0) static_cast<void>(lookAfresh(directory));
    const Mark now = markOf(directory + "/" + KeyRing::kFile);
    if (now == mark) return;
    auto keys = KeyRing::read(directory);
    const std::lock_guard lock(mutex);
    if (isEnding) return;
    if (keys) {
      ring = std::make_shared<const KeyRing>(std::move(*keys));
      mark = now;
      if (!ring->isEmpty()) auditKeys(*ring);
    } else if (!isTold) {
      LogBoth("%s The keys known before are used on.\n", keys.error().message);
    }
    // A failure may pass, so the ring is read again at the next look.
    isTold = !keys;
  }

  void follow() {
    std::unique_lock lock(mutex);
    while (!changed.wait_for(lock, kBetweenLooks, [this] { return isEnding; })) {
      isAsking = true;
      lock.unlock();
      read();
      lock.lock();
      isAsking = false;
    }
  }
};

Seals::Seals(SealPolicy policy, std::string projectsDirectory, std::uint64_t sender)
    : Seals(policy, KeyRing(), sender) {
  if (policy == SealPolicy::eOff) return;
  following_->directory = std::move(projectsDirectory);
  following_->read();
  following_->thread = watchThread([state = following_] { state->follow(); });
}

Seals::Seals(SealPolicy policy, KeyRing keys, std::uint64_t sender)
    : policy_(policy),
      sender_(sender),
      boot_(randomNumber()),
      following_(std::make_shared<Following>()) {
  following_->ring = std::make_shared<const KeyRing>(std::move(keys));
}

Seals::~Seals() {
  bool isStuck = false;
  {
    const std::lock_guard lock(following_->mutex);
    following_->isEnding = true;
    // A thread that is asking the share may hang there: the end does not wait for it.
    isStuck = following_->isAsking;
  }
  following_->changed.notify_all();
  if (!following_->thread.joinable()) return;
  isStuck ? following_->thread.detach() : following_->thread.join();
}

std::shared_ptr<const KeyRing> Seals::keys() const {
  const std::lock_guard lock(following_->mutex);
  return following_->ring;
}

std::string Seals::outgoing(std::string_view text) {
  const auto ring = keys();
  const SealKey* const key = policy_ == SealPolicy::eOff ? nullptr : ring->used();
  if (!key) return std::string(text);
  Seal seal;
  seal.sender = sender_;
  seal.boot = boot_;
  seal.sequence = ++sequence_;
  seal.time = millisecondsNow();
  return sealed(text, seal, *key);
}

Seals::Judged Seals::judge(std::string_view datagram, std::int64_t now) {
  const SealedText parts = takeSealApart(datagram);
  const auto ring = keys();
  if (policy_ == SealPolicy::eOff || !parts.seal) return unsealed(parts.text);
  const auto& id = parts.seal->key;
  const SealKey* const key = ring->find({reinterpret_cast<const char*>(id.data()), id.size()});
  // A key that this station does not know (yet, or any more) proves neither that the message is
  // genuine nor that it is forged.
  if (!key) return unsealed(parts.text);
  if (!isSealedWith(datagram, *key)) return {Verdict::eForged, parts.text};
  switch (window_.take(*parts.seal, now)) {
    case ReplayWindow::Verdict::eNew:
      return {Verdict::eSealed, parts.text, parts.seal->sender};
    case ReplayWindow::Verdict::eRepeated:
      return {Verdict::eRepeated, parts.text};
    case ReplayWindow::Verdict::eStale:
      break;
  }
  return unsealed(parts.text);
}

Seals::Judged Seals::unsealed(std::string_view text) const {
  return {policy_ == SealPolicy::eRequire ? Verdict::eRefused : Verdict::eUnsealed, text};
}

bool Seals::marksUnsealed() const {
  return policy_ != SealPolicy::eOff && keys()->used() != nullptr;
}

std::vector<std::string> Seals::keyIds() const {
  std::vector<std::string> ids;
  const auto ring = keys();
  for (const SealKey& key : ring->keys()) ids.push_back(key.idText());
  return ids;
}

std::uint64_t Seals::senderOf(const std::string& user, const std::string& host, int machine) {
  const std::string name = user + '\0' + host + '\0' + std::to_string(machine);
  std::uint64_t sender = 0;
  crypto_generichash(reinterpret_cast<unsigned char*>(&sender), sizeof sender,
                     reinterpret_cast<const unsigned char*>(name.data()), name.size(), nullptr, 0);
  return sender;
}

std::string Impostors::note(const std::string& user, std::uint64_t sender) {
  const auto known = names_.find(user);
  if (known == names_.end()) {
    if (sender != 0 && !user.empty() && names_.size() < kMostNames) names_[user].sender = sender;
    return {};
  }
  if (known->second.sender == sender || std::exchange(known->second.isTold, true)) return {};
  const std::string name = inQuotes(user);
  if (sender == 0) {
    return "a message in the name of " + name + " bears no seal, and the station of " + name +
           " seals what it sends: somebody may pretend to be " + name;
  }
  return "messages in the name of " + name + " come from two stations: unless " + name +
         " is at work at both, somebody who has the share's key uses the name";
}

}  // namespace korvel
