#pragma once

#include <functional>
#include <thread>

#include "host/net/iNetworkService.h"
#include "host/os/OS.h"
#include "station/os/HostFileManager.h"

namespace korvel {

/// The station's operating-system layer: what OS() and OSPrivate() return from its construction to
/// its destruction. Names are those of the settings. Built before the first plug-in is loaded and
/// destroyed after the last is unloaded.
class HostOS : public iOS, public iOSPrivate {
 public:
  /// The network service must outlive this.
  explicit HostOS(iNetworkService& network);
  HostOS(const HostOS&) = delete;
  HostOS& operator=(const HostOS&) = delete;
  ~HostOS() override;

  [[nodiscard]] iFileManager& fileManager() override { return files_; }
  [[nodiscard]] LightweightString<wchar_t> currentUserName() const override;
  [[nodiscard]] LightweightString<wchar_t> networkHostName() const override;
  void sleepMilliseconds(unsigned milliseconds) override;
  [[nodiscard]] iNetworkService& networkService() override { return network_; }

 private:
  iNetworkService& network_;
  HostFileManager files_;
};

/// Takes SIGINT, SIGTERM and SIGHUP for the whole program: the first calls a function, on a thread
/// of this object; a second one ends the program at once, for a share that does not answer. SIGPIPE
/// is ignored from now on: writers see the failure as EPIPE. An interrupt may be taken by a part of
/// the program that does not end for it, such as the reader of a line; that one does not count.
///
/// To be made before other threads, which inherit that these signals are blocked.
class Signals {
 public:
  /// Whether an interrupt (SIGINT) was taken.
  using TakeInterrupt = std::function<bool()>;

  explicit Signals(std::function<void()> onFirst, TakeInterrupt takeInterrupt = {});
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  /// Takes signals no longer; they stay blocked.
  ~Signals();

 private:
  void watch();

  std::function<void()> onFirst_;
  TakeInterrupt takeInterrupt_;
  int signals_ = -1;
  int stop_ = -1;
  std::thread thread_;
};

}  // namespace korvel
