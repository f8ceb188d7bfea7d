#include "app/base/Options.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/fakes/ScratchFolder.h"

using namespace korvel;

namespace {

TEST(ConfigFile, ReadsKeysAndValuesWithTheirLines) {
  const auto lines = parseConfig(
      "# a station\n\nprojects = /mnt/my projects\n  user=\"Anna # B.\"  # her\r\nmachine =12 # "
      "twelve\nempty =\nlast=x=y",
      "f");
  ASSERT_TRUE(lines) << lines.error().message;
  struct Row {
    int number;
    const char* key;
    const char* value;
  };
  const Row rows[] = {{3, "projects", "/mnt/my projects"},
                      {4, "user", "Anna # B."},
                      {5, "machine", "12"},
                      {6, "empty", ""},
                      {7, "last", "x=y"}};
  ASSERT_EQ(lines->size(), std::size(rows));
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    EXPECT_EQ((*lines)[i].number, rows[i].number);
    EXPECT_EQ((*lines)[i].key, rows[i].key);
    EXPECT_EQ((*lines)[i].value, rows[i].value) << rows[i].key;
  }
}

TEST(ConfigFile, AWrongLineIsReportedWithFileAndLine) {
  struct Row {
    const char* text;
    const char* part;
  };
  for (const Row& row :
       {Row{"user = a\nnonsense\n", "/c/station.conf:2: \"nonsense\" has no \"=\""},
        Row{"\n\n= x\n", "/c/station.conf:3: nothing stands before"},
        Row{"two words = x", "/c/station.conf:1: \"two words\" is no key"},
        Row{"user = \"Anna", "/c/station.conf:1: the quote before the value"},
        Row{"user = \"Anna\" B.", "/c/station.conf:1: something stands behind"}}) {
    const auto lines = parseConfig(row.text, "/c/station.conf");
    ASSERT_FALSE(lines) << row.text;
    EXPECT_EQ(lines.error().message.find(row.part), 0u) << lines.error().message;
  }
}

TEST(ConfigFile, AFileThatIsMissingAndAFolderAreToldByName) {
  EXPECT_EQ(readConfigFile("/nowhere/station.conf").error().code, ErrorCode::eNotFound);
  const auto folder = readConfigFile("/tmp");
  ASSERT_FALSE(folder);
  EXPECT_NE(folder.error().message.find("/tmp"), std::string::npos);
}

TEST(ConfigFile, AFileWithoutEndIsRefused) {
  const auto endless = readConfigFile("/dev/zero");
  ASSERT_FALSE(endless);
  EXPECT_NE(endless.error().message.find("/dev/zero is no plain file"), std::string::npos)
      << endless.error().message;
}

TEST(ConfigFile, ANamedPipeIsRefusedWithoutWaitingForAWriter) {
  const ScratchFolder folder;
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  const auto pipe = readConfigFile(folder / "pipe");
  ASSERT_FALSE(pipe);
  EXPECT_NE(pipe.error().message.find("is no plain file"), std::string::npos);
}

TEST(ConfigFile, AFileThatEverybodyMayWriteIsRefused) {
  const ScratchFolder folder;
  const std::string file = folder / "station.conf";
  std::ofstream(file) << "user = ANNA\n";
  ASSERT_EQ(::chmod(file.c_str(), 0666), 0);
  const auto refused = readConfigFile(file);
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().code, ErrorCode::eNoRights);
  EXPECT_NE(refused.error().message.find("chmod o-w " + file), std::string::npos);
  ASSERT_EQ(::chmod(file.c_str(), 0664), 0);
  EXPECT_TRUE(readConfigFile(file));
}

TEST(ConfigFile, AFileOfMoreThanAMebibyteIsRefused) {
  const ScratchFolder folder;
  std::ofstream(folder / "station.conf") << std::string((1 << 20) + 1, '#');
  ::chmod((folder / "station.conf").c_str(), 0600);
  const auto large = readConfigFile(folder / "station.conf");
  ASSERT_FALSE(large);
  EXPECT_NE(large.error().message.find("is larger than 1 MiB"), std::string::npos);
}

TEST(ConfigFile, NothingIsAConfigurationWithoutLines) {
  const auto lines = readConfigFile("/dev/null");
  ASSERT_TRUE(lines);
  EXPECT_TRUE(lines->empty());
}

