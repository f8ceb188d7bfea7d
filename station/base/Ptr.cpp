#include "host/base/Ptr.h"

#include <atomic>

namespace korvel {

namespace {

/// An object's count. It is the key itself, so that finding a count costs nothing.
using Count = std::atomic<long>;

/// Added when the last reference is gone: an object that makes and drops pointers to itself while
/// it is being destroyed is not destroyed again.
constexpr long kDying = 1L << 40;

Count& countOf(void* refCountId) { return *static_cast<Count*>(refCountId); }

}  // namespace

}  // namespace korvel

using namespace korvel;

namespace Kv {

InternalRefCount::InternalRefCount() : refCountId_(new Count(0)) {}

InternalRefCount::~InternalRefCount() { delete static_cast<Count*>(refCountId_); }

void addReference(void* refCountId) { countOf(refCountId).fetch_add(1, std::memory_order_relaxed); }

bool releaseReference(void* refCountId) {
  if (countOf(refCountId).fetch_sub(1, std::memory_order_acq_rel) != 1) return false;
  countOf(refCountId).store(kDying, std::memory_order_relaxed);
  return true;
}

}  // namespace Kv
