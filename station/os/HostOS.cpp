#include "station/os/HostOS.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <utility>

#include "host/base/Text.h"
#include "station/base/Events.h"
#include "station/base/StationSettings.h"

using namespace korvel;

namespace korvel {

namespace {

HostOS* current = nullptr;

HostOS& requireCurrent() {
  if (current) return *current;
  std::fputs("The operating-system layer was used outside of the station's life.\n", stderr);
  std::abort();
}

LightweightString<wchar_t> wide(const std::string& text) {
  return fromUTF8(text.data(), static_cast<int>(text.size()));
}

}  // namespace

}  // namespace korvel

iOS& OS() { return requireCurrent(); }

iOSPrivate& OSPrivate() { return requireCurrent(); }

namespace korvel {

HostOS::HostOS(iNetworkService& network) : network_(network) { current = this; }

HostOS::~HostOS() {
  if (current == this) current = nullptr;
}

LightweightString<wchar_t> HostOS::currentUserName() const { return wide(settings().user); }

LightweightString<wchar_t> HostOS::networkHostName() const { return wide(settings().host); }

void HostOS::sleepMilliseconds(unsigned milliseconds) {
  // A message whose file was waited for on another thread is not waited for again: the host thread
  // would stand still for nothing.
  if (wasWaitedFor()) return;
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

namespace {

constexpr int kEndedBySignal = 128;  // what shells add to the signal's number

sigset_t endingSignals() {
  sigset_t set;
  ::sigemptyset(&set);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) ::sigaddset(&set, signal);
  return set;
}

}  // namespace

Signals::Signals(std::function<void()> onFirst, TakeInterrupt takeInterrupt)
    : onFirst_(std::move(onFirst)), takeInterrupt_(std::move(takeInterrupt)) {
  const sigset_t set = endingSignals();
  // Blocked before any thread starts: a thread that does not block them would take the signal's
  // default action, the end of the program.
  ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
  ::signal(SIGPIPE, SIG_IGN);
  signals_ = ::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
  stop_ = ::eventfd(0, EFD_CLOEXEC);
  thread_ = std::thread([this] { watch(); });
}

Signals::~Signals() {
  ::eventfd_write(stop_, 1);
  thread_.join();
  ::close(signals_);
  ::close(stop_);
}

void Signals::watch() {
  std::array<pollfd, 2> wanted{pollfd{signals_, POLLIN, 0}, pollfd{stop_, POLLIN, 0}};
  bool isFirst = true;
  while (true) {
    // Interrupted (EINTR): ask again.
    if (::poll(wanted.data(), wanted.size(), -1) < 0) continue;
    if (wanted[1].revents != 0) return;
    signalfd_siginfo info{};
    if (::read(signals_, &info, sizeof info) != sizeof info) continue;
    if (info.ssi_signo == SIGINT && takeInterrupt_ && takeInterrupt_()) continue;
    // The user asks a second time when a clean end hangs, most likely on the share. Destructors
    // would wait for that share as well, so none runs.
    if (!std::exchange(isFirst, false))
      std::_Exit(kEndedBySignal + static_cast<int>(info.ssi_signo));
    onFirst_();
  }
}

}  // namespace korvel
