#include "station/base/RotatingFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

namespace korvel {

namespace {

bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

std::string numbered(const std::string& path, int number) {
  return number == 0 ? path : path + "." + std::to_string(number);
}

}  // namespace

RotatingFile::RotatingFile(int descriptor, std::string path, std::size_t maxBytes)
    : descriptor_(descriptor), path_(std::move(path)), maxBytes_(maxBytes) {
  struct stat state {};
  if (::fstat(descriptor_, &state) != 0) return;
  isRegular_ = S_ISREG(state.st_mode);
  bytes_ = static_cast<std::size_t>(state.st_size);
}

RotatingFile::~RotatingFile() { ::close(descriptor_); }

int RotatingFile::open(const std::string& path, int flag) {
  return ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flag, 0600);
}

bool RotatingFile::write(std::string_view bytes) {
  if (isRegular_ && isAtLineStart_ && bytes_ > 0 && bytes_ + bytes.size() > maxBytes_) rotate();
  if (!writeAll(descriptor_, bytes)) return false;
  bytes_ += bytes.size();
  if (!bytes.empty()) isAtLineStart_ = bytes.back() == '\n';
  return true;
}

void RotatingFile::rotate() {
  for (int number = kFiles - 1; number > 0; --number) {
    ::rename(numbered(path_, number - 1).c_str(), numbered(path_, number).c_str());
  }
  // Never written into what another put there meanwhile.
  const int fresh = open(path_, O_APPEND | O_EXCL);
  if (fresh < 0) return;
  ::close(std::exchange(descriptor_, fresh));
  bytes_ = 0;
}

}  // namespace korvel
