#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "host/base/Text.h"
#include "host/os/iFileManager.h"

namespace korvel {

/// A file manager and an existing empty folder that it may work in.
class FileManagerUnderTest {
 public:
  virtual ~FileManagerUnderTest() = default;
  virtual iFileManager& files() = 0;
  [[nodiscard]] virtual std::string folder() const = 0;  ///< without a trailing separator
};

/// What every file manager keeps, whatever it stands on.
class FileManagerContract
    : public testing::TestWithParam<std::unique_ptr<FileManagerUnderTest> (*)()> {
 protected:
  using Path = LightweightString<wchar_t>;

  iFileManager& files() { return subject_->files(); }

  [[nodiscard]] Path at(const std::string& name) const {
    return fromUTF8((subject_->folder() + "/" + name).c_str());
  }

  Kv::Ptr<iFile> open(const std::string& name, int access, int disposition, int share,
                      int flags = eFileNoFlags) {
    const Kv::Ptr<iFile> file = files().openFile(at(name), access, disposition, share, flags);
    return file && file->isOpen() ? file : Kv::Ptr<iFile>();
  }

  Kv::Ptr<iFile> openExclusively(const std::string& name) {
    return open(name, eFileReadWrite, eFileReplace, eFileShareNone, eFileGroupShared);
  }

  bool write(const std::string& name, const std::string& content) {
    const auto file = open(name, eFileReadWrite, eFileReplace, eFileShareWrite);
    return file && file->write(content.data(), content.size());
  }

  std::string read(const std::string& name) {
    const auto file = open(name, eFileRead, eFileOpenExisting, eFileShareRead);
    if (!file) return "(cannot be opened)";
    std::string content(1000, '\0');
    content.resize(file->read(content.data(), content.size()));
    EXPECT_EQ(file->size(), content.size());
    return content;
  }

  bool exists(const std::string& name) {
    return static_cast<bool>(open(name, eFileRead, eFileOpenExisting, eFileShareRead));
  }

  std::size_t count(const std::string& pattern) {
    Vector<iFileManager::DirectoryItem> items;
    EXPECT_TRUE(files().listDirectory(at(pattern), iFileManager::eListFiles, 0, items));
    return items.size();
  }

 private:
  std::unique_ptr<FileManagerUnderTest> subject_ = GetParam()();
};

}  // namespace korvel
