#pragma once

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

}  // namespace korvel
