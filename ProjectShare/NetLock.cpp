#include "ProjectShare/NetLock.h"

#include "host/base/Text.h"
#include "host/os/OS.h"

NetLock::NetLock(const LightweightString<wchar_t>& path) : lockFilePath(path) { init(); }

NetLock::~NetLock() = default;

bool NetLock::init() {
  const Kv::Ptr<iFile> file = OS().fileManager().openFile(lockFilePath, eFileReadWrite, eFileCreate,
                                                          eFileShareNone, eFileGroupShared);
  // Required: a handle is asked, and the answer changes nothing; a lock held elsewhere stays as it
  // is.
  if (file) static_cast<void>(file->isOpen());
  return true;
}

bool NetLock::Lock() {
  lockFile = OS().fileManager().openFile(lockFilePath, eFileReadWrite, eFileReplace, eFileShareNone,
                                         eFileGroupShared);
  return lockFile && lockFile->isOpen();
}

bool NetLock::SetLockInfo(const LightweightString<wchar_t>& user) {
  if (!lockFile || !lockFile->isOpen()) return false;
  infoFilePath = lockFilePath + L".inf";
  infoFile = OS().fileManager().openFile(infoFilePath, eFileReadWrite, eFileReplace,
                                         eFileShareWrite, eFileNoFlags);
  if (!infoFile || !infoFile->isOpen()) return false;
  const LightweightString<char> name = toUTF8(user);
  // Required: after a failed write the file stays open until this lock is destroyed.
  if (!infoFile->write(name.c_str(), name.size())) return false;
  infoFile.reset();
  return true;
}

bool NetLock::Unlock() {
  lockFile.reset();
  OS().fileManager().removeFile(lockFilePath);
  // Required: the path stays, so that unlocking again removes the file again.
  if (!infoFilePath.empty()) OS().fileManager().removeFile(infoFilePath);
  return true;
}
