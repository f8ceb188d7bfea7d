#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

namespace korvel {

/// Lets this process be a user without rights on what root owns, for as long as it lives.
class AsNobody {
 public:
  AsNobody() : isRoot_(::geteuid() == 0) {
    if (isRoot_ && ::seteuid(65534) != 0) ADD_FAILURE() << "the user stays root";
  }
  AsNobody(const AsNobody&) = delete;
  AsNobody& operator=(const AsNobody&) = delete;
  ~AsNobody() {
    if (isRoot_ && ::seteuid(0) != 0) ADD_FAILURE() << "the user does not become root again";
  }

 private:
  bool isRoot_;
};

}  // namespace korvel
