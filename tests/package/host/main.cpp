#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include "TinyHost.h"
#include "host/base/Text.h"
#include "host/plugin/KvPluginBase.h"
#include "host/project/iProjectShare.h"

namespace {

void require(const char* what, bool isSo) {
  std::printf("%s: %s\n", what, isSo ? "yes" : "NO");
  if (!isSo) std::exit(1);
}

KvPluginBase& loaded(void* library) {
  using Entry = bool (*)(KvPluginBase**);
  const auto entry = reinterpret_cast<Entry>(::dlsym(library, "kvPluginInstance"));
  KvPluginBase* plugin = nullptr;
  require("the plug-in waits to be initialised", entry && !entry(&plugin) && plugin);
  plugin->postLoadInitialization();
  require("it is initialised", entry(&plugin));
  return *plugin;
}

void work(TinyHost& host) {
  for (ProjectListener* each : std::vector(host.listeners)) each->handleProjectEntry();
  host.sent.clear();  // what tells the others of the entry
  for (ProjectListener* each : std::vector(host.listeners)) {
    each->handleLogStorage(Cookie("E0001", false), false);
  }
  require("a saved edit leaves as one datagram",
          host.sent == std::vector<std::string>{"d\xAC"
                                                "2\xAC"
                                                "P0001\xAC"
                                                "E0001\xAC"});
  host.deliver(
      "d\xAC"
      "13\xAC"
      "P0001\xAC"
      "BEN\xAC" +
      std::to_string(Cookie::getLocalMachineNumber()) +
      "\xAC"
      "beep\xAC");
  require("another machine's request runs a command", host.commandsRun == 1);
  iProjectShare& share = *iProjectShare::instance();
  require("a project is locked",
          share.lockProject(Cookie("P0002", false)) && host.held.size() == 1);
  require("its holder is named",
          share.getProjectLockOwner(Cookie("P0002", false)).str() == L"ANNA");
  require("the lock is released", share.unlockCurrentlyLockedProject() && host.held.empty());
}

}  // namespace

int main() {
  TinyHost& host = TinyHost::instance();
  void* const library = ::dlopen(PLUGIN, RTLD_NOW | RTLD_LOCAL);
  if (!library) std::printf("%s\n", ::dlerror());
  require("the plug-in loads", library != nullptr);
  KvPluginBase& plugin = loaded(library);
  require("it is Project Share", plugin.pluginName().str() == "Project Share");
  work(host);
  for (const auto& callback : host.atTheEnd) callback->call(Shutdown::eNormalExit);
  plugin.preUnloadDeinitialization();
  host.atTheEnd.clear();
  require("nobody listens any more", host.listeners.empty() && !host.receiver);
  require("it is unloaded", ::dlclose(library) == 0);
}
