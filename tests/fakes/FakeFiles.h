#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "host/os/iFileManager.h"
#include "tests/fakes/Journal.h"

namespace korvel {

/// A file manager on memory. Paths are given as UTF-8; folders need not be made. Opens exclude each
/// other as share modes ask, inside this process and against what a test puts into `heldElsewhere`.
class FakeFiles : public iFileManager {
 public:
  explicit FakeFiles(Journal& journal) : journal_(journal) {}

  /// Makes or replaces a file behind the file manager's back, as another station would.
  void put(const std::string& path, const std::string& content);
  void take(const std::string& path) { files_.erase(path); }
  [[nodiscard]] bool has(const std::string& path) const { return files_.count(path) != 0; }

  /// A file's bytes; empty when there is none.
  [[nodiscard]] std::string content(const std::string& path) const;

  /// The handles that are open on a path.
  [[nodiscard]] std::size_t openHandles(const std::string& path) const;

  std::set<std::string> heldElsewhere;           ///< paths that another station holds
  std::map<std::string, eFileError> refusals;    ///< opens and removals of these fail so
  std::map<std::string, std::int64_t> modified;  ///< times that listings report
  /// Sizes that handles report of files which grow while they are read.
  std::map<std::string, std::uint64_t> reportedSizes;
  bool failedOpensGiveHandles = false;  ///< a failed open gives a handle that is not open, not null
  bool writesFail = false;
  bool listingsFail = false;
  bool marksFail = false;
  wchar_t separator = L'/';

  Kv::Ptr<iFile> openFile(const LightweightString<wchar_t>& path, int access, int disposition,
                          int share, int flags) override;
  bool removeFile(const LightweightString<wchar_t>& path) override;
  bool listDirectory(const LightweightString<wchar_t>& pattern, int kind, int details,
                     Vector<DirectoryItem>& items) override;
  bool markFile(const LightweightString<wchar_t>& path, int value) override;
  [[nodiscard]] wchar_t pathSeparator() const override { return separator; }
  [[nodiscard]] eFileError lastError() const override { return lastError_; }

 private:
  class OpenFile;
  class ClosedFile;
  struct Opening {
    std::string path;
    int share = 0;
  };

  [[nodiscard]] eFileError refusalOf(const std::string& path, int disposition, int share) const;
  [[nodiscard]] bool isHeld(const std::string& path, int share) const;

  Journal& journal_;
  std::map<std::string, std::shared_ptr<std::string>> files_;
  std::vector<std::weak_ptr<Opening>> openings_;
  eFileError lastError_ = eFileError::eNone;
};

}  // namespace korvel
