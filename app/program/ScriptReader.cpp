#include "app/program/ScriptReader.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace korvel {

bool awaitInput(int descriptor, const Waiter& waiter) {
  std::array<pollfd, 2> wanted{pollfd{descriptor, POLLIN, 0},
                               pollfd{waiter.descriptor(), POLLIN, 0}};
  while (::poll(wanted.data(), wanted.size(), -1) < 0 && errno == EINTR) {
  }
  return wanted[1].revents == 0;
}

ScriptReader::~ScriptReader() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

Result<void> ScriptReader::open(const std::string& path) {
  name_ = path == "-" ? "standard input" : path;
  descriptor_ = path == "-" ? ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)
                            : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status {};
  const bool isKnown = descriptor_ >= 0 && ::fstat(descriptor_, &status) == 0;
  if (isKnown && !S_ISDIR(status.st_mode)) return {};
  const int problem = isKnown ? EISDIR : errno;
  return Error{ErrorCode::eNotFound,
               "The script " + name_ + " cannot be read: " + std::strerror(problem) +
                   "; name another with --script FILE.",
               path};
}

std::optional<std::string> ScriptReader::next() {
  std::size_t end = 0;
  while ((end = pending_.find('\n')) == std::string::npos && !isAtEnd_) {
    if (!readMore()) return std::nullopt;
  }
  if (pending_.empty() || waiter_.isEnding()) return std::nullopt;
  std::string line = pending_.substr(0, end);
  pending_.erase(0, end == std::string::npos ? pending_.size() : end + 1);
  ++line_;
  return line;
}

bool ScriptReader::readMore() {
  if (!awaitInput(descriptor_, waiter_)) return false;
  std::array<char, 4096> block;
  const ssize_t count = ::read(descriptor_, block.data(), block.size());
  if (count < 0 && errno == EINTR) return true;
  if (count <= 0) isAtEnd_ = true;
  if (count > 0) pending_.append(block.data(), static_cast<std::size_t>(count));
  return true;
}

std::string ScriptReader::place() const { return name_ + ":" + std::to_string(line_) + ": "; }

bool ScriptReader::isInteractive() const { return ::isatty(descriptor_) == 1; }

}  // namespace korvel
