#include "tests/lab/FaultyLine.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>
#include <utility>

namespace korvel {

namespace {

/// What the system keeps of a frame beside its bytes (its checksum may not be computed yet) goes
/// before it, so that it leaves as it came.
constexpr std::size_t kSystemHeader = 10;
constexpr std::size_t kLargestFrame = 70'000;
constexpr int kMillisecondsLate = 50;

int openEnd(const std::string& interface) {
  const int end = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, htons(ETH_P_ALL));
  const int on = 1;
  const int bytes = 8 << 20;
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = static_cast<int>(::if_nametoindex(interface.c_str()));
  ::setsockopt(end, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes);
  if (::setsockopt(end, SOL_PACKET, PACKET_VNET_HDR, &on, sizeof on) == 0 &&
      ::bind(end, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
    return end;
  }
  ::close(end);
  return -1;
}

bool isDatagram(const std::vector<char>& frame) {
  constexpr std::size_t kType = kSystemHeader + 12;
  constexpr std::size_t kProtocol = kSystemHeader + 14 + 9;
  return frame.size() > kProtocol && frame[kType] == 0x08 && frame[kType + 1] == 0x00 &&
         frame[kProtocol] == IPPROTO_UDP;
}

}  // namespace

FaultyLine::FaultyLine(const Space& space, const std::string& a, const std::string& b,
                       const LineFaults& faults)
    : faults_(faults), wake_(::eventfd(0, EFD_CLOEXEC)), random_(faults.seed) {
  space.within([&] { ends_ = {openEnd(a), openEnd(b)}; });
  if (ends_[0] < 0 || ends_[1] < 0) throw std::runtime_error("no line between " + a + " and " + b);
  thread_ = std::thread([this] { carry(); });
}

FaultyLine::~FaultyLine() {
  ::eventfd_write(wake_, 1);
  thread_.join();
  for (const int descriptor : {ends_[0], ends_[1], wake_}) ::close(descriptor);
}

LineCounts FaultyLine::counts() const { return {passed_, lost_, doubled_, lateCount_}; }

void FaultyLine::carry() {
  for (;;) {
    pollfd waitFor[] = {{wake_, POLLIN, 0}, {ends_[0], POLLIN, 0}, {ends_[1], POLLIN, 0}};
    const int ready = ::poll(waitFor, 3, late_.empty() ? -1 : kMillisecondsLate);
    if (waitFor[0].revents != 0) return;
    if (ready == 0) release(kOvertaking);
    if (waitFor[1].revents != 0) take(ends_[0], ends_[1]);
    if (waitFor[2].revents != 0) take(ends_[1], ends_[0]);
  }
}

void FaultyLine::take(int from, int to) {
  Frame frame(kLargestFrame);
  sockaddr_ll source{};
  socklen_t size = sizeof source;
  const ssize_t count =
      ::recvfrom(from, frame.data(), frame.size(), 0, reinterpret_cast<sockaddr*>(&source), &size);
  if (count <= 0 || source.sll_pkttype == PACKET_OUTGOING) return;
  frame.resize(static_cast<std::size_t>(count));
  if (isDatagram(frame)) {
    treat(std::move(frame), to);
  } else {
    pass(frame, to);
  }
}

void FaultyLine::treat(Frame frame, int to) {
  if (happens(faults_.lost)) {
    ++lost_;
  } else if (happens(faults_.late)) {
    ++lateCount_;
    late_.push_back({to, std::move(frame)});
  } else {
    ++passed_;
    pass(frame, to);
    if (happens(faults_.doubled)) {
      ++doubled_;
      pass(frame, to);
    }
    release(1);
  }
}

void FaultyLine::pass(const Frame& frame, int to) {
  [[maybe_unused]] const ssize_t count = ::send(to, frame.data(), frame.size(), 0);
}

void FaultyLine::release(int passed) {
  for (Late& late : late_) late.passing -= passed;
  while (!late_.empty() && late_.front().passing <= 0) {
    pass(late_.front().frame, late_.front().to);
    late_.pop_front();
  }
}

bool FaultyLine::happens(int percent) {
  return std::uniform_int_distribution<int>(1, 100)(random_) <= percent;
}

}  // namespace korvel
