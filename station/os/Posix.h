#pragma once

#include <dirent.h>
#include <sys/stat.h>

#include <memory>
#include <string>

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

/// Opens a folder and reads one entry of it. The next look at the folder, and at anything in it, is
/// then true on a network file system, which otherwise answers from its cache. Not open when the
/// folder cannot be read. The cost does not grow with the folder.
Descriptor openAfresh(const std::string& folder);

/// The same for a look at what is in it alone. False when the folder cannot be read.
bool lookAfresh(const std::string& folder);

/// For as long as it lives, lookAfresh() of this folder does not ask the share on this thread: it
/// was asked a moment ago, and several questions follow at once. Does not nest.
class LookedAfresh {
 public:
  explicit LookedAfresh(std::string folder);
  LookedAfresh(const LookedAfresh&) = delete;
  LookedAfresh& operator=(const LookedAfresh&) = delete;
  ~LookedAfresh();

 private:
  const std::string folder_;
};

/// Opens a plain file, and never waits for the other end of a pipe. A folder fails with EISDIR, a
/// pipe or a device with ENXIO.
Descriptor openPlainFile(const std::string& path, int flags);

/// The same for a file whose content is to be changed: one of several names fails with EMLINK,
/// since another of them may lie outside of the share.
Descriptor openToChange(const std::string& path, int flags);

/// Gives a new file or folder, which this process has made, the access that its folder has: the
/// folder's group where the user may give it, and its read and write bits (and, for a folder, its
/// search bits), so that what one user leaves another can open.
void shareLikeFolder(int descriptor, const std::string& folder);

/// Appends everything to the end of the file, going on after an interruption; false on failure.
bool readAll(int descriptor, std::string& bytes);

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
