#include "ProjectShare/NetLock.h"

#include "host/base/Text.h"
#include "host/os/OS.h"

NetLock::NetLock(const LightweightString<wchar_t>& path) : lockFilePath_(path) { init(); }

NetLock::~NetLock() = default;

bool NetLock::init() {
  const Kv::Ptr<iFile> file = OS().fileManager().openFile(
      lockFilePath_, eFileReadWrite, eFileCreate, eFileShareNone, eFileGroupShared);
  // Required: a handle is asked, and the answer changes nothing; a lock held elsewhere stays as it
  // is.
  if (file) static_cast<void>(file->isOpen());
  return true;
}

bool NetLock::Lock() {
  lockFile_ = OS().fileManager().openFile(lockFilePath_, eFileReadWrite, eFileReplace,
                                          eFileShareNone, eFileGroupShared);
  return lockFile_ && lockFile_->isOpen();
}

bool NetLock::SetLockInfo(const LightweightString<wchar_t>& user) {
  if (!lockFile_ || !lockFile_->isOpen()) return false;
  infoFilePath_ = lockFilePath_ + L".inf";
  infoFile_ = OS().fileManager().openFile(infoFilePath_, eFileReadWrite, eFileReplace,
                                          eFileShareWrite, eFileNoFlags);
  if (!infoFile_ || !infoFile_->isOpen()) return false;
  const LightweightString<char> name = toUTF8(user);
  // Required: after a failed write the file stays open until this lock is destroyed.
  if (!infoFile_->write(name.c_str(), name.size())) return false;
  infoFile_.reset();
  return true;
}

bool NetLock::Unlock() {
  lockFile_.reset();
  OS().fileManager().removeFile(lockFilePath_);
  if (!infoFilePath_.empty()) OS().fileManager().removeFile(infoFilePath_);
  return true;
}
