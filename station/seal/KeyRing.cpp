#include "station/seal/KeyRing.h"

#include <sodium.h>
#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <utility>

#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "station/os/SharedFiles.h"

namespace korvel {

namespace {

constexpr mode_t kMode = 0640;
constexpr long kVersion = 1;

/// The bytes that hexadecimal digits stand for, which must be exactly so many.
template <std::size_t kCount>
bool readHex(const std::string& text, std::array<unsigned char, kCount>& bytes) {
  std::size_t count = 0;
  return text.size() == 2 * kCount &&
         sodium_hex2bin(bytes.data(), kCount, text.data(), text.size(), nullptr, &count, nullptr) ==
             0 &&
         count == kCount;
}

template <std::size_t kCount>
std::string hexOf(const std::array<unsigned char, kCount>& bytes) {
  std::string text(2 * kCount + 1, '\0');
  sodium_bin2hex(text.data(), text.size(), bytes.data(), kCount);
  text.pop_back();
  return text;
}

void nameKey(SealKey& key) {
  crypto_generichash(key.id.data(), key.id.size(), key.bytes.data(), key.bytes.size(), nullptr, 0);
}

std::string pathIn(const std::string& directory) { return directory + "/" + KeyRing::kFile; }

Error noRing(const std::string& path, const std::string& why) {
  return {ErrorCode::eBadContent,
          "The share's keys cannot be used: " + path + " " + why +
              ". Restore it, or remove it and make a new key with kv-share keys DIR add.",
          path};
}

}  // namespace

std::string SealKey::idText() const { return hexOf(id); }

Result<KeyRing> KeyRing::read(const std::string& projectsDirectory) {
  const std::string path = pathIn(projectsDirectory);
  const auto bytes = readFresh(path, kLargestList);
  if (bytes) return parse(*bytes, path);
  // Only a missing file means no keys. A file that cannot be read must not turn sealing off.
  if (bytes.error().code == ErrorCode::eNotFound) return KeyRing();
  return bytes.error();
}

Result<KeyRing> KeyRing::parse(const std::string& bytes, const std::string& path) {
  const auto json = parseJson(bytes);
  if (!json || !json->isObject()) return noRing(path, "holds no JSON object");
  if ((*json)["version"].asLong() != kVersion) return noRing(path, "is of another version");
  KeyRing ring;
  for (const JsonValue& each : (*json)["keys"].elements()) {
    SealKey key;
    if (!readHex(each["key"].asString(), key.bytes)) return noRing(path, "holds a broken key");
    nameKey(key);
    key.made = each["made"].asString();
    // One key seals, also where the file, edited by hand, names several.
    key.isUsed = each["used"].asBool() && !ring.used();
    ring.keys_.push_back(std::move(key));
    if (ring.keys_.size() > kMostKeys) return noRing(path, "holds more keys than a ring may");
  }
  return ring;
}

Result<void> KeyRing::write(const std::string& projectsDirectory) const {
  JsonValue all = JsonValue::array();
  for (const SealKey& key : keys_) {
    all.append(
        JsonValue::object({{"key", hexOf(key.bytes)}, {"made", key.made}, {"used", key.isUsed}}));
  }
  const JsonValue ring = JsonValue::object({{"version", kVersion}, {"keys", std::move(all)}});
  const std::string path = pathIn(projectsDirectory);
  // The mode is set before the file has its name, so that there is no moment at which other users
  // can read the keys.
  return writeAtomically(path, writeJsonIndented(ring) + "\n",
                         [](const std::string& temporary) -> Result<void> {
                           if (::chmod(temporary.c_str(), kMode) == 0) return {};
                           return errorFromErrno(errno, "keep others from reading", temporary);
                         });
}

Result<std::string> KeyRing::add() {
  if (keys_.size() == kMostKeys) {
    return Error{ErrorCode::eRefused,
                 "There are " + std::to_string(kMostKeys) +
                     " keys already; take out those that no station uses any more first.",
                 {}};
  }
  SealKey key;
  if (sodium_init() < 0) return Error{ErrorCode::eSystem, "This machine has no random bytes.", {}};
  randombytes_buf(key.bytes.data(), key.bytes.size());
  nameKey(key);
  key.made = utcText(std::time(nullptr));
  // Later keys are used only by use(), once every station has read the ring: until then the others
  // would take messages sealed with it for a stranger's.
  key.isUsed = keys_.empty();
  keys_.push_back(key);
  return key.idText();
}

Result<std::string> KeyRing::use(const std::string& id) {
  const auto index = indexOf(id);
  if (!index) return index.error();
  for (SealKey& key : keys_) key.isUsed = false;
  keys_[*index].isUsed = true;
  return keys_[*index].idText();
}

Result<std::string> KeyRing::remove(const std::string& id, bool isForced) {
  const auto index = indexOf(id);
  if (!index) return index.error();
  const SealKey key = keys_[*index];
  if (key.isUsed && !isForced) {
    return Error{
        ErrorCode::eRefused,
        "The key " + key.idText() +
            " is in use; have another used first (keys DIR use ID), or take it out all the "
            "same with --force.",
        {}};
  }
  keys_.erase(keys_.begin() + static_cast<std::ptrdiff_t>(*index));
  return key.idText();
}

const SealKey* KeyRing::used() const {
  const auto found = std::ranges::find_if(keys_, &SealKey::isUsed);
  return found == keys_.end() ? nullptr : &*found;
}

const SealKey* KeyRing::find(std::string_view id) const {
  const auto found = std::ranges::find_if(keys_, [id](const SealKey& key) {
    return std::ranges::equal(key.id, id, {}, {},
                              [](char byte) { return static_cast<unsigned char>(byte); });
  });
  return found == keys_.end() ? nullptr : &*found;
}

Result<std::size_t> KeyRing::indexOf(const std::string& id) const {
  std::vector<std::size_t> found;
  for (std::size_t index = 0; index < keys_.size(); ++index) {
    if (!id.empty() && keys_[index].idText().starts_with(id)) found.push_back(index);
  }
  if (found.size() == 1) return found.front();
  const char* const what = found.empty() ? "There is no key " : "Several keys begin with ";
  return Error{ErrorCode::eNotFound, what + inQuotes(id) + "; keys DIR list shows them.", {}};
}

}  // namespace korvel
