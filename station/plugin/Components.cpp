#include "host/project/iPermissionsManager.h"
#include "host/project/iProjectShare.h"
#include "station/plugin/InstanceRegistry.h"

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
