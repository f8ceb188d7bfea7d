#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

namespace korvel {

/// A sender on this machine that is no station; its datagrams stay on this machine.
class LoopbackSender {
 public:
  explicit LoopbackSender(int port, const char* address = "127.255.255.255")
      : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const int yes = 1;
    ::setsockopt(socket_, SOL_SOCKET, SO_BROADCAST, &yes, sizeof yes);
    address_.sin_family = AF_INET;
    address_.sin_port = htons(static_cast<std::uint16_t>(port));
    ::inet_pton(AF_INET, address, &address_.sin_addr);
  }
  LoopbackSender(const LoopbackSender&) = delete;
  LoopbackSender& operator=(const LoopbackSender&) = delete;
  ~LoopbackSender() { ::close(socket_); }

  /// Sends the fields, each followed by the separator; whether the kernel took them.
  [[nodiscard]] bool send(const std::vector<std::string>& fields) const {
    std::string text;
    for (const std::string& field : fields) text += field + '\xAC';
    return sendBytes(text);
  }

  /// Sends a datagram as it stands.
  [[nodiscard]] bool sendBytes(const std::string& text) const {
    const auto* const to = reinterpret_cast<const sockaddr*>(&address_);
    return ::sendto(socket_, text.data(), text.size(), 0, to, sizeof address_) ==
           static_cast<ssize_t>(text.size());
  }

 private:
  int socket_;
  sockaddr_in address_{};
};

}  // namespace korvel
