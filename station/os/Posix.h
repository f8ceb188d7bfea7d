#pragma once

#include <dirent.h>
#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace korvel {

// What the files of station/os do with the operating system directly. Paths are UTF-8; failures are
// left in errno.

/// Owns a descriptor: closes it when destroyed.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept;
  ~Descriptor();

  [[nodiscard]] bool isOpen() const { return number_ >= 0; }
  [[nodiscard]] int get() const { return number_; }

  /// Gives the descriptor away without closing it.
  int release();

 private:
  int number_ = -1;
};

struct CloseFolder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};

/// Owns a folder opened for reading its entries.
using OpenFolder = std::unique_ptr<DIR, CloseFolder>;

/// The folder that a path lies in ("." for a name alone), and the name in it.
std::string folderOf(const std::string& path);
std::string nameOf(const std::string& path);

/// What is at the name, seen from the open folder; with an empty name the open file or folder
/// itself. A link is not followed: it may lead out of the share. Everything is asked for but the
/// time of the last reading: NFS does not know that after a reading and would ask its server once
/// more. `flags` may hold AT_STATX_DONT_SYNC: what this machine knows is enough. False, with errno,
/// on failure.
bool lookAt(int folder, const char* name, struct statx& status, int flags = 0);

/// Opens a folder so that the next look at it, and at anything in it, is true on a network file
/// system, which otherwise answers from its cache: one entry of it is read where the opening does
/// not do. Not open when the folder cannot be read. The cost does not grow with the folder.
/// `status` is the folder's own, as fresh.
Descriptor openAfresh(const std::string& folder, struct statx& status);

/// Whether the opening of a folder is all that a fresh look at it takes on a file system of this
/// kind (`statfs::f_type`): on NFS, which then asks its server, and on this machine's own disks.
bool isFreshOnceOpened(std::int64_t kind);

/// The same for the file system that a folder lies on, which is asked for its kind once a minute.
/// False also where the folder cannot be opened.
bool isFreshOnceOpened(const std::string& folder);

/// The same for a look at what is in it alone. False when the folder cannot be read.
bool lookAfresh(const std::string& folder);

/// For as long as it lives, lookAfresh() of this folder does not ask the share on this thread: it
/// was asked a moment ago, and several questions follow at once. Does not nest.
class LookedAfresh {
 public:
  /// `missing` are names that were looked for in the folder then, and not found.
  explicit LookedAfresh(std::string folder, std::vector<std::string_view> missing = {});
  LookedAfresh(const LookedAfresh&) = delete;
  LookedAfresh& operator=(const LookedAfresh&) = delete;
  ~LookedAfresh();

 private:
  friend bool lookAfresh(const std::string& folder);
  friend bool wasMissing(const std::string& path);

  const std::string folder_;
  const std::vector<std::string_view> missing_;
};

/// Whether such a look on this thread did not find what the path names; errno is ENOENT then.
bool wasMissing(const std::string& path);

/// Opens a plain file, and never waits for the other end of a pipe. A folder fails with EISDIR, a
/// pipe or a device with ENXIO. `status` is the file's, as it was when it was opened.
Descriptor openPlainFile(const std::string& path, int flags);
Descriptor openPlainFile(const std::string& path, int flags, struct statx& status);

/// The same for a file whose content is to be changed: one of several names fails with EMLINK,
/// since another of them may lie outside of the share.
Descriptor openToChange(const std::string& path, int flags);

/// Gives a new file or folder, which this process has made, the access that its folder has: the
/// folder's group where the user may give it, and its read and write bits (and, for a folder, its
/// search bits), so that what one user leaves another can open.
void shareLikeFolder(int descriptor, const std::string& folder);

/// Appends everything to the end of the file, going on after an interruption; false on failure.
bool readAll(int descriptor, std::string& bytes);

/// The same for a file that had `size` bytes when it was opened: what was appended since may be
/// left out. One question less.
bool readSized(int descriptor, std::size_t size, std::string& bytes);

/// Tries to take the open file's lock on the whole file for this open alone. errno is EAGAIN when
/// another open holds it, also on SMB, which says EACCES.
bool tryLock(int descriptor);

/// Whether another open holds the file's lock. Takes nothing, since on SMB a reader's lock would
/// make the holder's writes fail.
bool isLockedByAnother(int descriptor);

/// Waits for as long as a removal may hold the lock of a file that is about to be replaced; false
/// when it is held for longer than any removal takes.
bool waitForRemoval(int descriptor);

/// Whether the path still leads to the open file. (A file that was replaced or removed meanwhile
/// may be locked by its new holder as well.)
bool isStillAt(int descriptor, const std::string& path);

}  // namespace korvel
