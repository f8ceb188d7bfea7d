#include "station/os/HostFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>

#include "host/base/Log.h"
#include "host/base/Text.h"
#include "host/os/Files.h"
#include "station/base/Log.h"
#include "station/base/StationSettings.h"
#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"

namespace korvel {

void WrittenFiles::remember(const std::string& path, const std::string& content) {
  if (content.size() > kMaxSize) return forget(path);
  const std::lock_guard lock(mutex_);
  contents_[path] = content;
}

void WrittenFiles::forget(const std::string& path) {
  const std::lock_guard lock(mutex_);
  contents_.erase(path);
}

bool WrittenFiles::isRewritten(int descriptor, const std::string& path) {
  const std::lock_guard lock(mutex_);
  const auto found = contents_.find(path);
  struct stat status {};
  if (found == contents_.end() || ::fstat(descriptor, &status) != 0) return false;
  if (static_cast<std::size_t>(status.st_size) != found->second.size()) return true;
  std::string content;
  return readAll(descriptor, content) && content != found->second;
}

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
  return writeAll(file_.get(), {static_cast<const char*>(bytes), count});
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

using namespace korvel;

namespace korvel {

namespace {

constexpr wchar_t kSeparator = L'/';

/// Cuts the first line and its end (LF, CR LF or CR) off the head of `rest`.
std::string_view takeLine(std::string_view& rest) {
  const std::string_view line = rest.substr(0, rest.find_first_of("\r\n"));
  rest.remove_prefix(line.size());
  const bool twoBytes = rest.substr(0, 2) == "\r\n";
  rest.remove_prefix(rest.empty() ? 0 : twoBytes ? 2 : 1);
  return line;
}

}  // namespace

}  // namespace korvel

bool fileExists(const LightweightString<wchar_t>& path) {
  const std::string bytes = toUTF8(path).str();
  return bytes.find('\0') == std::string::npos && existsFresh(bytes);
}

LightweightString<wchar_t> getPath(const LightweightString<wchar_t>& path) {
  const std::size_t separator = path.view().rfind(kSeparator);
  if (separator == std::wstring_view::npos) return getProjectsBaseDirectory();
  return LightweightString<wchar_t>(path.view().substr(0, separator + 1));
}

LightweightString<wchar_t> stripPath(const LightweightString<wchar_t>& path) {
  return LightweightString<wchar_t>(path.view().substr(path.view().rfind(kSeparator) + 1));
}

LightweightString<wchar_t> getProjectsBaseDirectory() {
  std::string folder = settings().projectsDirectory;
  if (folder.empty() || folder.back() != '/') folder += '/';
  return fromUTF8(LightweightString<char>(std::string_view(folder)));
}

TextFile::TextFile(const LightweightString<wchar_t>& path, bool keepEmptyLines) {
  const auto content = readFresh(toUTF8(path).str(), kLargestList);
  if (!content) {
    if (content.error().code == ErrorCode::eBadContent) LogBoth("%s\n", content.error().message);
    return;
  }
  std::string_view rest = *content;
  while (!rest.empty()) {
    const std::string_view line = takeLine(rest);
    if (keepEmptyLines || !line.empty()) lines_.emplace_back(line);
  }
}
