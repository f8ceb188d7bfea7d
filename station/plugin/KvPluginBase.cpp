#include "host/plugin/KvPluginBase.h"

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
