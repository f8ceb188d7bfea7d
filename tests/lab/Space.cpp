#include "tests/lab/Space.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "tests/share/ProgramRun.h"

namespace korvel {

namespace {

std::string pathOf(int descriptor) {
  return "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(descriptor);
}

int openOfThread(const char* kind) {
  return ::open((std::string("/proc/thread-self/ns/") + kind).c_str(), O_RDONLY | O_CLOEXEC);
}

int unshareHere() { return ::unshare(CLONE_NEWNET | CLONE_NEWUTS) == 0 ? 0 : errno; }

}  // namespace

Space::Space(const std::string& hostName) {
  int error = 0;
  std::thread([&] {
    if ((error = unshareHere()) != 0) return;
    if (::sethostname(hostName.c_str(), hostName.size()) != 0) error = errno;
    network_ = openOfThread("net");
    names_ = openOfThread("uts");
  }).join();
  if (error != 0) throw std::runtime_error(std::string("no namespace: ") + std::strerror(error));
  ip("link set lo up");
}

Space::~Space() {
  ::close(network_);
  ::close(names_);
}

std::string Space::whyNone() {
  int error = 0;
  std::thread([&error] { error = unshareHere(); }).join();
  if (error != 0) {
    return std::string("this user may make no network namespaces (") + std::strerror(error) +
           "): play the lab as root";
  }
  if (runProgram({"ip", "-V"}).status != 0 || runProgram({"nsenter", "-V"}).status != 0) {
    return "ip and nsenter are not here: install iproute2 and util-linux";
  }
  return {};
}

std::vector<std::string> Space::prefix() const {
  return {"nsenter", "--net=" + pathOf(network_), "--uts=" + pathOf(names_)};
}

void Space::ip(const std::string& lines) const {
  std::vector<std::string> words = prefix();
  words.insert(words.end(), {"ip", "-batch", "-"});
  const ProgramRun run = runProgram(words, lines + "\n");
  if (run.status != 0) throw std::runtime_error("ip " + lines + ": " + run.errors);
}

void Space::within(const std::function<void()>& work) const {
  std::thread([&] {
    if (::setns(network_, CLONE_NEWNET) == 0) work();
  }).join();
}

std::string Space::networkPath() const { return pathOf(network_); }

}  // namespace korvel
