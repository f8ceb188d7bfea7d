#pragma once

#include <cstddef>
#include <cstdint>

#include "host/base/HostApi.h"
#include "host/base/LightweightString.h"
#include "host/base/Ptr.h"

// The host's file manager: every file that a plug-in touches on the shared projects directory goes
// through it.
//
// Paths are whole paths in wide characters. Answers about the shared directory are fresh on network
// file systems: the parent directory is read before the file is looked at. Calls may block for as
// long as the share does.

/// What an open file may be used for.
enum eFileAccess : int {
  eFileRead = 1,       ///< read
  eFileReadWrite = 3,  ///< read and write
};

/// What an open does about the file's existence.
enum eFileDisposition : int {
  eFileOpenExisting = 0,  ///< the file must exist
  eFileCreate = 1,        ///< make the file if it is missing; never truncates
  eFileReplace = 3,  ///< make the file if it is missing; its content counts as replaced: the first
                     ///< write leaves the file holding exactly what was written. With share mode 0
                     ///< nothing is truncated.
};

/// Who else may have the file open meanwhile.
enum eFileShare : int {
  eFileShareNone = 0,  ///< nobody, in this process, on this machine and on other machines; an open
                       ///< that somebody else's open prevents fails at once, and the kernel ends
                       ///< the exclusion when the holder dies
  eFileShareRead = 1,  ///< readers and writers that share too; refused while another holds the file
                       ///< with share mode 0
  eFileShareWrite = 4,  ///< as 1, for a file that this open will write
};

/// Further wishes of an open.
enum eFileFlags : int {
  eFileNoFlags = 0,
  eFileGroupShared = 32,  ///< a new file takes its directory's group and its group's write bit, so
                          ///< that what one user leaves behind another user of the group can open
};

/// Why the file manager's last open or removal on this thread failed.
enum class eFileError {
  eNone,
  eHeld,           ///< somebody else has the file open in a way that excludes this open
  eMissing,        ///< the file, or the folder it would be in, does not exist
  eNoRights,       ///< the file or folder may not be used by this user
  eNoLockService,  ///< the file system offers no locks (ENOLCK): nothing can be held there
  eStale,          ///< the network file system lost the file's handle
  eReadOnly,       ///< the file system is mounted read-only
  eFull,           ///< no space or quota left
  eNotAFile,       ///< a folder or another kind of thing is in the file's place
  eOther,
};

/// An open file. Releasing the last reference closes it, and with it ends what its share mode
/// excluded.
class KV_HOST_API iFile : public virtual iObject {
 public:
  ~iFile() override = default;

  /// Whether the handle refers to an open file; an open that failed may yield a handle that is not.
  [[nodiscard]] virtual bool isOpen() const = 0;

  /// The file's size in bytes; 0 when it cannot be told.
  [[nodiscard]] virtual std::uint64_t size() const = 0;

  /// Reads up to `count` bytes from the current position; the number of bytes read, 0 at the end or
  /// on failure.
  virtual std::size_t read(void* bytes, std::size_t count) = 0;

  /// Writes exactly `count` bytes at the current position; false when that failed or fewer were
  /// written.
  virtual bool write(const void* bytes, std::size_t count) = 0;
};

/// Opens, lists, marks and removes files. The one object of its kind is reached through OS(), and
/// may be used on any thread; lastError() speaks of the calling thread alone.
class KV_HOST_API iFileManager {
 public:
  /// One entry of a directory listing.
  struct DirectoryItem {
    LightweightString<wchar_t> name;  ///< without directories
    std::uint64_t size = 0;           ///< bytes; 0 unless details were asked for
    std::int64_t modified = 0;  ///< seconds since 1970-01-01 UTC; 0 unless details were asked for
  };

  /// Which entries listDirectory returns.
  enum eListKind : int {
    eListEverything = 0,
    eListFiles = 1,    ///< no folders
    eListFolders = 2,  ///< folders alone
  };

  /// What markFile does to a marker.
  enum eMark : int {
    eMarkLeft =
        1,  ///< the user went into a room: the marker stays, is counted, and its time is set to now
    eMarkPresent = 2,  ///< the marker exists afterwards, and its time is set to now
  };

  virtual ~iFileManager() = default;

  /// Opens a file; `access`, `disposition`, `share` and `flags` are values of the enumerations
  /// above. Null, or a handle that is not open, on failure; then lastError() tells why. The result
  /// is the caller's.
  virtual Kv::Ptr<iFile> openFile(const LightweightString<wchar_t>& path, int access,
                                  int disposition, int share, int flags) = 0;

  /// Removes a file, unless another holds it with share mode 0 or has put another file in its place
  /// meanwhile. True when the file is gone.
  virtual bool removeFile(const LightweightString<wchar_t>& path) = 0;

  /// Appends the entries whose name matches the pattern's last component (`*` stands for any
  /// characters, a dot at the name's beginning included) to `items`, the folder itself and its
  /// parent excepted. `kind` is one of eListKind; with `details` other than 0 sizes and times are
  /// read as well. False when the folder cannot be read; `items` is then unchanged.
  virtual bool listDirectory(const LightweightString<wchar_t>& pattern, int kind, int details,
                             Vector<DirectoryItem>& items) = 0;

  /// Sets or refreshes a marker file; `value` is one of eMark. False on failure; then lastError()
  /// tells why.
  virtual bool markFile(const LightweightString<wchar_t>& path, int value) = 0;

  /// The character between a path's components; 0 where there is none.
  [[nodiscard]] virtual wchar_t pathSeparator() const = 0;

  /// Why the last openFile, removeFile or markFile on the calling thread failed; eNone after a
  /// success.
  [[nodiscard]] virtual eFileError lastError() const = 0;
};
