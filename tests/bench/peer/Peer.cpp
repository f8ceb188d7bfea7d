#include "tests/bench/peer/Peer.h"

#include <sys/prctl.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace korvel {

namespace {

/// Shorter waits are spent awake, since falling asleep and waking takes longer.
constexpr std::int64_t kShortestSleep = 200'000;

void waitUntil(std::int64_t time) {
  if (time - Board::now() > kShortestSleep) {
    const timespec until{time / 1'000'000'000, time % 1'000'000'000};
    ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
  }
  while (Board::now() < time) {
  }
}

void sendAll(Board& board, iTransport& transport, std::uint32_t count, std::int64_t interval) {
  const std::int64_t start = Board::now();
  board.firstSentAt.store(start);
  for (std::uint32_t number = 0; number < count; ++number) {
    if (interval > 0) waitUntil(start + number * interval);
    board.sending(number);
    transport.send(number % Board::kMessages);
  }
}

void say(const char* word) {
  std::puts(word);
  std::fflush(stdout);
}

}  // namespace

PeerArguments readPeerArguments(int argc, const char* const* argv) {
  if (argc < 5) {
    std::fprintf(stderr, "usage: %s BOARD NUMBER PORT FOLDER [KIND]\n", argv[0]);
    std::exit(2);
  }
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  return {argv[1], static_cast<std::size_t>(std::atoi(argv[2])), std::atoi(argv[3]), argv[4],
          argc > 5 ? argv[5] : ""};
}

void obey(Board& board, iTransport& transport) {
  say("ready");
  char line[256];
  while (std::fgets(line, sizeof line, stdin)) {
    unsigned count = 0;
    long long interval = 0;
    if (std::sscanf(line, "send %u %lld", &count, &interval) != 2) continue;
    transport.onSendingThread([&] { sendAll(board, transport, count, interval); });
    say("sent");
  }
}

}  // namespace korvel