TEST(ConfigChange, LeavesEverythingElseByteByByte) {
  struct Row {
    const char* before;
    ConfigChanges changes;
    const char* after;
  };
  const Row rows[] = {
      {"", {{"user", {"ANNA"}}}, "user = ANNA\n"},
      {"# mine\n\n?nonsense\nuser=BEN # me\r\nx = 1",
       {{"user", {"ANNA"}}},
       "# mine\n\n?nonsense\nuser=ANNA # me\r\nx = 1"},
      {"  user\t=  \"Anna B.\"  # her\n", {{"user", {"ANNA"}}}, "  user\t=  ANNA  # her\n"},
      {"x = 1", {{"user", {"ANNA"}}}, "x = 1\nuser = ANNA\n"},
      {"user =\r\n", {{"user", {"ANNA"}}}, "user = ANNA\r\n"},
      {"user = BEN\n", {{"user", {" A #b"}}}, "user = \" A #b\"\n"},
      {"user = \"ANNA\"  \n", {{"user", {"ANNA"}}}, "user = \"ANNA\"  \n"},
      {"user = A\nport = 1 # ours\nhost = B\n", {{"port", {}}}, "user = A\n# ours\nhost = B\n"},
      {"user = A\nuser = B\n", {{"user", {"C"}}}, "user = C\n"},
      {"shared_projects_udp_port = 7\n", {{"port", {"8"}}}, "shared_projects_udp_port = 8\n"},
      {"media = /a=//a\nx = 1\nmedia = /b=//b # two\n",
       {{"media", {"/a=//a", "/c=//c", "/d=//d"}}},
       "media = /a=//a\nx = 1\nmedia = /c=//c # two\nmedia = /d=//d\n"},
  };
  for (const Row& row : rows) {
    const auto changed = changedConfig(row.before, row.changes);
    ASSERT_TRUE(changed) << row.before;
    EXPECT_EQ(*changed, row.after) << row.before;
  }
}

TEST(ConfigChange, AValueThatNoLineHoldsIsRefused) {
  for (const char* value : {"two\nlines", " \"quoted\" ", "bell\a"}) {
    const auto changed = changedConfig("user = BEN\n", {{"user", {value}}});
    ASSERT_FALSE(changed) << value;
    EXPECT_EQ(changed.error().code, ErrorCode::eUsage);
  }
}

std::string bytesIn(const std::string& file) {
  std::ifstream in(file);
  return {std::istreambuf_iterator<char>(in), {}};
}

TEST(ConfigChange, MakesTheFileAndItsFolder) {
  const ScratchFolder folder;
  const std::string file = folder / "config/korvel/station.conf";
  ASSERT_TRUE(changeConfigFile(file, {{"projects", {"/mnt/our projects"}}}));
  EXPECT_EQ(bytesIn(file), "projects = /mnt/our projects\n");
  EXPECT_TRUE(readConfigFile(file));
}

TEST(ConfigChange, ALinkStaysOneAndWhoMayReadTheFileStays) {
  const ScratchFolder folder;
  std::ofstream(folder / "kept") << "user = BEN\n";
  ASSERT_EQ(::chmod((folder / "kept").c_str(), 0600), 0);
  std::filesystem::create_symlink("kept", folder / "station.conf");
  ASSERT_TRUE(changeConfigFile(folder / "station.conf", {{"user", {"ANNA"}}}));
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "station.conf"));
  EXPECT_EQ(bytesIn(folder / "kept"), "user = ANNA\n");
  struct stat status {};
  ASSERT_EQ(::stat((folder / "kept").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST(ConfigChange, ALinkThatLeadsToNothingYetStaysOne) {
  const ScratchFolder folder;
  std::filesystem::create_symlink("kept", folder / "station.conf");
  ASSERT_TRUE(changeConfigFile(folder / "station.conf", {{"user", {"ANNA"}}}));
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "station.conf"));
  EXPECT_EQ(bytesIn(folder / "kept"), "user = ANNA\n");
}

// The file is written beside, and takes its name when it is whole.
TEST(ConfigChange, WhereThereIsNoRoomTheFileStaysAsItWas) {
  const ScratchFolder folder;
  const std::string file = folder / "station.conf";
  std::ofstream(file) << "user = BEN\n";
  rlimit before{};
  ::getrlimit(RLIMIT_FSIZE, &before);
  const rlimit none{4, before.rlim_max};
  ::signal(SIGXFSZ, SIG_IGN);
  ::setrlimit(RLIMIT_FSIZE, &none);
  const auto changed = changeConfigFile(file, {{"user", {"ANNA"}}});
  ::setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_FALSE(changed);
  EXPECT_EQ(bytesIn(file), "user = BEN\n");
}

TEST(ConfigChange, NothingIsWrittenToWhatIsNoFile) {
  EXPECT_FALSE(changeConfigFile("/dev/null", {{"user", {"ANNA"}}}));
  EXPECT_FALSE(changeConfigFile("/tmp", {{"user", {"ANNA"}}}));
}

}  // namespace
