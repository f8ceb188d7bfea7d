#include "host/plugin/KvPluginBase.h"

namespace {

KvPluginBase refusing(LightweightString<char>("Refusing"), LightweightString<char>("1"));

}  // namespace

/// A plug-in that is not initialised, whatever the host calls.
extern "C" __attribute__((visibility("default"))) bool kvPluginInstance(KvPluginBase** plugin) {
  *plugin = &refusing;
  return false;
}
