#include "station/seal/Seal.h"

#include <sodium.h>

#include <algorithm>

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
  return sodium_memcmp(code.data(), unsignedBytes(datagram.substr(length)), code.size()) == 0;
}

}  // namespace korvel
