#pragma once

#include "ProjectShare/Broadcaster.h"
#include "ProjectShare/Receiver.h"
#include "host/plugin/KvPluginBase.h"
#include "host/plugin/Shutdown.h"

namespace ProjectSharing {

/// The plug-in's one object: makes the working components after loading and releases them.
///
///     load -> built -> postLoadInitialization -> running -> shutdown -> preUnloadDeinitialization
///
/// It is built while the library is loaded, handed out by kvPluginInstance and never deleted. Host
/// thread, one call at a time.
class DeviceDriver : public KvDeviceDriverBase {
 public:
  /// Names the plug-in and registers shutdown() with the host.
  DeviceDriver();

  /// Makes the broadcaster, the receiver, the permissions manager and the project share, in this
  /// order; the driver is initialised when all are there.
  void postLoadInitialization() override;

  /// Releases the broadcaster, the receiver and then the components. Nothing when the driver is not
  /// initialised.
  void preUnloadDeinitialization() override;

  /// The application ends, for whatever reason: releases the broadcaster and the receiver, so that
  /// nothing is sent or applied any more. The components stay, and the driver stays initialised.
  void shutdown(Shutdown::eExitType type);

 private:
  void releaseTransport();

  // Required: in this order, so that destruction releases the receiver first, unlike shutdown().
  Kv::Ptr<Broadcaster> broadcaster_;
  Kv::Ptr<Receiver> receiver_;
};

}  // namespace ProjectSharing

/// The plug-in's entry. Writes the address of the driver, or null where there is none, and tells
/// whether it is initialised.
extern "C" bool kvPluginInstance(KvPluginBase** plugin);
