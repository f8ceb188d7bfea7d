#include "tests/fakes/ForkedProcess.h"

#include <grp.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace korvel {

namespace {

constexpr int kPatience = 10'000;  // milliseconds
constexpr uid_t kOrdinaryUser = 65534;

bool mountTiny(const char* folder, int readOnly) {
  if (::unshare(CLONE_NEWNS) != 0) return false;
  if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
  const unsigned long flags = readOnly != 0 ? static_cast<unsigned long>(MS_RDONLY) : 0UL;
  return ::mount("tiny", folder, "tmpfs", flags, "size=4k,nr_inodes=3,mode=0777") == 0;
}

}  // namespace

Signal::Signal() {
  if (::pipe(ends_) != 0) std::abort();
}

Signal::~Signal() {
  ::close(ends_[0]);
  ::close(ends_[1]);
}

void Signal::send() const {
  if (::write(ends_[1], "!", 1) != 1) std::abort();
}

bool Signal::wait() const {
  struct pollfd end {
    ends_[0], POLLIN, 0
  };
  char mark = 0;
  return ::poll(&end, 1, kPatience) == 1 && ::read(ends_[0], &mark, 1) == 1;
}

ForkedProcess::ForkedProcess(const std::function<int()>& function) : pid_(::fork()) {
  if (pid_ < 0) std::abort();
  if (pid_ == 0) ::_exit(function());
}

ForkedProcess::~ForkedProcess() { kill(); }

void ForkedProcess::kill() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  wait();
}

int ForkedProcess::wait() {
  int status = 0;
  if (pid_ <= 0 || ::waitpid(pid_, &status, 0) != pid_) return -1;
  pid_ = 0;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int runAsOrdinaryUser(const std::function<int()>& function) {
  ForkedProcess child([&function] {
    if (::geteuid() == 0 && (::setgroups(0, nullptr) != 0 || ::setgid(kOrdinaryUser) != 0 ||
                             ::setuid(kOrdinaryUser) != 0)) {
      return -1;
    }
    return function();
  });
  return child.wait();
}

int runWithTinyFileSystem(const char* folder, int readOnly, const std::function<int()>& function) {
  constexpr int kNoMount = 200;
  ForkedProcess child([&] { return mountTiny(folder, readOnly) ? function() : kNoMount; });
  const int result = child.wait();
  return result == kNoMount ? -2 : result;
}

}  // namespace korvel
