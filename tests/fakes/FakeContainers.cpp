#include "tests/fakes/FakeContainers.h"

#include "host/base/Text.h"
#include "tests/fakes/FakeHost.h"

using namespace korvel;

BinManager* BinManager::instance() { return &FakeHost::current().bins; }
RackManager* RackManager::instance() { return &FakeHost::current().racks; }
ProjectFilterManager* ProjectFilterManager::instance() { return &FakeHost::current().filters; }

LightweightString<wchar_t> getFileNameForLogGroup(const Cookie& cookie,
                                                  const LightweightString<wchar_t>& name,
                                                  const Cookie& project) {
  FakeHost& host = FakeHost::current();
  host.journal.asked("getFileNameForLogGroup", {cookie, name, project});
  return host.fileOf(cookie, ".json");
}

LightweightString<wchar_t> UserFilter::getFilterMetadataFileName(const Cookie& cookie) {
  FakeHost& host = FakeHost::current();
  host.journal.asked("UserFilter::getFilterMetadataFileName", {cookie});
  return host.fileOf(cookie, ".json");
}
