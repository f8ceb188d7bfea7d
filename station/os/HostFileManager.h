#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "host/os/iFileManager.h"
#include "station/os/HostFile.h"
#include "station/os/Posix.h"

namespace korvel {

/// Whether a name matches a pattern in which `*` stands for any bytes, none included, and
/// everything else for itself. No name is hidden.
bool matchesPattern(std::string_view name, std::string_view pattern);

/// iFileManager::listDirectory, for a UTF-8 path. Only a listing with details looks at the files.
bool listMatching(const std::string& pattern, int kind, int details,
                  Vector<iFileManager::DirectoryItem>& items);

/// The host's file manager on Linux.
///
/// Share mode 0 is a lock of the open file description on the whole file (F_OFD_SETLK): it excludes
/// between descriptors, processes and, on NFS, SMB and FUSE mounts, machines, and the kernel frees
/// it with its holder. Opens with another share mode ask for that lock without taking it. After a
/// lock is won the path must still lead to the locked file, else it is opened again. Any thread.
class HostFileManager : public iFileManager {
 public:
  Kv::Ptr<iFile> openFile(const LightweightString<wchar_t>& path, int access, int disposition,
                          int share, int flags) override;
  bool removeFile(const LightweightString<wchar_t>& path) override;
  bool listDirectory(const LightweightString<wchar_t>& pattern, int kind, int details,
                     Vector<DirectoryItem>& items) override;
  bool markFile(const LightweightString<wchar_t>& path, int value) override;
  [[nodiscard]] wchar_t pathSeparator() const override { return L'/'; }
  [[nodiscard]] eFileError lastError() const override;

  /// What the system said when this thread's last operation failed, "Input/output error"; empty
  /// when it did not fail.
  static std::string lastErrorText();

 private:
  Kv::Ptr<iFile> makeHandle(Descriptor file, const std::string& path, int disposition, int share);
  bool removeWhileLocked(const std::string& path);

  std::shared_ptr<WrittenFiles> written_ = std::make_shared<WrittenFiles>();
};

}  // namespace korvel
