#pragma once

#include "tests/fault/FaultControl.h"

namespace korvel {

/// A control file of this process, found by the programs that it starts with the library
/// FailingFiles preloaded. Zero at first; the file goes with the object.
class MappedFaultControl {
 public:
  MappedFaultControl();
  MappedFaultControl(const MappedFaultControl&) = delete;
  MappedFaultControl& operator=(const MappedFaultControl&) = delete;
  ~MappedFaultControl();

  FaultControl& operator*() const { return *control_; }

 private:
  FaultControl* control_;
};

}  // namespace korvel
