#include "ProjectShare/HostEntry.h"

#include <exception>

#include "host/base/Log.h"

namespace {

void logFailure(const char* entry, const char* reason) noexcept {
  try {
    LogBoth("Project Share: %s failed: %s\n", entry, reason);
  } catch (...) {
    // The log itself failed: there is nobody left to tell.
  }
}

}  // namespace

void reportFailedEntry(const char* entry) noexcept {
  try {
    throw;
  } catch (const std::exception& failure) {
    logFailure(entry, failure.what());
  } catch (...) {
    logFailure(entry, "unknown exception");
  }
}
