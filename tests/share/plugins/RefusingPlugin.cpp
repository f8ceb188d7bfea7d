#include "host/base/Log.h"
#include "host/plugin/KvPluginBase.h"
#include "host/plugin/Shutdown.h"

namespace korvel {

namespace {

/// Registers for the shutdown while it is built, as drivers do, and starts nothing.
class Refusing : public KvPluginBase {
 public:
  Refusing() : KvPluginBase("Refusing", "1") {
    Shutdown::addCallback(new Shutdown::MethodCallback<Refusing>(this, &Refusing::shutdown), 100);
  }

 private:
  void shutdown(Shutdown::eExitType) { Log("the refusing plug-in let go\n"); }
};

Refusing refusing;

}  // namespace

}  // namespace korvel

using namespace korvel;

/// A plug-in that is not initialised, whatever the host calls.
extern "C" __attribute__((visibility("default"))) bool kvPluginInstance(KvPluginBase** plugin) {
  *plugin = &refusing;
  return false;
}
