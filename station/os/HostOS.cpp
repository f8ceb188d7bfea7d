#include "station/os/HostOS.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "host/base/Text.h"
#include "station/base/Events.h"
#include "station/base/StationSettings.h"

using namespace korvel;

namespace korvel {

namespace {

HostOS* current = nullptr;

HostOS& requireCurrent() {
  if (current) return *current;
  std::fputs("The operating-system layer was used outside of the station's life.\n", stderr);
  std::abort();
}

LightweightString<wchar_t> wide(const std::string& text) {
  return fromUTF8(text.data(), static_cast<int>(text.size()));
}

}  // namespace

}  // namespace korvel

iOS& OS() { return requireCurrent(); }

iOSPrivate& OSPrivate() { return requireCurrent(); }

namespace korvel {

HostOS::HostOS(iNetworkService& network) : network_(network) { current = this; }

HostOS::~HostOS() {
  if (current == this) current = nullptr;
}

LightweightString<wchar_t> HostOS::currentUserName() const { return wide(settings().user); }

LightweightString<wchar_t> HostOS::networkHostName() const { return wide(settings().host); }

void HostOS::sleepMilliseconds(unsigned milliseconds) {
  // The operation is to make its caller wait so long; why is the caller's matter. A message whose
  // file was waited for beside this thread is not waited for again.
  if (wasWaitedFor()) return;
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

}  // namespace korvel
