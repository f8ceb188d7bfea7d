#include "station/os/ReadCache.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <iterator>

#include "tests/fakes/ScratchFolder.h"

using namespace korvel;

namespace {

namespace fs = std::filesystem;

FileStamp stampWith(std::uint64_t inode) { return {1, inode, 100, 5, 6, 1}; }

/// Caches in a directory of this machine, for folders that need not be there.
class ReadCacheTest : public testing::Test {
 protected:
  void putOne(const std::string& folder = "/share/P1") const {
    ReadCache cache(directory, folder);
    cache.put("a", stampWith(7), "what it held");
  }

  [[nodiscard]] std::string found(const std::string& name, const FileStamp& stamp,
                                  const std::string& folder = "/share/P1") const {
    const ReadCache cache(directory, folder);
    const std::string_view* const text = cache.find(name, stamp);
    return text ? std::string(*text) : "nothing";
  }

  /// The one cache in the directory.
  [[nodiscard]] std::string file() const { return fs::directory_iterator(directory)->path(); }

  [[nodiscard]] std::string bytes() const {
    std::ifstream in(file(), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }

  void write(const std::string& bytes) const { std::ofstream(file(), std::ios::binary) << bytes; }

  /// A cache that was spoilt counts as empty and is replaced.
  void isReplaced(const std::string& what, const std::function<void(const std::string&)>& spoil) {
    putOne();
    const std::string path = file();
    spoil(path);
    EXPECT_EQ(found("a", stampWith(7)), "nothing") << what;
    putOne();
    EXPECT_EQ(found("a", stampWith(7)), "what it held") << what;
    struct stat status {};
    ASSERT_EQ(::lstat(path.c_str(), &status), 0) << what;
    EXPECT_EQ(status.st_mode, mode_t(S_IFREG | 0600)) << what;
  }

  ScratchFolder scratch;
  std::string directory = scratch / "home/.cache/korvel";
};

TEST_F(ReadCacheTest, GivesBackWhatWasPutInForTheSameStateOfTheSameFileAlone) {
  putOne();
  EXPECT_EQ(found("a", stampWith(7)), "what it held");
  EXPECT_EQ(found("a", stampWith(8)), "nothing");
  EXPECT_EQ(found("b", stampWith(7)), "nothing");
  EXPECT_EQ(found("a", stampWith(7), "/share/P2"), "nothing");
  FileStamp changed = stampWith(7);
  ++changed.changed;
  EXPECT_EQ(found("a", changed), "nothing");
}

TEST_F(ReadCacheTest, FindsManyInAnyOrder) {
  {
    ReadCache cache(directory, "/share/P1");
    for (std::uint64_t each = 0; each < 1000; ++each) {
      cache.put(std::to_string(each), stampWith(each), std::to_string(each * each));
    }
  }
  const ReadCache cache(directory, "/share/P1");
  for (std::uint64_t each = 999; each < 1000; each -= 3) {
    const auto* const text = cache.find(std::to_string(each), stampWith(each));
    ASSERT_TRUE(text) << each;
    EXPECT_EQ(*text, std::to_string(each * each));
  }
}

TEST_F(ReadCacheTest, KeepsWhatWasFoundAndLeavesOutTheRest) {
  {
    ReadCache cache(directory, "/share/P1");
    cache.put("a", stampWith(7), "stays");
    cache.put("b", stampWith(8), "goes");
  }
  {
    ReadCache cache(directory, "/share/P1");
    EXPECT_TRUE(cache.find("a", stampWith(7)));
    cache.put("c", stampWith(9), "new");
  }
  EXPECT_EQ(found("a", stampWith(7)), "stays");
  EXPECT_EQ(found("b", stampWith(8)), "nothing");
  EXPECT_EQ(found("c", stampWith(9)), "new");
}

TEST_F(ReadCacheTest, ACutOneIsReplaced) {
  putOne();
  const std::string whole = bytes();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    write(whole.substr(0, length));
    ASSERT_EQ(found("a", stampWith(7)), "nothing") << length;
  }
  putOne();
  EXPECT_EQ(found("a", stampWith(7)), "what it held");
}

TEST_F(ReadCacheTest, OneWithAByteChangedIsReplaced) {
  putOne();
  const std::string whole = bytes();
  for (std::size_t at = 0; at < whole.size(); ++at) {
    std::string spoilt = whole;
    spoilt[at] = static_cast<char>(spoilt[at] + 1);
    write(spoilt);
    ASSERT_EQ(found("a", stampWith(7)), "nothing") << at;
  }
}

TEST_F(ReadCacheTest, WhatIsNoPlainFileOfThisUserAloneIsReplaced) {
  isReplaced("a link", [this](const std::string& path) {
    fs::rename(path, scratch / "elsewhere");
    fs::create_symlink(scratch / "elsewhere", path);
  });
  isReplaced("a FIFO", [](const std::string& path) {
    fs::remove(path);
    ::mkfifo(path.c_str(), 0600);
  });
  isReplaced("a folder", [](const std::string& path) {
    fs::remove(path);
    fs::create_directories(path + "/in it");
  });
  isReplaced("one that others may write to",
             [](const std::string& path) { ::chmod(path.c_str(), 0666); });
  isReplaced("one that may not be read",
             [](const std::string& path) { std::ofstream(path) << std::string(1 << 20, 'x'); });
  if (::geteuid() != 0) return;
  isReplaced("another user's",
             [](const std::string& path) { EXPECT_EQ(::chown(path.c_str(), 65'534, 65'534), 0); });
}

TEST_F(ReadCacheTest, NothingIsKeptInADirectoryOfOthers) {
  fs::create_directories(directory);
  ::chmod(directory.c_str(), 0777);
  putOne();
  EXPECT_TRUE(fs::is_empty(directory));
  fs::remove(directory);
  fs::create_directory(scratch / "target");
  fs::create_directory_symlink(scratch / "target", directory);
  putOne();
  EXPECT_TRUE(fs::is_empty(scratch / "target"));
  EXPECT_EQ(found("a", stampWith(7)), "nothing");
}

TEST_F(ReadCacheTest, WithoutADirectoryNothingIsKept) {
  ReadCache cache({}, "/share/P1");
  cache.put("a", stampWith(7), "text");
  EXPECT_FALSE(cache.find("a", stampWith(7)));
}

TEST_F(ReadCacheTest, TheOldestAreThrownOutOfAFullDirectory) {
  constexpr std::size_t kMost = 100'000;
  for (int folder = 0; folder < 5; ++folder) {
    ReadCache cache(directory, "/share/P" + std::to_string(folder), kMost);
    cache.put("a", stampWith(7), std::string(30'000, 'x'));
  }
  std::uintmax_t sum = 0;
  for (const auto& each : fs::directory_iterator(directory)) sum += each.file_size();
  EXPECT_LE(sum, kMost);
  EXPECT_EQ(found("a", stampWith(7), "/share/P0"), "nothing");
  EXPECT_NE(found("a", stampWith(7), "/share/P4"), "nothing");
}

}  // namespace
