#include "tools/base/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace korvel {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kTimeToDie = std::chrono::milliseconds(200);

[[noreturn]] void runAndEnd(const std::function<void(int)>& work, int pipe) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  work(pipe);
  ::_exit(0);
}

}  // namespace

ChildProcess::ChildProcess(const std::function<void(int)>& work) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return;
  pipe_ = Descriptor(ends[0]);
  const Descriptor writeEnd(ends[1]);
  process_ = ::fork();
  if (process_ == 0) runAndEnd(work, writeEnd.get());
}

ChildProcess::~ChildProcess() { kill(); }

void ChildProcess::kill() {
  if (process_ <= 0) return;
  ::kill(process_, SIGKILL);
  const auto deadline = Clock::now() + kTimeToDie;
  while (::waitpid(process_, nullptr, WNOHANG) == 0 && Clock::now() < deadline) ::usleep(500);
  process_ = -1;
}

ChildProcess::Reading ChildProcess::read(Clock::time_point deadline, std::string& bytes) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  pollfd readable{pipe_.get(), POLLIN, 0};
  if (left <= 0 || ::poll(&readable, 1, static_cast<int>(left)) == 0) return Reading::eLate;
  char block[4096];
  const ssize_t count = ::read(pipe_.get(), block, sizeof block);
  if (count <= 0) return Reading::eEnded;
  bytes.append(block, static_cast<std::size_t>(count));
  return Reading::eGot;
}

}  // namespace korvel
