#pragma once

#include <gtest/gtest.h>

#include <string>

#include "host/base/Text.h"
#include "station/os/HostFileManager.h"
#include "tests/fakes/ScratchFolder.h"

namespace korvel {

/// The station's file manager in a folder of its own.
class HostFilesFixture : public testing::Test {
 protected:
  static LightweightString<wchar_t> wide(const std::string& path) {
    return fromUTF8(LightweightString<char>(std::string_view(path)));
  }

  /// Opens as a lock is taken; null when that fails.
  Kv::Ptr<iFile> lock(const std::string& path) {
    return files_.openFile(wide(path), eFileReadWrite, eFileReplace, eFileShareNone,
                           eFileGroupShared);
  }

  Kv::Ptr<iFile> openToRead(const std::string& path) {
    return files_.openFile(wide(path), eFileRead, eFileOpenExisting, eFileShareRead, eFileNoFlags);
  }

  /// Writes as a lock's information is written.
  bool writeName(const std::string& path, const std::string& name) {
    const auto file =
        files_.openFile(wide(path), eFileReadWrite, eFileReplace, eFileShareWrite, eFileNoFlags);
    return file && file->write(name.data(), name.size());
  }

  bool remove(const std::string& path) { return files_.removeFile(wide(path)); }

  ScratchFolder folder_;
  HostFileManager files_;
};

}  // namespace korvel
