#include "ProjectShare/DeviceDriver.h"

#include "ProjectShare/HostEntry.h"
#include "ProjectShare/PermissionsManager.h"
#include "ProjectShare/ProjectShare.h"
#include "host/base/Log.h"

namespace ProjectSharing {

namespace {

constexpr int kShutdownPriority = 100;

/// The driver is there before the host calls any entry; without one the plug-in is refused.
DeviceDriver* const theDriver =
    guardedEntry("loading", static_cast<DeviceDriver*>(nullptr), [] { return new DeviceDriver; });

}  // namespace

DeviceDriver::DeviceDriver() : KvDeviceDriverBase("Project Share", "14.5.0.0") {
  const Kv::Ptr<Shutdown::Callback> callback(
      new Shutdown::MethodCallback<DeviceDriver>(this, &DeviceDriver::shutdown));
  Shutdown::addCallback(callback, kShutdownPriority);
}

void DeviceDriver::postLoadInitialization() {
  guardedEntry("postLoadInitialization", [&] {
    broadcaster_ = new Broadcaster;
    receiver_ = new Receiver;
    components_.push_back(new PermissionsManager);
    components_.push_back(new ProjectShare);
    initialised_ = true;
  });
}

void DeviceDriver::shutdown(Shutdown::eExitType) {
  guardedEntry("shutdown", [&] { releaseTransport(); });
}

void DeviceDriver::preUnloadDeinitialization() {
  if (!initialised_) return;
  guardedEntry("preUnloadDeinitialization", [&] { releaseTransport(); });
  initialised_ = false;
  try {
    closedown();
  } catch (...) {
    printToStandardOutput("Exception freeing deleting kvd_main devices\n");
  }
}

// The shutdown callback and the unload both call it; the second call finds nothing to release.
void DeviceDriver::releaseTransport() {
  broadcaster_.reset();
  receiver_.reset();
}

}  // namespace ProjectSharing

extern "C" KV_HOST_API bool kvPluginInstance(KvPluginBase** plugin) {
  *plugin = ProjectSharing::theDriver;
  return ProjectSharing::theDriver && ProjectSharing::theDriver->isInitialised();
}
