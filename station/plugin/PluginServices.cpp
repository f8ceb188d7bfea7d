#include "station/plugin/PluginServices.h"

#include <algorithm>
#include <vector>

#include "host/base/Log.h"
#include "host/plugin/KvPluginBase.h"
#include "host/plugin/Shutdown.h"
#include "host/project/iPermissionsManager.h"
#include "host/project/iProjectShare.h"

using namespace korvel;

const LightweightString<wchar_t> iPermissionsManager::kNoOwner(L"<NOBODY>");

iPermissionsManager::iPermissionsManager(const LightweightString<char>& name)
    : KvResourceTypeBase(name) {
  InstanceRegistry<iPermissionsManager>::add(this);
}

iPermissionsManager::~iPermissionsManager() { InstanceRegistry<iPermissionsManager>::remove(this); }

iPermissionsManager* iPermissionsManager::instance() {
  return InstanceRegistry<iPermissionsManager>::newest();
}

iProjectShare::iProjectShare(const LightweightString<char>& name) : KvResourceTypeBase(name) {
  InstanceRegistry<iProjectShare>::add(this);
}

iProjectShare::~iProjectShare() { InstanceRegistry<iProjectShare>::remove(this); }

iProjectShare* iProjectShare::instance() { return InstanceRegistry<iProjectShare>::newest(); }

KvPluginBase::KvPluginBase(const LightweightString<char>& name,
                           const LightweightString<char>& version)
    : name_(name), version_(version) {}

KvPluginBase::~KvPluginBase() { closedown(); }

void KvPluginBase::closedown() {
  while (!components_.empty()) {
    KvComponentBase* const last = components_.back();
    components_.pop_back();
    delete last;
  }
}

namespace korvel {

namespace {

struct Entry {
  Kv::Ptr<Shutdown::Callback> callback;
  int priority;
};

/// Built on first use: plug-ins register while their static objects are built, perhaps before this
/// file's. Never destroyed.
std::vector<Entry>& entries() {
  static auto* const list = new std::vector<Entry>;
  return *list;
}

void callGuarded(Shutdown::Callback& callback, Shutdown::eExitType type) {
  try {
    callback.call(type);
  } catch (...) {
    LogBoth("A shutdown callback failed; shutting down goes on.\n");
  }
}

}  // namespace

}  // namespace korvel

void Shutdown::addCallback(const Kv::Ptr<Callback>& callback, int priority) {
  if (!callback) return;
  const auto lower = [priority](const Entry& entry) { return entry.priority < priority; };
  entries().insert(std::find_if(entries().begin(), entries().end(), lower), {callback, priority});
}

namespace korvel {

void runShutdownCallbacks(Shutdown::eExitType type) {
  while (!entries().empty()) {
    // Taken out before it is called: a callback may add others.
    const Entry first = entries().front();
    entries().erase(entries().begin());
    callGuarded(*first.callback, type);
  }
}

}  // namespace korvel
