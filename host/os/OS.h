#pragma once

// The operating system as a plug-in sees it: files, the user's and the machine's name, a pause.
//
// OS() and OSPrivate() answer from before the first plug-in is loaded until after the last one is
// gone. The names come from the system or from the command line; they are not checked here. A
// machine may have no host name yet when a plug-in starts: then the name is empty, and is asked
// for again later.
//
// sleepMilliseconds() blocks the caller. On the host thread that stops everything that the user
// sees. It is used to wait at most a second for a file that another machine has just written, and
// until the thumbnails are done before an edit is read again.

#include "host/base/HostApi.h"
#include "host/base/LightweightString.h"

class iFileManager;
class iNetworkService;

/// The host's operating-system layer. Lives from before the first plug-in is loaded until after the
/// last is unloaded.
class KV_HOST_API iOS {
 public:
  virtual ~iOS() = default;

  [[nodiscard]] virtual iFileManager& fileManager() = 0;

  /// The user's name as the system (or the station's command line) reports it, unchanged.
  [[nodiscard]] virtual LightweightString<wchar_t> currentUserName() const = 0;

  /// This machine's network host name; empty when the system has none.
  [[nodiscard]] virtual LightweightString<wchar_t> networkHostName() const = 0;

  /// Blocks the calling thread; returns at once where the host has done the waiting already.
  virtual void sleepMilliseconds(unsigned milliseconds) = 0;
};

/// Operating-system services that the host keeps to itself and its drivers.
class KV_HOST_API iOSPrivate {
 public:
  virtual ~iOSPrivate() = default;

  [[nodiscard]] virtual iNetworkService& networkService() = 0;
};

KV_HOST_API iOS& OS();
KV_HOST_API iOSPrivate& OSPrivate();
