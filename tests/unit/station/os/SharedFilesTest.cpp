#include "station/os/SharedFiles.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/magic.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "station/os/FolderListing.h"
#include "station/os/Posix.h"
#include "tests/fakes/ForkedProcess.h"
#include "tests/fakes/ScratchFolder.h"

using namespace korvel;

namespace {

std::string freshContentOf(const std::string& path) {
  const auto content = readFresh(path);
  return content ? *content : "(" + content.error().message + ")";
}

std::vector<std::string> namesIn(const std::string& folder) {
  auto names = listFresh(folder);
  EXPECT_TRUE(names);
  std::sort(names->begin(), names->end());
  return *names;
}

mode_t modeOf(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

}  // namespace

TEST(SharedFilesTest, WhatIsWrittenIsReadAndNothingElseIsLeft) {
  const ScratchFolder folder;
  const std::string content = std::string("a\0b\xFF", 4) + std::string(300'000, 'x');
  ASSERT_TRUE(writeAtomically(folder / "edit.otio", content));
  EXPECT_EQ(freshContentOf(folder / "edit.otio"), content);
  ASSERT_TRUE(writeAtomically(folder / "edit.otio", ""));
  EXPECT_EQ(freshContentOf(folder / "edit.otio"), "");
  EXPECT_EQ(namesIn(folder.path()), (std::vector<std::string>{"edit.otio"}));
}

TEST(SharedFilesTest, NamesOfTheGreatestLengthCanBeWritten) {
  const ScratchFolder folder;
  const std::string name(255, 'n');
  EXPECT_TRUE(writeAtomically(folder / name, "x"));
  EXPECT_EQ(namesIn(folder.path()), (std::vector<std::string>{name}));
}

TEST(SharedFilesTest, AFileOfSenselessSizeIsRefusedWithTheLimitAndNotRead) {
  const ScratchFolder folder;
  std::ofstream(folder / "G0001.json") << "{}";
  std::filesystem::resize_file(folder / "G0001.json", kLargestRecord + 1);
  const auto record = readFresh(folder / "G0001.json", kLargestRecord);
  ASSERT_FALSE(record);
  EXPECT_EQ(record.error().code, ErrorCode::eBadContent);
  EXPECT_NE(record.error().message.find("larger than 16 MiB"), std::string::npos);
  EXPECT_TRUE(readFresh(folder / "G0001.json"));
  std::filesystem::resize_file(folder / "G0001.json", kLargestFile + 1);
  EXPECT_FALSE(readListed(folder / "G0001.json"));
}

TEST(SharedFilesTest, WhatTheKernelMakesAsItIsReadIsReadWhole) {
  const auto mounts = readFresh("/proc/self/mountinfo");
  ASSERT_TRUE(mounts);
  EXPECT_NE(mounts->find(" /proc "), std::string::npos);
  EXPECT_EQ(mounts->back(), '\n');
}

TEST(SharedFilesTest, AFileIsReadAsFarAsItReachedWhenItWasOpened) {
  const ScratchFolder folder;
  const std::string path = folder / "names";
  ASSERT_TRUE(writeAtomically(path, "ANNA"));
  const Descriptor grown = openPlainFile(path, O_RDONLY);
  std::ofstream(path, std::ios::app) << "BEN";
  std::string bytes;
  EXPECT_TRUE(readSized(grown.get(), 4, bytes));
  EXPECT_EQ(bytes, "ANNA");
  const Descriptor cut = openPlainFile(path, O_RDONLY);
  EXPECT_TRUE(readSized(cut.get(), 100, bytes));
  EXPECT_EQ(bytes, "ANNAANNABEN");
  EXPECT_FALSE(readSized(-1, 1, bytes));
}

TEST(SharedFilesTest, AFreshLookReadsAnEntryWhereOpeningTheFolderDoesNotDo) {
  for (const std::int64_t kind : {NFS_SUPER_MAGIC, EXT4_SUPER_MAGIC, TMPFS_MAGIC}) {
    EXPECT_TRUE(isFreshOnceOpened(kind)) << kind;
  }
  constexpr std::int64_t kSmb = 0xFE534D42;
  for (const std::int64_t kind : {kSmb, std::int64_t{FUSE_SUPER_MAGIC}, std::int64_t{0}}) {
    EXPECT_FALSE(isFreshOnceOpened(kind)) << kind;
  }
  const ScratchFolder folder;
  // A folder's reading position is behind its beginning once an entry was read.
  for (const std::string& looked : {folder.path(), std::string("/proc/self")}) {
    struct statfs system {};
    ASSERT_EQ(::statfs(looked.c_str(), &system), 0);
    for (int round = 0; round < 2; ++round) {
      struct statx status {};
      const Descriptor opened = openAfresh(looked, status);
      ASSERT_TRUE(opened.isOpen()) << looked;
      EXPECT_TRUE(S_ISDIR(status.stx_mode)) << looked;
      const bool hasRead = ::lseek(opened.get(), 0, SEEK_CUR) != 0;
      EXPECT_NE(hasRead, isFreshOnceOpened(system.f_type)) << looked;
    }
  }
  EXPECT_FALSE(lookAfresh("/proc/self/missing"));
}

TEST(SharedFilesTest, AListingHoldsEveryWantedFileOnceInItsOrderWithItsState) {
  constexpr int kFiles = 2000;
  // So long that no single reading holds all.
  const std::string ending = std::string(80, '-') + ".json";
  const ScratchFolder folder;
  for (int number = 0; number < kFiles; ++number) {
    std::ofstream(folder / (std::to_string(number) + ending)) << std::string(number % 7U, 'x');
  }
  std::ofstream(folder / "other.txt") << "x";
  std::filesystem::create_directory(folder / "folder.json");
  std::filesystem::create_symlink("0" + ending, folder / "link.json");
  const auto listing =
      listStamped(folder.path(), [](std::string_view name) { return name.ends_with(".json"); });
  ASSERT_TRUE(listing);
  std::vector<std::string> names;
  for (const auto& [name, stamp] : listing->files) {
    names.push_back(name);
    const auto alone = stampOfFile(folder / name);
    ASSERT_TRUE(alone && *alone == stamp && stamp == *listing->files.find(name)) << name;
  }
  EXPECT_EQ(names.size(), static_cast<std::size_t>(kFiles));
  EXPECT_TRUE(std::ranges::is_sorted(names));
  EXPECT_FALSE(listing->files.contains("other.txt"));
  std::vector<std::string> others = listing->others;
  std::ranges::sort(others);
  EXPECT_EQ(others, (std::vector<std::string>{"folder.json", "link.json"}));
  EXPECT_EQ(listing->folder, *stampOfFolder(folder.path()));
  EXPECT_FALSE(listStamped(folder / "other.txt", [](std::string_view) { return true; }));
}

TEST(StampedFilesTest, NamesAreInOrderWhateverTheyBeginWith) {
  const std::vector<std::string> ends = {
      "",        "a",        "ab",        "b",         "\x01",      "\xc3\xa4", "~",
      "0123456", "01234567", "012345678", "012345679", "01234567a", "Z"};
  for (const char* beginning : {"", "E", "E0000000000000000000000000000"}) {
    std::vector<StampedFiles::File> files;
    std::vector<std::string> wanted;
    for (const std::string& end : ends) {
      wanted.push_back(beginning + end);
      files.push_back({wanted.back(), FileStamp{1, files.size()}});
    }
    files.push_back(files.front());
    const StampedFiles sorted(files);
    std::ranges::sort(wanted);
    std::vector<std::string> names;
    for (const auto& [name, stamp] : sorted) names.push_back(name);
    EXPECT_EQ(names, wanted) << beginning;
    for (const auto& [name, stamp] : files) {
      ASSERT_TRUE(sorted.contains(name)) << name;
      EXPECT_EQ(*sorted.find(name), stamp) << name;
    }
  }
  EXPECT_TRUE(StampedFiles(std::vector<StampedFiles::File>()).empty());
}

TEST(SharedFilesTest, AReaderSeesTheOldOrTheNewContentWhole) {
  const ScratchFolder folder;
  const std::string path = folder / "a";
  ASSERT_TRUE(writeAtomically(path, std::string(50'000, 'a')));
  ForkedProcess writer([&path] {
    for (int i = 0; i < 50; ++i) {
      if (!writeAtomically(path, std::string(50'000, static_cast<char>('a' + i % 26)))) return 1;
    }
    return 0;
  });
  for (int i = 0; i < 500; ++i) {
    const std::string content = freshContentOf(path);
    ASSERT_EQ(content.size(), 50'000U);
    ASSERT_EQ(content, std::string(50'000, content[0]));
  }
  EXPECT_EQ(writer.wait(), 0);
}

TEST(SharedFilesTest, SeveralWritersOfOneFileLeaveOneOfTheirContents) {
  const ScratchFolder folder;
  std::vector<std::thread> writers;
  for (char letter = 'a'; letter < 'e'; ++letter) {
    writers.emplace_back([&folder, letter] {
      for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(writeAtomically(folder / "a", std::string(10'000, letter)));
      }
    });
  }
  for (std::thread& writer : writers) writer.join();
  const std::string content = freshContentOf(folder / "a");
  EXPECT_EQ(content, std::string(10'000, content[0]));
  EXPECT_EQ(namesIn(folder.path()).size(), 1U);
}

TEST(SharedFilesTest, WhatAKilledWriterLeftIsTakenAwayByTheNextWrite) {
  const ScratchFolder folder;
  ASSERT_TRUE(writeAtomically(folder / "a", "old"));
  ForkedProcess writer([&folder] {
    const struct rlimit none { 0, 0 };
    const struct rlimit small { 1000, 1000 };
    if (::setrlimit(RLIMIT_CORE, &none) != 0 || ::setrlimit(RLIMIT_FSIZE, &small) != 0) return 2;
    return writeAtomically(folder / "a", std::string(5000, 'x')) ? 0 : 1;  // killed by a signal
  });
  EXPECT_EQ(writer.wait(), -1);
  EXPECT_EQ(freshContentOf(folder / "a"), "old");
  EXPECT_EQ(namesIn(folder.path()).size(), 2U);
  ASSERT_TRUE(writeAtomically(folder / "a", "new"));
  EXPECT_EQ(freshContentOf(folder / "a"), "new");
  EXPECT_EQ(namesIn(folder.path()), (std::vector<std::string>{"a"}));
}

TEST(SharedFilesTest, WhatLiesInTheTemporaryFilesPlaceIsNeverWrittenTo) {
  const ScratchFolder folder;
  const ScratchFolder outside;
  std::ofstream(outside / "victim") << "secret";
  ASSERT_EQ(::chmod((outside / "victim").c_str(), 0600), 0);
  // What a killed writer leaves tells how the file is called.
  ForkedProcess writer([&folder] {
    const struct rlimit none { 0, 0 };
    const struct rlimit small { 1000, 1000 };
    if (::setrlimit(RLIMIT_CORE, &none) != 0 || ::setrlimit(RLIMIT_FSIZE, &small) != 0) return 2;
    return writeAtomically(folder / "a", std::string(5000, 'x')) ? 0 : 1;
  });
  EXPECT_EQ(writer.wait(), -1);
  ASSERT_EQ(namesIn(folder.path()).size(), 1U);
  const std::string temporary = folder / namesIn(folder.path()).front();
  std::filesystem::remove(temporary);
  std::filesystem::create_hard_link(outside / "victim", temporary);
  ASSERT_TRUE(writeAtomically(folder / "a", "new"));
  EXPECT_EQ(freshContentOf(folder / "a"), "new");
  EXPECT_EQ(freshContentOf(outside / "victim"), "secret");
  EXPECT_EQ(modeOf(outside / "victim"), 0600U);
}

TEST(SharedFilesTest, AFileMadeBeforeIsNotHandedOnAsTheNewOne) {
  const ScratchFolder folder;
  ForkedProcess writer([&folder] {
    const struct rlimit none { 0, 0 };
    const struct rlimit small { 1000, 1000 };
    if (::setrlimit(RLIMIT_CORE, &none) != 0 || ::setrlimit(RLIMIT_FSIZE, &small) != 0) return 2;
    return writeAtomically(folder / "a", std::string(5000, 'x')) ? 0 : 1;
  });
  EXPECT_EQ(writer.wait(), -1);
  struct stat left {};
  ASSERT_EQ(::stat((folder / namesIn(folder.path()).front()).c_str(), &left), 0);
  const Descriptor kept(::open((folder / namesIn(folder.path()).front()).c_str(), O_RDONLY));
  ASSERT_TRUE(writeAtomically(folder / "a", "new"));
  struct stat written {};
  ASSERT_EQ(::stat((folder / "a").c_str(), &written), 0);
  EXPECT_NE(written.st_ino, left.st_ino);
}

TEST(SharedFilesTest, AFileOfTwoNamesIsReadButNotOpenedForWriting) {
  const ScratchFolder folder;
  std::ofstream(folder / "a") << "x";
  std::filesystem::create_hard_link(folder / "a", folder / "b");
  EXPECT_TRUE(openPlainFile(folder / "b", O_RDONLY).isOpen());
  EXPECT_FALSE(openToChange(folder / "b", O_RDWR).isOpen());
  EXPECT_EQ(errno, EMLINK);
}

TEST(SharedFilesTest, AFileWhoseGroupIsNotTheFoldersGivesItNoMoreAndNoLessThanOthers) {
  const ScratchFolder folder;
  constexpr gid_t kOther = 12'345;
  if (::chown(folder.path().c_str(), uid_t(-1), kOther) != 0) {
    GTEST_SKIP() << "only root may give a folder to a group that it is not in";
  }
  ASSERT_EQ(::chmod(folder.path().c_str(), 0777), 0);
  const int status = runAsOrdinaryUser([&folder] {
    return writeAtomically(folder / "a", "x") && modeOf(folder / "a") == 0666U ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST(SharedFilesTest, AWriterThatIsKilledAtAnyMomentLeavesAWholeFile) {
  const ScratchFolder folder;
  ASSERT_TRUE(writeAtomically(folder / "a", std::string(100'000, 'a')));
  for (int i = 0; i < 15; ++i) {
    ForkedProcess writer([&folder] {
      while (writeAtomically(folder / "a", std::string(100'000, 'b'))) {
      }
      return 0;
    });
    // Nothing is waited for: the writer is to die at another moment each round.
    std::this_thread::sleep_for(std::chrono::milliseconds(2 + i));
    writer.kill();
    const std::string content = freshContentOf(folder / "a");
    EXPECT_EQ(content, std::string(100'000, content[0]));
  }
}

TEST(SharedFilesTest, AWriteThatFindsNoSpaceKeepsTheOldContent) {
  const ScratchFolder folder;
  ASSERT_TRUE(writeAtomically(folder / "a", "old"));
  ForkedProcess writer([&folder] {
    const struct rlimit small { 1000, 1000 };
    std::signal(SIGXFSZ, SIG_IGN);
    if (::setrlimit(RLIMIT_FSIZE, &small) != 0) return 2;
    const auto written = writeAtomically(folder / "a", std::string(5000, 'x'));
    return !written && written.error().code == ErrorCode::eFull ? 0 : 1;
  });
  EXPECT_EQ(writer.wait(), 0);
  EXPECT_EQ(freshContentOf(folder / "a"), "old");
  EXPECT_EQ(namesIn(folder.path()), (std::vector<std::string>{"a"}));
}

TEST(SharedFilesTest, NewFilesAndFoldersAreSharedAsTheirFolderIs) {
  const ScratchFolder folder;
  ASSERT_EQ(::chmod(folder.path().c_str(), 02775), 0);
  const mode_t before = ::umask(077);
  ASSERT_TRUE(writeAtomically(folder / "a", "x"));
  ASSERT_TRUE(makeFolder(folder / "f"));
  ::umask(before);
  EXPECT_EQ(modeOf(folder / "a"), 0664U);
  EXPECT_EQ(modeOf(folder / "f"), 02775U);
}

TEST(SharedFilesTest, FailuresNameThePathAndTellWhatCanBeDone) {
  const ScratchFolder folder;
  ASSERT_TRUE(makeFolder(folder / "f"));
  EXPECT_EQ(makeFolder(folder / "f").error().code, ErrorCode::eExists);
  EXPECT_EQ(readFresh(folder / "gone").error().code, ErrorCode::eNotFound);
  EXPECT_EQ(readFresh(folder / "f").error().code, ErrorCode::eBadContent);
  EXPECT_EQ(writeAtomically(folder / "f", "x").error().code, ErrorCode::eBadContent);
  EXPECT_EQ(writeAtomically(folder / "gone/a", "x").error().code, ErrorCode::eNotFound);
  EXPECT_EQ(listFresh(folder / "gone").error().code, ErrorCode::eNotFound);
  const Error error = readFresh(folder / "gone").error();
  EXPECT_EQ(error.path, folder / "gone");
  EXPECT_EQ(
      error.message,
      "Cannot read " + folder / "gone" +
          ": No such file or directory. It is not there; check the path, and that the share is "
          "mounted.");
}

TEST(SharedFilesTest, ErrnoValuesAreToldApart) {
  struct Row {
    int number;
    ErrorCode code;
  };
  for (const Row& row : std::vector<Row>{{EACCES, ErrorCode::eNoRights},
                                         {EPERM, ErrorCode::eNoRights},
                                         {EAGAIN, ErrorCode::eHeld},
                                         {ENOLCK, ErrorCode::eNoLockService},
                                         {ESTALE, ErrorCode::eStale},
                                         {EROFS, ErrorCode::eReadOnly},
                                         {ENOSPC, ErrorCode::eFull},
                                         {EDQUOT, ErrorCode::eFull},
                                         {EEXIST, ErrorCode::eExists},
                                         {ENOENT, ErrorCode::eNotFound},
                                         {EIO, ErrorCode::eSystem}}) {
    EXPECT_EQ(errorFromErrno(row.number, "open", "/a").code, row.code) << row.number;
  }
}

TEST(SharedFilesTest, RemovingWhatIsNotThereSucceeds) {
  const ScratchFolder folder;
  ASSERT_TRUE(writeAtomically(folder / "a", "x"));
  EXPECT_TRUE(existsFresh(folder / "a"));
  EXPECT_TRUE(removeFileAt(folder / "a"));
  EXPECT_FALSE(existsFresh(folder / "a"));
  EXPECT_TRUE(removeFileAt(folder / "a"));
  EXPECT_FALSE(removeFileAt(folder.path()));
}
