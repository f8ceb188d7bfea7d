#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "station/base/Json.h"
#include "tests/support/ToolRun.h"

using namespace korvel;

namespace {

/// Holds a lock file as a station on some machine would.
class Holder {
 public:
  explicit Holder(const std::string& path) : file_(::open(path.c_str(), O_RDWR | O_CLOEXEC)) {
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    isHolding_ = ::fcntl(file_, F_OFD_SETLK, &whole) == 0;
  }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;
  ~Holder() { ::close(file_); }

  [[nodiscard]] bool isHolding() const { return isHolding_; }

 private:
  int file_;
  bool isHolding_ = false;
};

class ShareLocksTest : public ::testing::Test {
 protected:
  ShareLocksTest() {
    project("P0001", "Feature");
    project("P0002", "Spot");
  }

  void project(const std::string& cookie, const std::string& name) const {
    put(cookie + "/project.json",
        writeJson(JsonValue::object({{"name", name}, {"private", true}})));
  }
  void put(const std::string& name, const std::string& bytes = {}) const {
    static_cast<void>(folder_.write(name, bytes));
  }
  [[nodiscard]] bool isThere(const std::string& name) const {
    return std::filesystem::exists(folder_ / name);
  }

  /// The lock as `kv-share locks --json` shows it; null when it shows none of that path.
  [[nodiscard]] JsonValue lock(const std::string& path) const {
    const ToolRun run = runTool({"locks", folder_.path(), "--json"});
    const auto all = parseJson(run.out);
    EXPECT_TRUE(all) << run.out << run.err;
    for (const auto& each : all ? all->elements() : std::vector<JsonValue>()) {
      if (each["lock"].asString() == path) return each;
    }
    return {};
  }
  [[nodiscard]] ToolRun breakLock(const std::string& name,
                                  const std::string& answer = "y\n") const {
    return runTool({"break", folder_.path(), name}, answer);
  }

  TestFolder folder_;
};

TEST_F(ShareLocksTest, AFolderThatIsNoProjectsDirectoryIsAUsageError) {
  put("other/letter.txt", "x");
  const std::pair<std::string, const char*> rows[] = {
      {folder_ / "nowhere", "No such file"},
      {folder_ / "other", "holds no projects, but other things"},
      {folder_ / "P0001", "is one project; name the folder that it lies in: "}};
  for (const auto& [directory, part] : rows) {
    const ToolRun run = runTool({"locks", directory});
    EXPECT_EQ(run.status, 2) << directory;
    EXPECT_NE(run.err.find(part), std::string::npos) << run.err;
    EXPECT_EQ(run.out, "");
  }
  std::filesystem::create_directories(folder_ / "new");
  EXPECT_EQ(runTool({"locks", folder_ / "new"}).status, 0);
}

TEST_F(ShareLocksTest, LocksAreSortedByTheirProjectsNames) {
  project("P0003", "Advert");
  put("P0003/rooms/Sound.json", "{}");
  const std::string out = runTool({"locks", folder_.path()}).out;
  EXPECT_LT(out.find("P0003/Lock"), out.find("P0003/rooms/Sound.lck")) << out;
  EXPECT_LT(out.find("P0003/rooms/Sound.lck"), out.find("P0001/Lock")) << out;
  EXPECT_LT(out.find("P0001/Lock"), out.find("P0002/Lock")) << out;
}

TEST_F(ShareLocksTest, ANameThatAnEarlierHolderLeftIsNotShownAsTheHolders) {
  put("P0001/Lock.inf", "BEN");
  const auto earlier = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
  std::filesystem::last_write_time(folder_ / "P0001/Lock.inf", earlier);
  put("P0001/Lock");
  const Holder holder(folder_ / "P0001/Lock");
  EXPECT_EQ(lock("P0001/Lock")["by"].asString(), "");
  const ToolRun run = runTool({"locks", folder_.path()});
  EXPECT_NE(run.out.find("(not known: Lock.inf is of an earlier holder)"), std::string::npos)
      << run.out;
}

/// What kv-share writes to a terminal.
std::string onTerminal(const std::vector<std::string>& words, const char* noColor) {
  int terminal = -1;
  const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    std::vector<const char*> arguments{KV_SHARE};
    for (const std::string& word : words) arguments.push_back(word.c_str());
    arguments.push_back(nullptr);
    ::setenv("TERM", "xterm", 1);
    ::setenv("NO_COLOR", noColor, 1);
    ::execv(KV_SHARE, const_cast<char* const*>(arguments.data()));
    ::_exit(127);
  }
  std::string text;
  char block[4096];
  for (ssize_t count; (count = ::read(terminal, block, sizeof block)) > 0;) {
    text.append(block, static_cast<std::size_t>(count));
  }
  ::waitpid(child, nullptr, 0);
  ::close(terminal);
  return text;
}

