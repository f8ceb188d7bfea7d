#include "app/EventFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

namespace {

/// Writes all of it; false with errno set when that failed.
bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

}  // namespace

EventFile::~EventFile() { close(); }

Result<void> EventFile::open(const std::string& path) {
  path_ = path == "-" ? "standard output" : path;
  descriptor_ = path == "-" ? ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)
                            : ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (descriptor_ >= 0) return {};
  return Error{ErrorCode::eSystem,
               "Events cannot be written to " + path_ + ": " + std::strerror(errno) +
                   "; name another file with --events FILE.",
               path};
}

void EventFile::take(const StationEvent& event) {
  if (descriptor_ < 0 || writeAll(descriptor_, event.line + "\n")) return;
  const std::string why = std::strerror(errno);
  close();
  tell_("Events are no longer written to " + path_ + ": " + why +
        ". The station goes on; start it again to have events.");
}

void EventFile::close() {
  if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
}
