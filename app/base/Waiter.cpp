#include "app/base/Waiter.h"

#include <sys/eventfd.h>
#include <unistd.h>

namespace korvel {

Waiter::Waiter() : descriptor_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Waiter::~Waiter() { ::close(descriptor_); }

void Waiter::end() {
  change([this] { ending_ = true; });
  ::eventfd_write(descriptor_, 1);
}

bool Waiter::isEnding() const {
  const std::lock_guard lock(mutex_);
  return ending_;
}

}  // namespace korvel
