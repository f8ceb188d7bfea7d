#include "station/os/HostFileManager.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>

#include "host/base/Log.h"
#include "host/base/Text.h"
#include "host/os/Files.h"
#include "station/base/Log.h"
#include "station/base/StationSettings.h"
#include "station/os/FileErrors.h"
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
    // A read on a network file system may return less than was asked for before the end.
    const ssize_t taken = ::read(file_.get(), static_cast<char*>(bytes) + done, count - done);
    if (taken == 0 || (taken < 0 && errno != EINTR)) break;
    if (taken > 0) done += static_cast<std::size_t>(taken);
  }
  return done;
}

bool HostFile::write(const void* bytes, std::size_t count) {
  return writeAll(file_.get(), {static_cast<const char*>(bytes), count});
}

/// A removal that began before the write may have seen the old content and be about to remove the
/// file: wait for it. A removal that begins later sees the new content and leaves the file alone.
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

/// Empties the file first: otherwise a reader could see the new text followed by the old one's end.
bool ReplacingFile::replaceContent(const void* bytes, std::size_t count) {
  return ::ftruncate(file_.get(), 0) == 0 && ::lseek(file_.get(), 0, SEEK_SET) == 0 &&
         HostFile::write(bytes, count);
}

bool ReplacingFile::makeAgain() {
  // Exclusively, so that only the station that made the file sets its group and rights.
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

namespace korvel {

namespace {

/// Whether an entry is a folder. Asks the file system only where the directory does not tell: some
/// file systems leave d_type unknown, and a link has to be followed.
bool isFolderEntry(int folder, const dirent& entry) {
  if (entry.d_type != DT_UNKNOWN && entry.d_type != DT_LNK) return entry.d_type == DT_DIR;
  struct stat status {};
  return ::fstatat(folder, entry.d_name, &status, 0) == 0 && S_ISDIR(status.st_mode);
}

bool isOfKind(int folder, const dirent& entry, int kind) {
  if (kind == iFileManager::eListFiles) return !isFolderEntry(folder, entry);
  if (kind == iFileManager::eListFolders) return isFolderEntry(folder, entry);
  return true;
}

iFileManager::DirectoryItem itemFor(int folder, const dirent& entry, int details) {
  iFileManager::DirectoryItem item;
  item.name = fromUTF8(entry.d_name);
  struct stat status {};
  if (details != 0 && ::fstatat(folder, entry.d_name, &status, 0) == 0) {
    item.size = static_cast<std::uint64_t>(status.st_size);
    item.modified = status.st_mtime;
  }
  return item;
}

/// Whether a name ends with what follows the pattern's last star: cheap, and says no to most names
/// of a large folder.
bool endsLike(std::string_view name, std::string_view pattern) {
  return name.ends_with(pattern.substr(pattern.rfind('*') + 1));
}

}  // namespace

bool matchesPattern(std::string_view name, std::string_view pattern) {
  if (!endsLike(name, pattern)) return false;
  std::size_t at = 0;
  std::size_t next = 0;
  std::size_t star = std::string_view::npos;  // the last star met, and what it stands for so far
  std::size_t taken = 0;
  while (at < name.size()) {
    if (next < pattern.size() && pattern[next] == '*') {
      star = next++;
      taken = at;
    } else if (next < pattern.size() && pattern[next] == name[at]) {
      ++at;
      ++next;
    } else if (star != std::string_view::npos) {
      next = star + 1;
      at = ++taken;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', next) == std::string_view::npos;
}

bool listMatching(const std::string& pattern, int kind, int details,
                  Vector<iFileManager::DirectoryItem>& items) {
  const OpenFolder folder(::opendir(folderOf(pattern).c_str()));
  if (pattern.empty() || !folder) return false;
  const std::string names = nameOf(pattern);
  Vector<iFileManager::DirectoryItem> found;
  errno = 0;
  while (const dirent* const entry = ::readdir(folder.get())) {
    const std::string_view name = entry->d_name;
    if (matchesPattern(name, names) && name != "." && name != ".." &&
        isOfKind(::dirfd(folder.get()), *entry, kind)) {
      found.push_back(itemFor(::dirfd(folder.get()), *entry, details));
    }
    errno = 0;
  }
  if (errno != 0) return false;
  items.insert(items.end(), std::make_move_iterator(found.begin()),
               std::make_move_iterator(found.end()));
  return true;
}

namespace {

/// How often a file is opened again that others replace or remove at the same moment.
constexpr int kNameTries = 64;

// By thread, like errno: the host asks after its own call, while other threads use the file
// manager.
thread_local eFileError lastError_ = eFileError::eNone;
thread_local int lastNumber_ = 0;

void keepError(bool isWell) {
  lastNumber_ = isWell ? 0 : errno;
  lastError_ = isWell ? eFileError::eNone : fileProblem(errno).error;
}

/// The path's bytes; empty, and so missing, for a text that no path can be.
std::string pathOf(const LightweightString<wchar_t>& path) {
  const std::string bytes = toUTF8(path).str();
  return bytes.find('\0') == std::string::npos ? bytes : std::string();
}

/// Whether the folder exists. One without the right to read it (EACCES) may still be passed
/// through.
bool folderIsThere(const std::string& path) {
  return lookAfresh(folderOf(path)) || (errno != ENOENT && errno != ENOTDIR && errno != ESTALE);
}

/// Opens the file, and makes it where it is missing if `create` says so.
Descriptor openOrCreate(const std::string& path, int flags, bool create) {
  for (int tries = 0; tries < kNameTries; ++tries) {
    const bool isForReading = (flags & O_ACCMODE) == O_RDONLY;
    Descriptor file = isForReading ? openPlainFile(path, flags) : openToChange(path, flags);
    if (file.isOpen() || errno != ENOENT || !create) return file;
    // Exclusively, so that only the maker sets group and rights. EEXIST: another station made it
    // since the first open, so that one is opened.
    file = openPlainFile(path, flags | O_CREAT | O_EXCL);
    if (file.isOpen()) shareLikeFolder(file.get(), folderOf(path));
    if (file.isOpen() || errno != EEXIST) return file;
  }
  errno = EAGAIN;
  return Descriptor();
}

/// Whether the lock that was just won is on the file that others will find. They may be on another
/// machine, so the folder is looked at afresh first.
bool isLockedAtPath(const Descriptor& file, const std::string& path) {
  struct stat status {};
  lookAfresh(folderOf(path));
  return ::fstat(file.get(), &status) == 0 && status.st_nlink > 0 && isStillAt(file.get(), path);
}

bool takeLock(const Descriptor& file) {
  if (tryLock(file.get())) return true;
  // File systems without a lock service say so in different ways.
  if (errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP) errno = ENOLCK;
  return false;
}

/// Whether the file says who holds the lock beside it.
bool isInformation(const std::string& path) { return path.ends_with(".inf"); }

Descriptor openExclusively(const std::string& path, bool create) {
  for (int tries = 0; tries < kNameTries; ++tries) {
    Descriptor file = openOrCreate(path, O_RDWR | O_NOFOLLOW, create);
    if (!file.isOpen() || !takeLock(file)) return Descriptor();
    // Another station removed the file between the open and the lock: this lock would exclude no
    // station that opens the new file.
    if (isLockedAtPath(file, path)) return file;
  }
  errno = EAGAIN;
  return Descriptor();
}

/// Makes room for a new information file where the old one may not be written to, such as another
/// user's, and a link, which would be written through; false, with errno as it was, where that is
/// not the reason or the folder does not allow it.
bool removeUnwritable(const std::string& path) {
  const int why = errno;
  const bool isUnwritable = why == EACCES || why == EPERM || why == ELOOP || why == EMLINK;
  if (isInformation(path) && isUnwritable && ::unlink(path.c_str()) == 0) return true;
  errno = why;
  return false;
}

/// Only removeFile() locks a file that is to be replaced, and only briefly: wait instead of
/// failing.
bool isRefused(const Descriptor& file, int disposition) {
  if (disposition == eFileReplace) return !waitForRemoval(file.get());
  return isLockedByAnother(file.get());
}

Descriptor openShared(const std::string& path, int access, int disposition) {
  const int flags = (access & 2 ? O_RDWR : O_RDONLY) | O_NOFOLLOW;
  Descriptor file = openOrCreate(path, flags, disposition != eFileOpenExisting);
  if (!file.isOpen() && disposition == eFileReplace && removeUnwritable(path)) {
    file = openOrCreate(path, flags, true);
  }
  if (!file.isOpen() || !isRefused(file, disposition)) return file;
  errno = EAGAIN;
  return Descriptor();
}

}  // namespace

Kv::Ptr<iFile> HostFileManager::openFile(const LightweightString<wchar_t>& widePath, int access,
                                         int disposition, int share, int) {
  const std::string path = pathOf(widePath);
  Descriptor file;
  errno = ENOENT;
  const bool isMissing = disposition == eFileOpenExisting && wasMissing(path);
  if (!path.empty() && !isMissing && folderIsThere(path)) {
    file = share == eFileShareNone ? openExclusively(path, disposition != eFileOpenExisting)
                                   : openShared(path, access, disposition);
  }
  keepError(file.isOpen());
  if (!file.isOpen()) return {};
  return makeHandle(std::move(file), path, disposition, share);
}

Kv::Ptr<iFile> HostFileManager::makeHandle(Descriptor file, const std::string& path,
                                           int disposition, int share) {
  if (disposition != eFileReplace || share == eFileShareNone) {
    return {new HostFile(std::move(file))};
  }
  return {new ReplacingFile(std::move(file), path, written_)};
}

bool HostFileManager::removeFile(const LightweightString<wchar_t>& widePath) {
  const std::string path = pathOf(widePath);
  errno = ENOENT;
  const bool removed = !path.empty() && folderIsThere(path) && removeWhileLocked(path);
  // A file that another station removed first is removed: what the caller wanted is so.
  const bool gone = removed || (!path.empty() && errno == ENOENT);
  keepError(gone);
  if (gone) written_->forget(path);
  return gone;
}

/// Takes the lock before it looks at the file and holds it until the file is gone. So a file that
/// another station holds, or has put at the path meanwhile, is never removed.
bool HostFileManager::removeWhileLocked(const std::string& path) {
  const Descriptor file = openPlainFile(path, O_RDWR | O_NOFOLLOW);
  if (!file.isOpen() && isInformation(path)) return removeUnlocked(path);
  if (!file.isOpen() || !takeLock(file)) return false;
  struct stat status {};
  if (!isLockedAtPath(file, path)) {
    if (::lstat(path.c_str(), &status) != 0) return false;  // another station removed it
    errno = EAGAIN;
    return false;
  }
  if (written_->isRewritten(file.get(), path)) {
    errno = EAGAIN;
    return false;
  }
  return ::unlink(path.c_str()) == 0;
}

/// Removes an information file that may be removed but not written to, and so not locked. Nobody
/// relies on its lock: the lock file beside it says who may write it.
bool HostFileManager::removeUnlocked(const std::string& path) {
  const Descriptor file = openPlainFile(path, O_RDONLY | O_NOFOLLOW);
  if (!file.isOpen()) return errno == ELOOP && ::unlink(path.c_str()) == 0;
  if (isLockedByAnother(file.get()) || written_->isRewritten(file.get(), path)) {
    errno = EAGAIN;
    return false;
  }
  return ::unlink(path.c_str()) == 0;
}

bool HostFileManager::listDirectory(const LightweightString<wchar_t>& pattern, int kind,
                                    int details, Vector<DirectoryItem>& items) {
  return listMatching(pathOf(pattern), kind, details, items);
}

bool HostFileManager::markFile(const LightweightString<wchar_t>& widePath, int value) {
  const std::string path = pathOf(widePath);
  if (value != eMarkLeft && value != eMarkPresent) return false;
  errno = ENOENT;
  Descriptor file;
  if (!path.empty() && folderIsThere(path)) {
    file = openOrCreate(path, O_WRONLY | O_NOFOLLOW, true);
  }
  const bool isMarked = file.isOpen() && ::futimens(file.get(), nullptr) == 0;
  keepError(isMarked);
  return isMarked;
}

eFileError HostFileManager::lastError() const { return lastError_; }

std::string HostFileManager::lastErrorText() {
  return lastNumber_ == 0 ? std::string() : std::strerror(lastNumber_);
}

}  // namespace korvel