TEST_F(ShareLocksTest, ATerminalIsColouredUnlessTheUserWantsNone) {
  put("P0001/Lock");
  const std::vector<std::string> words{"locks", folder_.path()};
  EXPECT_NE(onTerminal(words, "").find("\033[33mP0001/Lock"), std::string::npos);
  EXPECT_EQ(onTerminal(words, "1").find('\033'), std::string::npos);
  EXPECT_EQ(runTool(words).out.find('\033'), std::string::npos);
}

TEST_F(ShareLocksTest, AProjectWithoutALockFileIsFree) {
  const JsonValue free = lock("P0001/Lock");
  EXPECT_EQ(free["state"].asString(), "free");
  EXPECT_EQ(free["kind"].asString(), "project");
  EXPECT_EQ(free["project"].asString(), "Feature");
  EXPECT_EQ(free["since"].asString(), "");
}

TEST_F(ShareLocksTest, AHeldLockNamesItsHolderAndStaysHeld) {
  put("P0001/Lock");
  put("P0001/Lock.inf", "Zo\u00EB");
  const Holder holder(folder_ / "P0001/Lock");
  ASSERT_TRUE(holder.isHolding());
  const JsonValue held = lock("P0001/Lock");
  EXPECT_EQ(held["state"].asString(), "held");
  EXPECT_EQ(held["by"].asString(), "Zo\u00EB");
  EXPECT_NE(held["since"].asString(), "");
  EXPECT_FALSE(Holder(folder_ / "P0001/Lock").isHolding());
}

TEST_F(ShareLocksTest, AHeldLockWithoutANameIsToldApartFromAFreeOne) {
  put("P0001/Lock");
  const Holder holder(folder_ / "P0001/Lock");
  EXPECT_EQ(lock("P0001/Lock")["state"].asString(), "held");
  const ToolRun run = runTool({"locks", folder_.path()});
  EXPECT_NE(run.out.find("held   (name not readable yet)"), std::string::npos) << run.out;
}

TEST_F(ShareLocksTest, ARoomThatIsLeftBehindSaysByWhom) {
  put("P0001/rooms/Sound.json", "{}");
  put("P0001/rooms/Mix%2F2.lck");
  put("P0001/rooms/Mix%2F2.lck.inf", "ann");
  const JsonValue left = lock("P0001/rooms/Mix%2F2.lck");
  EXPECT_EQ(left["state"].asString(), "left behind");
  EXPECT_EQ(left["room"].asString(), "Mix/2");
  EXPECT_EQ(left["by"].asString(), "ann");
  EXPECT_EQ(lock("P0001/rooms/Sound.lck")["state"].asString(), "free");
}

struct InformationRow {
  std::string bytes;
  const char* key;
  std::string shown;
};

TEST_F(ShareLocksTest, AnInformationFileOfAnyContentIsShownAsStationsReadIt) {
  const InformationRow rows[] = {{"", "by", ""},
                                 {std::string(300, 'x'), "by", std::string(200, 'x')},
                                 {std::string("ann\0bob", 7), "by", "ann"},
                                 {"a\xFF", "by_hex", "61ff"}};
  put("P0001/Lock");
  for (const auto& row : rows) {
    put("P0001/Lock.inf", row.bytes);
    EXPECT_EQ(lock("P0001/Lock")[row.key].asString(), row.shown) << row.bytes;
  }
}

TEST_F(ShareLocksTest, AFolderInPlaceOfTheInformationFileIsNoName) {
  put("P0001/Lock");
  put("P0001/Lock.inf/x");
  EXPECT_EQ(lock("P0001/Lock")["state"].asString(), "left behind");
  EXPECT_EQ(lock("P0001/Lock")["by"].asString(), "");
}

TEST_F(ShareLocksTest, ControlCharactersOfNamesNeverReachTheTerminal) {
  project("P0001", "a\x1B[2J\u009Bb\x7F");
  put("P0001/Lock");
  put("P0001/Lock.inf", "\x1B]0;x\x07\n");
  for (const char* format : {"", "--json"}) {
    std::vector<std::string> words{"locks", folder_.path()};
    if (*format) words.emplace_back(format);
    const std::string shown = runTool(words).out;
    for (const char* control : {"\x1B", "\x07", "\x7F", "\u009B"})
      EXPECT_EQ(shown.find(control), std::string::npos) << format;
  }
}

