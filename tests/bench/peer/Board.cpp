#include "tests/bench/peer/Board.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace korvel {

std::int64_t Board::now() {
  timespec time{};
  ::clock_gettime(CLOCK_MONOTONIC, &time);
  return std::int64_t(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

void Board::sending(std::uint32_t number) {
  sentAt[number % kMessages].store(now(), std::memory_order_release);
}

void Board::arrived(std::size_t peer, std::uint32_t number) {
  const std::int64_t time = now();
  Peer& own = peers[peer];
  const std::size_t slot = number % kMessages;
  own.latency[slot].store(time - sentAt[slot].load(std::memory_order_acquire));
  own.lastAt.store(time);
  own.count.fetch_add(1, std::memory_order_release);
}

SharedBoard::SharedBoard(const std::string& path) {
  const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  void* memory = MAP_FAILED;
  if (file >= 0 && ::ftruncate(file, sizeof(Board)) == 0) {
    memory = ::mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  }
  if (memory == MAP_FAILED) {
    std::perror(path.c_str());
    std::exit(1);
  }
  ::close(file);
  board_ = static_cast<Board*>(memory);
}

SharedBoard::~SharedBoard() { ::munmap(board_, sizeof(Board)); }

}  // namespace korvel
