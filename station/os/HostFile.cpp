#include "station/os/HostFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace korvel {

namespace {

/// How often a file that others keep removing is made again.
constexpr int kOpenTries = 8;

}  // namespace

std::uint64_t HostFile::size() const {
  struct stat status {};
  return ::fstat(file_.get(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

std::size_t HostFile::read(void* bytes, std::size_t count) {
  std::size_t done = 0;
  while (done < count) {
    const ssize_t taken = ::read(file_.get(), static_cast<char*>(bytes) + done, count - done);
    if (taken == 0 || (taken < 0 && errno != EINTR)) break;
    if (taken > 0) done += static_cast<std::size_t>(taken);
  }
  return done;
}

bool HostFile::write(const void* bytes, std::size_t count) {
  return writeAll(file_.get(), bytes, count);
}

/// A removal that began before the write may have found the old content and be about to go on: it
/// is waited for. One that begins later finds the new content, and leaves the file alone.
bool ReplacingFile::write(const void* bytes, std::size_t count) {
  if (replaced_) return HostFile::write(bytes, count);
  for (int tries = 0; tries < kOpenTries; ++tries) {
    if (!replaceContent(bytes, count)) return false;
    waitForRemoval(file_.get());
    replaced_ = isStillAt(file_.get(), path_);
    if (replaced_) {
      written_->remember(path_, std::string(static_cast<const char*>(bytes), count));
      return true;
    }
    if (!makeAgain()) return false;
  }
  return false;
}

/// Empties the file first, so that no reader takes the new text with the old one's end for a text.
bool ReplacingFile::replaceContent(const void* bytes, std::size_t count) {
  return ::ftruncate(file_.get(), 0) == 0 && ::lseek(file_.get(), 0, SEEK_SET) == 0 &&
         HostFile::write(bytes, count);
}

bool ReplacingFile::makeAgain() {
  file_ = openPlainFile(path_, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW);
  if (file_.isOpen()) {
    shareLikeFolder(file_.get(), folderOf(path_));
    return true;
  }
  if (errno == EEXIST) file_ = openToChange(path_, O_RDWR | O_NOFOLLOW);
  return file_.isOpen();
}

}  // namespace korvel
