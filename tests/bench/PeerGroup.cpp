#include "tests/bench/PeerGroup.h"

#include <algorithm>
#include <cstdio>
#include <thread>
#include <utility>

namespace korvel {

namespace {

constexpr auto kPatience = std::chrono::seconds(15);
constexpr auto kSilence = std::chrono::milliseconds(300);  ///< after so long the rest is lost
constexpr int kPaces = 12;
constexpr double kSlower = 1.25;
constexpr double kNanoseconds = 1e9;

}  // namespace

PeerGroup::PeerGroup(Transport transport, std::string folder, int port)
    : transport_(std::move(transport)),
      folder_(std::move(folder)),
      port_(port),
      boardFile_(folder_ + "/board-" + std::to_string(port)),
      board_(boardFile_) {}

bool PeerGroup::start() {
  peers_.push_back(std::make_unique<PeerProcess>(
      std::vector<std::string>{transport_.program, boardFile_, std::to_string(peers_.size()),
                               std::to_string(port_), folder_, transport_.kind}));
  return peers_.back()->readLine() == "ready";
}

bool PeerGroup::growTo(std::size_t receivers) {
  while (peers_.size() < receivers + 1) {
    if (!start()) return false;
  }
  interval_ = 0;
  const auto deadline = PeerProcess::Clock::now() + kPatience;
  for (std::size_t peer = 1; peer < peers_.size(); ++peer) board_->peers[peer].count = 0;
  while (fewestReceived() == 0) {
    if (PeerProcess::Clock::now() > deadline) return false;
    peers_[0]->write("send 1 0");
    if (peers_[0]->readLine() != "sent") return false;
    // The pace of the trial messages: whether a new peer listens shows only in what it receives.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return true;
}

std::uint32_t PeerGroup::fewestReceived() const {
  std::uint32_t fewest = UINT32_MAX;
  for (std::size_t peer = 1; peer < peers_.size(); ++peer) {
    fewest = std::min(fewest, board_->peers[peer].count.load());
  }
  return fewest;
}

void PeerGroup::waitForArrivals(std::uint32_t count) const {
  std::uint64_t before = 0;
  auto changed = PeerProcess::Clock::now();
  while (fewestReceived() < count && PeerProcess::Clock::now() - changed < kSilence) {
    // Peers only count, in shared memory: to be woken by each would slow what is measured.
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    std::uint64_t received = 0;
    for (const Board::Peer& peer : board_->peers) received += peer.count.load();
    if (received != before) changed = PeerProcess::Clock::now();
    before = received;
  }
}

std::optional<PeerGroup::Burst> PeerGroup::send(std::uint32_t count, double interval) {
  for (Board::Peer& peer : board_->peers) {
    peer.count = 0;
    peer.lastAt = 0;
  }
  const auto nanoseconds = static_cast<long long>(interval * kNanoseconds);
  peers_[0]->write("send " + std::to_string(count) + " " + std::to_string(nanoseconds));
  if (peers_[0]->readLine(std::chrono::seconds(30)) != "sent") return std::nullopt;
  waitForArrivals(count);
  Burst burst{0, 1e12};
  for (std::size_t peer = 1; peer < peers_.size(); ++peer) {
    const Board::Peer& each = board_->peers[peer];
    const std::uint32_t taken = std::min(each.count.load(), count);
    const auto time = static_cast<double>(each.lastAt.load() - board_->firstSentAt.load());
    burst.lost += count - taken;
    burst.perSecond = std::min(burst.perSecond, time > 0 ? taken / time * kNanoseconds : 0);
  }
  return burst;
}

std::optional<std::vector<double>> PeerGroup::latencies(std::uint32_t count, double interval) {
  const auto burst = send(count, interval);
  if (!burst || burst->lost > 0) return std::nullopt;
  std::vector<double> all;
  for (std::size_t peer = 1; peer < peers_.size(); ++peer) {
    for (std::uint32_t number = 0; number < count; ++number) {
      all.push_back(static_cast<double>(board_->peers[peer].latency[number].load()) / kNanoseconds);
    }
  }
  return all;
}

std::optional<double> PeerGroup::rate(std::uint32_t count) {
  for (int pace = 0; pace < kPaces; ++pace) {
    const auto burst = send(count, interval_);
    if (!burst) return std::nullopt;
    if (burst->lost == 0) return burst->perSecond;
    const double taken = burst->perSecond > 0 ? 1 / burst->perSecond : 1e-5;
    interval_ = std::max(interval_ * kSlower, taken);
  }
  return std::nullopt;
}

}  // namespace korvel
