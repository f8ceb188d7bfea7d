#include "tests/fault/MappedFaultControl.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace korvel {

MappedFaultControl::MappedFaultControl() {
  const std::string name = "/dev/shm/kv-fault-control-" + std::to_string(::getpid());
  const int file = ::open(name.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (file < 0 || ::ftruncate(file, sizeof(FaultControl)) != 0) std::abort();
  void* const mapped =
      ::mmap(nullptr, sizeof(FaultControl), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  ::close(file);
  if (mapped == MAP_FAILED) std::abort();
  ::setenv(kFaultControlVariable, name.c_str(), 1);
  control_ = static_cast<FaultControl*>(mapped);
}

MappedFaultControl::~MappedFaultControl() {
  ::unlink(std::getenv(kFaultControlVariable));
  ::munmap(control_, sizeof(FaultControl));
}

}  // namespace korvel
