#include "station/os/SharedFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <uuid/uuid.h>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <thread>

#include "host/os/OS.h"
#include "host/os/iFileManager.h"
#include "station/base/Log.h"
#include "station/base/Strings.h"
#include "station/os/FileErrors.h"
#include "station/os/HostFileManager.h"
#include "station/os/Posix.h"

namespace korvel {

namespace {

// One second in all. Another writer holds the temporary file for one write and one fsync.
constexpr int kTemporaryTries = 100;
constexpr std::chrono::milliseconds kTemporaryPause(10);

/// A quarter of a second, and a twentieth. The host thread waits for it.
constexpr int kRenameTries = 25;
constexpr int kReadTries = 5;

/// The temporary files of one path all begin like this: a dot, so that no listing takes them for
/// anything, and a number for the name, since a name of the greatest length leaves no room for
/// more.
std::string temporaryStem(const std::string& path) {
  char stem[32];
  std::snprintf(stem, sizeof stem, ".kv-%016llx",
                static_cast<unsigned long long>(hash64(nameOf(path))));
  return folderOf(path) + "/" + stem;
}

struct Temporary {
  std::string path;
  Descriptor file;
};

/// Removes what a killed station left in a temporary file's place: only the name, since the file
/// may have been kept as a version under another one. False where that cannot be done: another
/// writer is at it (EAGAIN), or it is no plain file that this user may write.
bool removeLeftover(const std::string& path) {
  const Descriptor file = openPlainFile(path, O_RDWR | O_NOFOLLOW);
  if (!file.isOpen()) return errno == ENOENT;
  if (!tryLock(file.get())) return false;
  return !isStillAt(file.get(), path) || ::unlink(path.c_str()) == 0;
}

/// The path's one temporary file, always a new one, locked so that another writer does not take it
/// for a leftover. Not open when it cannot be had in time.
Temporary takeCommonTemporary(const std::string& path) {
  Temporary temporary{temporaryStem(path) + ".tmp", Descriptor()};
  for (int tries = 0; tries < kTemporaryTries; ++tries) {
    Descriptor file = openPlainFile(temporary.path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW);
    if (file.isOpen() && tryLock(file.get())) {
      // Between the open and the lock another writer may have removed it as a leftover.
      if (!isStillAt(file.get(), temporary.path)) continue;
      temporary.file = std::move(file);
      break;
    }
    if (file.isOpen() && errno != EAGAIN) {  // a file system without locks
      ::unlink(temporary.path.c_str());
      break;
    }
    if (!file.isOpen() && errno != EEXIST) break;
    if (!file.isOpen() && removeLeftover(temporary.path)) continue;
    if (errno != EAGAIN) break;
    // Another writer is at it; its lock cannot be waited for with a limit, so this asks again.
    std::this_thread::sleep_for(kTemporaryPause);
  }
  return temporary;
}

/// A temporary file that is this write's alone, for where the common one cannot be had.
Temporary makeOwnTemporary(const std::string& path) {
  uuid_t bytes;
  uuid_generate_random(bytes);
  char name[37];
  uuid_unparse_lower(bytes, name);
  Temporary temporary{temporaryStem(path) + "-" + name + ".tmp", Descriptor()};
  temporary.file = openPlainFile(temporary.path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW);
  return temporary;
}

void syncFolder(const std::string& folder) {
  const Descriptor directory(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // The result is ignored: the file is in place by now, and some file systems cannot sync a folder.
  if (directory.isOpen()) ::fsync(directory.get());
}

bool fill(const Temporary& temporary, const std::string& path, const std::string& bytes) {
  const int file = temporary.file.get();
  if (!writeAll(file, bytes)) return false;
  // Before the rename: other users must be able to open the file from the moment it has its name.
  shareLikeFolder(file, folderOf(path));
  // Also before the rename: after a crash the name could otherwise lead to an empty file.
  return ::fsync(file) == 0;
}

/// On SMB a file cannot be replaced while another machine has it open, which it has for one
/// reading, and EACCES says so. The folder itself may be written to: the temporary file was made in
/// it.
bool renameOver(const std::string& temporary, const std::string& path) {
  for (int tries = 0; ::rename(temporary.c_str(), path.c_str()) != 0; ++tries) {
    if (errno != EACCES || tries == kRenameTries) return false;
    // Nothing tells when the other has closed it.
    std::this_thread::sleep_for(kTemporaryPause);
  }
  return true;
}

Result<void> fillAndRename(const Temporary& temporary, const std::string& path,
                           const std::string& bytes, const BeforeRename& beforeRename) {
  if (!fill(temporary, path, bytes)) return errorFromErrno(errno, "write", path);
  if (beforeRename) {
    if (auto looked = beforeRename(temporary.path); !looked) return looked;
  }
  if (renameOver(temporary.path, path)) return {};
  return errorFromErrno(errno, "write", path);
}

std::string sizeText(std::size_t bytes) {
  const bool isMebibytes = bytes >= std::size_t{1} << 20;
  return isMebibytes ? std::to_string(bytes >> 20) + " MiB" : std::to_string(bytes >> 10) + " KiB";
}

/// Renames a file, and replaces nothing; -1 and errno on failure.
int renameToNew(const std::string& from, const std::string& to) {
  const int renamed = ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
  if (renamed == 0 || (errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP)) return renamed;
  // NFS and others know only the rename that replaces. Two stations that rename to one new name at
  // the same moment are not kept apart there.
  struct stat status {};
  lookAfresh(folderOf(to));
  if (::lstat(to.c_str(), &status) == 0) {
    errno = EEXIST;
    return -1;
  }
  return ::rename(from.c_str(), to.c_str());
}

/// On SMB a file that is being replaced is not there for a moment.
bool isReplacedInSteps(const std::string& folder) {
  struct statfs system {};
  if (::statfs(folder.c_str(), &system) != 0) return false;
  return system.f_type == SMB2_SUPER_MAGIC || system.f_type == CIFS_SUPER_MAGIC;
}

bool isFolder(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

bool existsFresh(const std::string& path) {
  const auto isThere = isThereFresh(path);
  return isThere && *isThere;
}

Result<bool> isThereFresh(const std::string& path) {
  struct stat status {};
  errno = ENOENT;
  // A folder without the right to read it may still be passed through, so its file is looked for.
  if (wasMissing(path)) return false;
  const bool canLook = !path.empty() && (lookAfresh(folderOf(path)) || errno == EACCES);
  if (canLook && ::stat(path.c_str(), &status) == 0) return true;
  if (fileProblem(errno).code == ErrorCode::eNotFound) return false;
  return errorFromErrno(errno, "look for", path);
}

bool isGoneFrom(const std::string& folder, const std::string& path) {
  const auto isThere = isThereFresh(path);
  // The folder is asked for last: if the share went away meanwhile, nothing counts as gone.
  return isThere && !*isThere && existsFresh(folder);
}

Result<std::string> readFresh(const std::string& path, std::size_t most) {
  const std::string folder = folderOf(path);
  for (int tries = 0;; ++tries) {
    if (!lookAfresh(folder) && errno != EACCES) return errorFromErrno(errno, "read", path);
    auto bytes = readListed(path, most);
    const bool isMissing = !bytes && bytes.error().code == ErrorCode::eNotFound;
    if (!isMissing || tries == kReadTries || !isReplacedInSteps(folder)) return bytes;
    // Nothing tells when the other writer has put it in its place.
    std::this_thread::sleep_for(kTemporaryPause);
  }
}

Result<std::string> readListed(const std::string& path, std::size_t most) {
  struct statx status {};
  const Descriptor file = openPlainFile(path, O_RDONLY, status);
  if (!file.isOpen()) return errorFromErrno(errno, "read", path);
  if (status.stx_size > most) return tooLarge(path, most);
  try {
    std::string bytes;
    bytes.reserve(status.stx_size);
    // What the kernel makes as it is read (/proc, /sys) calls itself empty.
    const std::size_t size = status.stx_size > 0 ? status.stx_size : most;
    if (!readSized(file.get(), size, bytes)) return errorFromErrno(errno, "read", path);
    return bytes;
  } catch (const std::bad_alloc&) {
    return errorFromErrno(ENOMEM, "read", path);
  }
}

Result<std::vector<std::string>> listFresh(const std::string& folder) {
  const OpenFolder directory(wasMissing(folder) ? nullptr : ::opendir(folder.c_str()));
  if (!directory) return errorFromErrno(errno, "list", folder);
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* const entry = ::readdir(directory.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
    errno = 0;
  }
  if (errno != 0) return errorFromErrno(errno, "list", folder);
  return names;
}

Result<void> writeAtomically(const std::string& path, const std::string& bytes) {
  return writeAtomically(path, bytes, {});
}

Result<void> writeAtomically(const std::string& path, const std::string& bytes,
                             const BeforeRename& beforeRename) {
  if (isFolder(path)) return errorFromErrno(EISDIR, "write", path);
  Temporary temporary = takeCommonTemporary(path);
  if (!temporary.file.isOpen()) temporary = makeOwnTemporary(path);
  if (!temporary.file.isOpen()) return errorFromErrno(errno, "write", path);
  if (auto replaced = fillAndRename(temporary, path, bytes, beforeRename); !replaced) {
    ::unlink(temporary.path.c_str());
    return replaced;
  }
  syncFolder(folderOf(path));
  return {};
}

Result<void> checkReplaceable(const std::string& path, std::size_t size) {
  const Temporary temporary = makeOwnTemporary(path);
  if (!temporary.file.isOpen()) return errorFromErrno(errno, "write", path);
  // Written rather than only set to that length: quotas and full disks count what is written.
  const std::string bytes(size, ' ');
  const bool isWritten =
      writeAll(temporary.file.get(), bytes) && ::fsync(temporary.file.get()) == 0;
  const int problem = errno;
  ::unlink(temporary.path.c_str());
  if (!isWritten) return errorFromErrno(problem, "write", path);
  return {};
}

Result<void> removeFileAt(const std::string& path) {
  lookAfresh(folderOf(path));
  if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
    return errorFromErrno(errno, "remove", path);
  }
  return {};
}

Result<void> moveFile(const std::string& from, const std::string& to) {
  lookAfresh(folderOf(from));
  if (renameToNew(from, to) != 0) {
    return errorFromErrno(errno, "move", errno == EEXIST ? to : from);
  }
  // The new name first: a crash between the two may leave both names, but never none.
  syncFolder(folderOf(to));
  syncFolder(folderOf(from));
  return {};
}

Result<void> makeFolder(const std::string& path) {
  if (::mkdir(path.c_str(), 0700) != 0) return errorFromErrno(errno, "make", path);
  const Descriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (folder.isOpen()) shareLikeFolder(folder.get(), folderOf(path));
  return {};
}

Error tooLarge(const std::string& path, std::size_t most) {
  return {ErrorCode::eBadContent,
          "Cannot read " + path + ": it is larger than " + sizeText(most) +
              ", so it is not what its name says. Look what it is, and move it away.",
          path};
}

namespace {

// Two seconds in all. A lock of an open file description cannot be waited for with a limit.
constexpr int kTries = 400;
constexpr unsigned kPauseMilliseconds = 5;

std::string lockFileOf(const std::string& objectFile) {
  const std::size_t name = objectFile.rfind('/') + 1;
  return objectFile.substr(0, name) + '.' + objectFile.substr(name) + ".lock";
}

Error notTaken(const std::string& path, eFileError why) {
  const FileProblem& problem = fileProblem(why);
  const std::string lock = inQuotes(path);
  if (problem.code == ErrorCode::eHeld) {
    return {problem.code,
            "Another station is changing this; nothing was changed here. Try again (its lock is " +
                lock + ").",
            path};
  }
  const std::string said =
      problem.code == ErrorCode::eSystem ? " (" + HostFileManager::lastErrorText() + ")" : "";
  return {problem.code,
          "Nothing was changed, since " + lock + " cannot be locked: " + sentenceOf(problem) +
              said + ".",
          path};
}

}  // namespace

ObjectLock::ObjectLock(const std::string& objectFile) : path_(lockFileOf(objectFile)) {
  iFileManager& files = OS().fileManager();
  eFileError why = eFileError::eNone;
  for (int tried = 0; tried < kTries; ++tried) {
    file_ = files.openFile(wideText(path_), eFileReadWrite, eFileCreate, eFileShareNone,
                           eFileGroupShared);
    if (file_ && file_->isOpen()) return;
    file_.reset();
    why = files.lastError();
    if (why != eFileError::eHeld) break;
    OS().sleepMilliseconds(kPauseMilliseconds);
  }
  taken_ = notTaken(path_, why);
}

ObjectLock::~ObjectLock() {
  if (!file_) return;
  // Closed first: removeFile() takes the lock itself, and leaves the file to a station that got it.
  file_.reset();
  try {
    OS().fileManager().removeFile(wideText(path_));
  } catch (const std::exception&) {
    // Without memory the file stays. It is not locked, so it stops no station; the next change
    // removes it.
  }
}

}  // namespace korvel
