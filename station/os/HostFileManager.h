#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "host/os/iFileManager.h"
#include "station/os/Posix.h"

namespace korvel {

/// What this process wrote whole into small files. A file that holds something else when it is to
/// be removed was written by another since: the information file of a lock that changed hands
/// between its release and the removal. Any thread.
class WrittenFiles {
 public:
  /// Larger contents are not remembered.
  static constexpr std::size_t kMaxSize = 4096;

  void remember(const std::string& path, const std::string& content);
  void forget(const std::string& path);

  /// Whether the open file at the path holds something else than what was remembered of it. Reads
  /// it to its end.
  bool isRewritten(int descriptor, const std::string& path);

 private:
  std::mutex mutex_;
  std::map<std::string, std::string> contents_;
};

/// An open file of the host's file manager, on a descriptor that it owns.
class HostFile : public iFile {
 public:
  explicit HostFile(Descriptor file) : file_(std::move(file)) {}

  [[nodiscard]] bool isOpen() const override { return file_.isOpen(); }
  [[nodiscard]] std::uint64_t size() const override;
  std::size_t read(void* bytes, std::size_t count) override;
  bool write(const void* bytes, std::size_t count) override;

 protected:
  Descriptor file_;
};

/// An open file whose content is replaced: the first write leaves exactly what it wrote at the
/// path, even when another station removed the file since it was opened.
class ReplacingFile : public HostFile {
 public:
  /// `written` remembers what the first write left behind.
  ReplacingFile(Descriptor file, std::string path, std::shared_ptr<WrittenFiles> written)
      : HostFile(std::move(file)), path_(std::move(path)), written_(std::move(written)) {}

  bool write(const void* bytes, std::size_t count) override;

 private:
  bool replaceContent(const void* bytes, std::size_t count);
  bool makeAgain();

  std::string path_;
  std::shared_ptr<WrittenFiles> written_;
  bool replaced_ = false;
};

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
  bool removeUnlocked(const std::string& path);

  std::shared_ptr<WrittenFiles> written_ = std::make_shared<WrittenFiles>();
};

}  // namespace korvel
