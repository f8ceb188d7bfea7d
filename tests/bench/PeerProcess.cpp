#include "tests/bench/PeerProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <thread>
#include <utility>

namespace korvel {

namespace {

constexpr auto kPatienceAtEnd = std::chrono::seconds(5);

std::array<int, 2> makePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) std::abort();
  return ends;
}

}  // namespace

PeerProcess::PeerProcess(std::vector<std::string> words) {
  const auto input = makePipe();
  const auto output = makePipe();
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
  ::posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  started_ = Clock::now();
  if (::posix_spawn(&pid_, arguments[0], &actions, nullptr, arguments.data(), environ) != 0) {
    pid_ = -1;
  }
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(input[0]);
  ::close(output[1]);
  input_ = input[1];
  output_ = output[0];
  ::signal(SIGPIPE, SIG_IGN);  // a program that died shows by its silence
}

PeerProcess::PeerProcess(PeerProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      input_(std::exchange(other.input_, -1)),
      output_(std::exchange(other.output_, -1)),
      started_(other.started_),
      pending_(std::move(other.pending_)) {}

PeerProcess::~PeerProcess() {
  if (input_ >= 0) ::close(input_);
  if (output_ >= 0) ::close(output_);
  if (pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

void PeerProcess::write(const std::string& line) const {
  const std::string text = line + "\n";
  if (::write(input_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) return;
}

std::optional<std::string> PeerProcess::readLine(std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  for (;;) {
    if (const std::size_t end = pending_.find('\n'); end != std::string::npos) {
      std::string line = pending_.substr(0, end);
      pending_.erase(0, end + 1);
      return line;
    }
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd readable{output_, POLLIN, 0};
    if (left.count() <= 0 || ::poll(&readable, 1, static_cast<int>(left.count())) <= 0) return {};
    std::array<char, 4096> block{};
    const ssize_t count = ::read(output_, block.data(), block.size());
    if (count <= 0) return {};
    pending_.append(block.data(), static_cast<std::size_t>(count));
  }
}

bool PeerProcess::finish() {
  ::close(std::exchange(input_, -1));
  const auto deadline = Clock::now() + kPatienceAtEnd;
  int status = -1;
  while (pid_ > 0 && Clock::now() < deadline) {
    if (::waitpid(pid_, &status, WNOHANG) == pid_) pid_ = -1;
    // A child's end cannot be waited for with a limit; this is asked again.
    if (pid_ > 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return pid_ < 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace korvel
