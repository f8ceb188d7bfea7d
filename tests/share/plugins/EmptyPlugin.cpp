#include "host/plugin/KvPluginBase.h"

/// A plug-in's entry without a plug-in.
extern "C" __attribute__((visibility("default"))) bool kvPluginInstance(KvPluginBase** plugin) {
  *plugin = nullptr;
  return false;
}
