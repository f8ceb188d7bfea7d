#pragma once

#include "host/base/LightweightString.h"
#include "host/base/Ptr.h"
#include "host/os/iFileManager.h"

/// A lock that several stations share through a file on the projects directory.
///
///     PATH        held for as long as its holder keeps it open with share mode 0; always empty
///     PATH.inf    the holder's name in UTF-8: exactly its bytes
///
/// Use: build, Lock(), on success SetLockInfo(); later Unlock() and destroy. Nothing waits or
/// retries. A holder that stops without Unlock() leaves both files, which others can then lock.
/// Host thread.
class NetLock {
 public:
  /// A lock on the file at `path`, not taken yet; makes the file if it is missing.
  explicit NetLock(const LightweightString<wchar_t>& path);
  NetLock(const NetLock&) = delete;
  NetLock& operator=(const NetLock&) = delete;

  /// Closes what is open, which gives the lock up, and removes no file.
  virtual ~NetLock();

  /// Makes the lock file if it can. Always true.
  bool init();

  /// Opens the lock file so that nobody else can, and keeps it open; false when another holds it,
  /// or when it cannot be opened at all.
  bool Lock();

  /// Writes the holder's name beside the lock. False when the lock is not held or the name could
  /// not be written; a lock that is held stays held.
  bool SetLockInfo(const LightweightString<wchar_t>& user);

  /// Gives the lock up and removes the lock file, and the information file if one was attempted.
  /// Always true.
  bool Unlock();

 private:
  Kv::Ptr<iFile> lockFile;
  LightweightString<wchar_t> lockFilePath;
  Kv::Ptr<iFile> infoFile;
  LightweightString<wchar_t> infoFilePath;
};
