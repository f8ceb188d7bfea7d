#include "station/net/HeardListName.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace korvel {

namespace {

/// More programs of one name than anybody starts.
constexpr int kMostPrograms = 100;

std::uint32_t hashOf(const std::string& text) {
  std::uint32_t hash = 2166136261U;
  for (const char letter : text) hash = (hash ^ static_cast<unsigned char>(letter)) * 16777619U;
  return hash;
}

/// The station's name as the beginning of a file name: what is no letter or digit becomes "_", and
/// a number told from the name keeps two apart.
std::string fileNameFor(const std::string& station) {
  std::string name;
  for (const char letter : station) {
    const bool isPlain = (letter >= '0' && letter <= '9') || (letter >= 'A' && letter <= 'Z') ||
                         (letter >= 'a' && letter <= 'z') || letter == '-';
    name += isPlain ? letter : '_';
  }
  return name.substr(0, 100) + "-" + std::to_string(hashOf(station));
}

/// Whether another program of this machine has the path; `claim` keeps it from others. A system
/// without such sockets claims nothing and refuses nothing.
bool isTaken(const std::string& path, Descriptor& claim) {
  Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  // A name that begins with a zero byte is no file, and goes with the socket.
  const std::string name = "kv-heard-" + std::to_string(hashOf(path)) + path.substr(0, 80);
  std::memcpy(address.sun_path + 1, name.data(), name.size());
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0) {
    return errno == EADDRINUSE;
  }
  claim = std::move(socket);
  return false;
}

}  // namespace

HeardListName::HeardListName(const std::string& folder, const std::string& station,
                             const std::string& ending) {
  const std::string plain = folder + "/" + fileNameFor(station);
  for (int number = 1; number <= kMostPrograms; ++number) {
    path_ = plain + (number == 1 ? "" : "-" + std::to_string(number)) + ending;
    station_ = station + (number == 1 ? "" : " (" + std::to_string(number) + ")");
    if (!isTaken(path_, claim_)) return;
  }
}

}  // namespace korvel