TEST_F(ShareLocksTest, BreakingRemovesBothFilesOfALockThatNobodyHolds) {
  put("P0001/Lock");
  put("P0001/Lock.inf", "ann");
  const ToolRun run = breakLock("P0001/Lock");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("removed P0001/Lock and its information file, left behind by ann"),
            std::string::npos);
  EXPECT_FALSE(isThere("P0001/Lock"));
  EXPECT_FALSE(isThere("P0001/Lock.inf"));
  EXPECT_TRUE(isThere("P0001/project.json"));
}

TEST_F(ShareLocksTest, BreakingAsksBeforeAndTakesAnythingElseForANo) {
  put("P0001/Lock");
  for (const char* answer : {"", "n\n", "\n", "yet\n"}) {
    const ToolRun run = breakLock("P0001/Lock", answer);
    EXPECT_EQ(run.status, 1) << answer;
    EXPECT_NE(run.out.find("Remove P0001/Lock"), std::string::npos) << answer;
    EXPECT_TRUE(isThere("P0001/Lock")) << answer;
  }
  EXPECT_EQ(runTool({"break", "--yes", folder_.path(), "P0001/Lock"}).status, 0);
  EXPECT_FALSE(isThere("P0001/Lock"));
}

TEST_F(ShareLocksTest, BreakingRefusesWhileAnybodyHoldsTheLock) {
  put("P0001/Lock");
  put("P0001/Lock.inf", "ann");
  const Holder holder(folder_ / "P0001/Lock");
  const ToolRun run = runTool({"break", "--yes", folder_.path(), "P0001/Lock"});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("P0001/Lock is held by ann: nothing was removed"), std::string::npos);
  EXPECT_TRUE(isThere("P0001/Lock"));
  EXPECT_TRUE(isThere("P0001/Lock.inf"));
}

TEST_F(ShareLocksTest, ALockIsNamedByItsPathItsProjectOrItsRoom) {
  const std::string whole = folder_ / "P0001/Lock";
  for (const std::string& name : {std::string("P0001"), std::string("Feature"), whole}) {
    put("P0001/Lock");
    EXPECT_EQ(breakLock(name).status, 0) << name;
    EXPECT_FALSE(isThere("P0001/Lock")) << name;
  }
  put("P0002/rooms/Sound.lck");
  EXPECT_EQ(breakLock("Sound").status, 0);
  EXPECT_FALSE(isThere("P0002/rooms/Sound.lck"));
}

TEST_F(ShareLocksTest, ANameOfSeveralOrOfNoneIsExplained) {
  project("P0002", "Feature");
  put("P0001/Lock");
  put("outside");
  const ToolRun several = breakLock("Feature");
  EXPECT_EQ(several.status, 2);
  EXPECT_NE(several.err.find("is the name of several: P0001/Lock P0002/Lock"), std::string::npos);
  for (const char* name : {"nothing", "outside", "P0001/../outside", "P0001/project.json", ""}) {
    const ToolRun none = breakLock(name);
    EXPECT_EQ(none.status, 2) << name;
    EXPECT_NE(none.err.find("is no project or room"), std::string::npos) << name;
  }
  EXPECT_TRUE(isThere("outside"));
}

TEST_F(ShareLocksTest, BreakingAFreeLockRemovesNothing) {
  const ToolRun run = breakLock("P0001");
  EXPECT_EQ(run.status, 0);
  EXPECT_NE(run.out.find("P0001/Lock is free: there is nothing to remove"), std::string::npos);
}

TEST_F(ShareLocksTest, UsersAreThoseOfTheListAndThoseWithAMarker) {
  put("userlist.dat", "Alice\r\nbob\nALICE\n");
  put("zed.cli");
  put("bob.cli");
  const auto report = parseJson(runTool({"users", folder_.path(), "--json"}).out);
  ASSERT_TRUE(report);
  EXPECT_EQ(writeJson((*report)["users"]), R"(["ALICE","BOB"])");
  ASSERT_EQ((*report)["active"].elements().size(), 2u);
  for (const auto& active : (*report)["active"].elements()) {
    EXPECT_GE(active["age"].asLong(-1), 0);
    EXPECT_LT(active["age"].asLong(-1), 60);
  }
  const std::string table = runTool({"users", folder_.path()}).out;
  EXPECT_NE(table.find("BOB    yes"), std::string::npos) << table;
  EXPECT_NE(table.find("zed    no"), std::string::npos) << table;
}

TEST_F(ShareLocksTest, AFolderThatCannotBeReadIsExplained) {
  for (const char* command : {"locks", "users"}) {
    const ToolRun run = runTool({command, folder_ / "nowhere"});
    EXPECT_EQ(run.status, 2) << command;
    EXPECT_NE(run.err.find("nowhere"), std::string::npos) << command;
  }
  EXPECT_EQ(runTool({"break", folder_ / "nowhere", "P0001"}).status, 2);
}

}  // namespace
