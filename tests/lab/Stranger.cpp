#include "tests/lab/Stranger.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <stdexcept>
#include <string>

namespace korvel {

namespace {

constexpr int kPort = 27015;
constexpr std::size_t kLargest = 65'507;

/// Makes datagrams that are no message of any station.
class Garbage {
 public:
  std::string next() {
    switch (number(0, 7)) {
      case 0:
        return bytes(number(0, 300));
      case 1:
        return "d\xAC" + bytes(number(0, 300));
      case 2:
        return std::string(number(0, 15) == 0 ? kLargest : 1400, '\xAC');
      case 3:
        return std::string(1, '\0') + message();
      case 4:
        return "e" + message();
      case 5:
        return message().substr(0, number(0, 20));
      case 6:
        return message() + bytes(1400);
      default:
        return message();
    }
  }

 private:
  std::size_t number(int from, int to) {
    return static_cast<std::size_t>(std::uniform_int_distribution<int>(from, to)(random_));
  }

  std::string bytes(std::size_t count) {
    std::string text(count, ' ');
    for (char& letter : text) letter = static_cast<char>(number(0, 255));
    return text;
  }

  /// Well-formed, of a type that there is not, or about a project that nobody has open.
  std::string message() {
    const std::string kinds = "EGBFSV";
    const std::string object = kinds[number(0, 5)] + std::to_string(number(1000, 9999)) + "beef";
    const std::string types[] = {"0", "2", "3", "5", "16", "99", "256", "-1", "x"};
    return "d\xAC" + types[number(0, 8)] + "\xACP0bad\xAC" + object + "\xAC" +
           bytes(number(0, 40)) + "\xAC";
  }

  std::mt19937 random_{7};
};

}  // namespace

Stranger::Stranger(Facility& facility, Network& network, int rate)
    : cable_(facility.cable(network, space_)) {
  space_.within([this] { socket_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0); });
  const int on = 1;
  ::setsockopt(socket_, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
  sockaddr_in everyone{};
  everyone.sin_family = AF_INET;
  everyone.sin_port = htons(kPort);
  ::inet_pton(AF_INET, (network.prefix + "255").c_str(), &everyone.sin_addr);
  if (::connect(socket_, reinterpret_cast<sockaddr*>(&everyone), sizeof everyone) != 0) {
    throw std::runtime_error("the stranger finds no network");
  }
  thread_ = std::thread([this, rate] { flood(rate); });
}

Stranger::~Stranger() {
  stop();
  ::close(socket_);
}

std::size_t Stranger::stop() {
  isOver_ = true;
  if (thread_.joinable()) thread_.join();
  return sent_;
}

void Stranger::flood(int rate) {
  Garbage garbage;
  constexpr int kBursts = 50;  // a second
  while (!isOver_) {
    for (int i = 0; i < rate / kBursts; ++i) {
      const std::string text = garbage.next();
      if (::send(socket_, text.data(), text.size(), 0) >= 0) ++sent_;
    }
    // The pace of the flood; nothing is waited for.
    std::this_thread::sleep_for(std::chrono::milliseconds(1000 / kBursts));
  }
}

}  // namespace korvel
