#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <thread>

#include "tests/share/SharedStations.h"
#include "tests/support/BecomesTrue.h"

using namespace korvel;

namespace {

/// A station on a terminal, and the person before it.
class TerminalTest : public SharedStations {
 protected:
  TerminalTest() {
    ::setenv("LC_ALL", "C.UTF-8", 1);
    ::setenv("TERM", "xterm", 1);
    ::setenv("XDG_STATE_HOME", (folder_ / "state").c_str(), 1);
    sitDown("ANNA", "ANNA");
  }

  void sitDown(const std::string& user, const std::string& host,
               const std::vector<std::string>& options = {}) {
    std::vector<std::string> words = stationWords({"--user", user, "--host", host});
    words.insert(words.end(), options.begin(), options.end());
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    process_ = ::forkpty(&terminal_, nullptr, nullptr, nullptr);
    if (process_ == 0) {
      ::execv(arguments[0], arguments.data());
      ::_exit(127);
    }
  }

  ~TerminalTest() override { getUp(); }

  void getUp() {
    if (process_ > 0) {
      ::kill(process_, SIGKILL);
      ::waitpid(process_, nullptr, 0);
    }
    ::close(terminal_);
    shown_.clear();
    isClosed_ = false;
  }

  static std::string bytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  void type(const std::string& keys) const {
    EXPECT_EQ(::write(terminal_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }

  /// Reads until the screen has shown this text since the last call of sees().
  bool shows(const std::string& text) {
    const auto deadline = soon();
    while (shown_.find(text) == std::string::npos) {
      if (isClosed_ || std::chrono::steady_clock::now() > deadline) return false;
      readMore(500);
    }
    return true;
  }

  bool sees(const std::string& text) {
    if (!shows(text)) return false;
    before_ += shown_.substr(0, shown_.find(text) + text.size());
    shown_.erase(0, shown_.find(text) + text.size());
    return true;
  }

  /// Types the keys until the program ends: again every half second, since keys typed while the
  /// terminal changes its mode are swallowed. -1 when it did not end by itself, however much it
  /// went on writing.
  int exitStatusAfter(const std::string& keys) {
    const auto deadline = soon();
    int status = 0;
    while (::waitpid(process_, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > deadline) return -1;
      if (isClosed_) {
        ::poll(nullptr, 0, 20);  // the program has closed its terminal and is about to end
        continue;
      }
      static_cast<void>(!::write(terminal_, keys.data(), keys.size()));
      while (std::chrono::steady_clock::now() < deadline && readMore(500)) {
      }
    }
    process_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  std::string shown_;
  std::string before_;  ///< all that sees() passed over

 private:
  static std::chrono::steady_clock::time_point soon() {
    return std::chrono::steady_clock::now() + std::chrono::minutes(2);
  }

  bool readMore(int milliseconds) {
    pollfd wanted{terminal_, POLLIN, 0};
    if (::poll(&wanted, 1, milliseconds) <= 0) return false;
    std::array<char, 4096> block;
    const ssize_t count = ::read(terminal_, block.data(), block.size());
    if (count > 0) shown_.append(block.data(), static_cast<std::size_t>(count));
    isClosed_ = count <= 0;
    return count > 0;
  }

  int terminal_ = -1;
  bool isClosed_ = false;  ///< no program has the terminal open any more
  pid_t process_ = -1;
};

TEST_F(TerminalTest, TabCompletesCommandsAndTheNamesOfTheOpenProject) {
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type("whoa\t\r");
  EXPECT_TRUE(sees("network_mode: yes")) << shown_;
  type("project create Film\rproject enter Film\redit create \"Night scene\"\rwhoami\r");
  EXPECT_TRUE(sees("network_mode: yes")) << shown_;
  type("edit show Ni\t\r");
  EXPECT_TRUE(sees("name: Night scene")) << shown_;
}

TEST_F(TerminalTest, APersonWhomMessagesCannotReachIsToldOnceWhatToDo) {
  ASSERT_TRUE(sees("quit\" ends.")) << shown_;
  ASSERT_TRUE(shows("kv> ")) << shown_;
  EXPECT_EQ(shown_.find("--user"), std::string::npos) << shown_;
  getUp();
  sitDown("anna", "suite-4");
  EXPECT_TRUE(sees("Start with --user and --host alike, in capitals, such as --user \"SUITE-4\"."));
  EXPECT_TRUE(sees("kv> ")) << shown_;
  type("whoami\r");
  EXPECT_TRUE(sees("user: anna")) << shown_;
  EXPECT_TRUE(sees("owner_name: SUITE-4")) << shown_;
}

TEST_F(TerminalTest, WhatWasTypedIsThereTheNextTime) {
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type("whoami\r");
  EXPECT_TRUE(sees("network_mode: yes")) << shown_;
  EXPECT_TRUE(sees("kv> "));
  getUp();
  sitDown("ANNA", "ANNA");
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type("\033[A\r");
  EXPECT_TRUE(sees("network_mode: yes")) << shown_;
  const auto history = std::filesystem::path(folder_ / "state") / "korvel" / "console-history";
  EXPECT_EQ(std::filesystem::status(history).permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(TerminalTest, TabCompletesTheNamesOfProjectsAndRooms) {
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type("project create \"Harbour at dawn\"\r");
  EXPECT_TRUE(sees("kv> "));
  type("project enter Har\t\r");
  EXPECT_TRUE(sees("name: Harbour at dawn")) << shown_;
  type("room create \"Sound mix\"\r");
  EXPECT_TRUE(sees("There is now a room")) << shown_;
  type("room enter So\t\r");
  EXPECT_TRUE(sees("You are in the room \"Sound mix\".")) << shown_;
}

TEST_F(TerminalTest, TheLastLineComesBackWithTheArrowKey) {
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type("whoami\r");
  EXPECT_TRUE(sees("network_mode: yes")) << shown_;
  EXPECT_TRUE(sees("kv> "));
  type("\033[A\r");
  EXPECT_TRUE(sees("network_mode: yes")) << shown_;
}

TEST_F(TerminalTest, WhatTheStationSaysAppearsAboveTheLineBeingTyped) {
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type("who");
  ASSERT_TRUE(sees("who")) << shown_;
  send({"user-message", "--target", "<All>", "--data", "lunch?", "--source", "BEN"});
  EXPECT_TRUE(sees("lunch?")) << shown_;
  EXPECT_TRUE(sees("kv> who")) << shown_;
  type("ami\r");
  EXPECT_TRUE(sees("network_mode: yes")) << shown_;
}

TEST_F(TerminalTest, WhatOthersChangeIsToldInALineEachAndNotInTheLogsWords) {
  const std::string events = folder_ / "anna.events";
  getUp();
  // By messages alone: on a busy machine the folder could tell of a change first, without a name.
  sitDown("ANNA", "ANNA", {"--events", events, "--set", "watch_seconds=0"});
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type("project create Film\rproject enter Film\redit create Mine\rwhoami\r");
  ASSERT_TRUE(sees("network_mode: yes")) << shown_;
  EXPECT_EQ(before_.find("Sent :"), std::string::npos) << before_;
  StationProcess& ben = start("BEN", 12);
  run(ben, "project enter Film");
  const auto knowsBen = [&events] {
    return bytesOf(events).find("\"event\":\"presence\"") != std::string::npos;
  };
  ASSERT_TRUE(becomesTrue(knowsBen));
  run(ben, "edit create \"Harbour at dawn\"");
  EXPECT_TRUE(sees("BEN made Harbour at dawn.")) << shown_;
  EXPECT_TRUE(sees("kv> ")) << shown_;
  run(ben, "edit rename \"Harbour at dawn\" Harbour");
  run(ben, "edit save Harbour");
  EXPECT_TRUE(sees("BEN saved Harbour.")) << shown_;
  run(ben, "bin create Dailies");
  EXPECT_TRUE(sees("BEN made the bin Dailies.")) << shown_;
  run(ben, "edit give Harbour ANNA --force");
  EXPECT_TRUE(sees("BEN made ANNA the owner of Harbour.")) << shown_;
  type("edit open Harbour\redit delete Mine\rwhoami\r");
  ASSERT_TRUE(sees("network_mode: yes")) << shown_;
  run(ben, "bin destroy Dailies");
  EXPECT_TRUE(sees("BEN deleted the bin Dailies.")) << shown_;
  run(ben, "trash restore Dailies");
  EXPECT_TRUE(sees("BEN brought back the bin Dailies.")) << shown_;
  run(ben, "trash restore Mine");
  EXPECT_TRUE(sees("BEN brought back Mine.")) << shown_;
  run(ben, "say <All> lunch?");
  EXPECT_TRUE(sees("Notification from BEN: lunch?")) << shown_;
  for (const char* const line : {"Received :", "Type    :", "msg for", "   Project"}) {
    EXPECT_EQ(before_.find(line), std::string::npos) << line << " in " << before_;
  }
}

TEST_F(TerminalTest, WhoComesAndGoesIsToldWithTheRoom) {
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type("project create Film\rproject enter Film\rroom create Sound\rwhoami\r");
  ASSERT_TRUE(sees("network_mode: yes")) << shown_;
  StationProcess& ben = start("BEN", 12);
  run(ben, "project enter Film");
  EXPECT_TRUE(sees("BEN opened this project.")) << shown_;
  type("say BE\t lunch?\r");  // there is no user list that names him
  await(ben, "notification", {{"text", "lunch?"}});
  run(ben, "room enter Sound");
  EXPECT_TRUE(sees("BEN came into the room \"Sound\".")) << shown_;
  run(ben, "room create Picture");
  EXPECT_TRUE(sees("There is now a room \"Picture\".")) << shown_;
  run(ben, "room leave");
  EXPECT_TRUE(sees("BEN left the room \"Sound\".")) << shown_;
  run(ben, "project leave");
  EXPECT_TRUE(sees("BEN left this project.")) << shown_;
  type("room enter Sound\rwhoami\r");
  ASSERT_TRUE(sees("network_mode: yes")) << shown_;
  EXPECT_EQ((before_ + shown_).find("ANNA came"), std::string::npos) << "one's own are no news";
  type("room create Foley\r");
  EXPECT_TRUE(sees("There is now a room \"Foley\".")) << shown_;
  std::this_thread::sleep_for(std::chrono::seconds(1));  // all that is told of it is told together
  run(ben, "project enter Film");
  EXPECT_TRUE(sees("BEN opened this project.")) << shown_;
  EXPECT_EQ(before_.find("a room \"Foley\"."), before_.rfind("a room \"Foley\".")) << before_;
}

TEST_F(TerminalTest, WhoWasKilledAndIsBackIsNotToldAsGone) {
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type("project create Film\rproject enter Film\rwhoami\r");
  ASSERT_TRUE(sees("network_mode: yes")) << shown_;
  StationProcess& ben = start("BEN", 12);
  run(ben, "project enter Film");
  EXPECT_TRUE(sees("BEN opened this project.")) << shown_;
  ben.kill9();
  StationProcess& again = start("BEN", 12);
  run(again, "project enter Film");
  run(again, "room create Sound");
  EXPECT_TRUE(sees("There is now a room \"Sound\".")) << shown_;
  EXPECT_EQ(before_.find("BEN left"), std::string::npos) << before_;
}

TEST_F(TerminalTest, ThePanelShowsWordsAsTheyWereTyped) {
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type(
      "say <All> \"Gr\xC3\xBC\xC3\x9F"
      "e aus K\xC3\xB6ln\"\rwhoami\r");
  ASSERT_TRUE(sees("network_mode: yes")) << shown_;
  for (const char* const line : {"panel lines\r", "panel show\r"}) {
    type(line);
    EXPECT_TRUE(
        sees(" : Gr\xC3\xBC\xC3\x9F"
             "e aus K\xC3\xB6ln\r\n"))
        << line << shown_;
  }
}

TEST_F(TerminalTest, AQuestionThatIsNotAnsweredWithYesSaysWhatWasNotDone) {
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type("project create Film\rproject enter Film\rwhoami\r");
  ASSERT_TRUE(sees("network_mode: yes")) << shown_;
  type("trash empty\r");
  ASSERT_TRUE(sees("no? ")) << shown_;
  type("edit list\r");
  EXPECT_TRUE(sees("Not done: trash empty. \"edit list\" was taken for the answer")) << shown_;
  type("trash empty\r");
  ASSERT_TRUE(sees("no? ")) << shown_;
  type("n\r");
  EXPECT_TRUE(sees("Not done: trash empty.\r\n")) << shown_;
  type("trash empty\r");
  ASSERT_TRUE(sees("no? ")) << shown_;
  type("Yes\r");
  EXPECT_TRUE(sees("Removed for good: 0.")) << shown_;
  type("edit create Reel\redit rename Reel Tape\rproject leave\r");
  ASSERT_TRUE(sees("save, discard, or cancel? ")) << shown_;
  type("who\r");
  EXPECT_TRUE(sees("Not done: project leave. \"who\" was taken for the answer")) << shown_;
}

TEST_F(TerminalTest, OfManyChangesAtOnceTheFirstAreToldAndTheRestCounted) {
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type("project create Film\rproject enter Film\rwhoami\r");
  ASSERT_TRUE(sees("network_mode: yes")) << shown_;
  const auto film = std::filesystem::directory_iterator(folder_ / "projects");
  std::filesystem::path folder;
  for (const auto& each : film) {
    if (each.path().filename().string().starts_with('P')) folder = each.path();
  }
  const std::string edit = bytesOf(sample("simple_cut.otio"));
  for (int each = 0; each < 40; ++each) {
    std::ofstream(folder / ("E0" + std::to_string(100 + each) + ".otio")) << edit;
  }
  EXPECT_TRUE(sees("Somebody made Figure 1 - Simple Cut List (E01")) << shown_;
  EXPECT_TRUE(sees("further changes.")) << shown_;
}

TEST_F(TerminalTest, WhoAsksForItIsShownTheLogsWordsAsWell) {
  getUp();
  sitDown("ANNA", "ANNA", {"--verbose"});
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type("project create Film\rproject enter Film\redit create Mine\r");
  EXPECT_TRUE(sees("Sent :")) << shown_;
  EXPECT_TRUE(sees("Type    : EditCreated")) << shown_;
}

TEST_F(TerminalTest, AScriptAtATerminalIsSparedTheLogsWords) {
  for (const std::string& option : {std::string(), std::string("--verbose")}) {
    getUp();
    std::ofstream(folder_ / "script")
        << "project create \"Film" << option << "\"\nproject enter \"Film" << option
        << "\"\nedit create Mine\nwhoami\n";
    std::vector<std::string> options{"--script", folder_ / "script", "--log", folder_ / "log"};
    if (!option.empty()) options.push_back(option);
    before_.clear();
    sitDown("ANNA", "ANNA", options);
    ASSERT_TRUE(sees("network_mode: yes")) << shown_;
    EXPECT_EQ(before_.find("Sent :") == std::string::npos, option.empty()) << before_;
    EXPECT_TRUE(becomesTrue(
        [this] { return bytesOf(folder_ / "log").find("Sent :") != std::string::npos; }));
  }
}

TEST_F(TerminalTest, WhatWasDoneIsSaidAndListsAreInOrder) {
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type("project create Film\rproject enter Film\redit create Quay\redit rename Quay Mole\r");
  ASSERT_TRUE(sees("Renamed;")) << shown_;
  type("edit save Mole\redit create Alder\rfilter create Unused uses=0\rwhoami\r");
  ASSERT_TRUE(sees("network_mode: yes")) << shown_;
  const std::pair<std::string, const char*> rows[] = {
      {"edit restore Mole 1", "Version 1 is saved as the newest; \"undo\" takes it back."},
      {"edit rename Quay Mole", "Renamed;"},
      {"edit revert Mole", "Your unsaved changes are dropped."},
      {"edit open Quay", "It is open."},
      {"edit close Quay", "It is closed."},
      {"edit export Quay " + (folder_ / "out.otio"), "Exported to \""},
      {"filter change Unused uses<2", "It finds \"uses<2\" now;"},
      {"filter destroy Unused", "Moved to the trash;"}};
  for (const auto& [line, answer] : rows) {
    type(line + "\r");
    EXPECT_TRUE(sees(answer)) << line << ": " << shown_;
  }
  before_.clear();
  type("edit create beech\redit list\r");
  ASSERT_TRUE(sees("  Alder  ")) << shown_;
  EXPECT_TRUE(sees("  beech  ")) << shown_;
  EXPECT_TRUE(sees("  Quay   ")) << shown_;
  type("whoami\rstate\r");
  ASSERT_TRUE(sees("network_mode: yes")) << shown_;
  ASSERT_TRUE(sees("health")) << shown_;
  const std::string state = before_.substr(before_.rfind("network_mode"));
  EXPECT_NE(state.find("beech"), state.npos) << state;
  EXPECT_FALSE(std::regex_search(state, std::regex("[0-9a-f]{12}"))) << state;
}

TEST_F(TerminalTest, APersonGoesOnAfterAMistakeAndLeavesWithTheEndOfInput) {
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type("whoamy\r");
  EXPECT_TRUE(sees("did you mean \"whoami\"?")) << shown_;
  EXPECT_TRUE(sees("kv> ")) << shown_;
  EXPECT_EQ(exitStatusAfter("\004"), 0);
}

TEST_F(TerminalTest, TheEndOfInputTypedTooEarlyDoesNotSpoilTheNext) {
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type(std::string("\0", 1));  // what the terminal makes of an early one
  EXPECT_EQ(exitStatusAfter("\004"), 0) << shown_;
}

TEST_F(TerminalTest, TheFirstInterruptClearsTheLine) {
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type("project create Wrong");
  ASSERT_TRUE(sees("Wrong")) << shown_;
  type("\003");
  ASSERT_TRUE(sees("again, or \"quit\", ends")) << shown_;
  type("whoami\r");
  EXPECT_TRUE(sees("user: ANNA")) << shown_;
  type("project list\rwhoami\r");
  EXPECT_TRUE(sees("user: ANNA")) << shown_;
  EXPECT_EQ(shown_.find("Wrong"), std::string::npos) << shown_;
}

TEST_F(TerminalTest, QuitAsksWhatBecomesOfUnsavedChanges) {
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type("project create Film\rproject enter Film\redit create Reel\redit rename Reel Tape\r");
  ASSERT_TRUE(sees("Renamed;")) << shown_;
  type("quit\r");
  ASSERT_TRUE(sees("1 edit: \"Tape\"")) << shown_;
  ASSERT_TRUE(sees("save, discard, or cancel? ")) << shown_;
  type("cancel\r");
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type("project leave\r");
  ASSERT_TRUE(sees("save, discard, or cancel? ")) << shown_;
  type("save\r");
  ASSERT_TRUE(sees("Left the project;")) << shown_;
  type("project enter Film\redit show Tape\r");
  EXPECT_TRUE(sees("name: Tape")) << shown_;
}

TEST_F(TerminalTest, AnExportAsksBeforeItReplacesAFile) {
  const std::string file = folder_ / "out.otio";
  std::ofstream(file) << "mine";
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type("project create Film\rproject enter Film\redit create Reel\r");
  for (const char* answer : {"cancel\r", "\r", "replace\r"}) {
    EXPECT_EQ(bytesOf(file), "mine");
    type("edit export Reel " + file + "\r");
    ASSERT_TRUE(sees("replace, or cancel? ")) << shown_;
    type(answer);
    type("whoami\r");
    ASSERT_TRUE(sees("network_mode: ")) << shown_;
  }
  EXPECT_NE(bytesOf(file).find("OTIO_SCHEMA"), std::string::npos) << bytesOf(file);
}

TEST_F(TerminalTest, ASecondProjectOrEditOfOneNameIsAskedAbout) {
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type("project create Film\rproject enter Film\redit create Reel\redit create Roll\r");
  const std::vector<std::pair<std::string, std::string>> twice{
      {"project create Film", "a project called \"Film\" already"},
      {"edit create Reel", "an edit or log called \"Reel\" already"},
      {"log create Reel", "an edit or log called \"Reel\" already"},
      {"edit rename Roll Reel", "an edit or log called \"Reel\" already"}};
  for (const auto& [line, doubt] : twice) {
    type(line + "\r");
    ASSERT_TRUE(sees(doubt)) << line << ": " << shown_;
    ASSERT_TRUE(sees("no? ")) << line << ": " << shown_;
    type("no\r");
  }
  std::ofstream(folder_ / "in.otio")
      << R"({"OTIO_SCHEMA": "Timeline.1", "name": "Reel", "tracks": {"OTIO_SCHEMA": "Stack.1",)"
         R"( "children": []}})";
  type("edit import " + (folder_ / "in.otio") + "\r");
  ASSERT_TRUE(sees("\"Reel\" already. Make another?")) << shown_;
  type("no\r");
  type("edit rename Reel Reel\r");  // its own name is no other's
  ASSERT_TRUE(sees("Renamed;")) << shown_;
  type("edit list\r");
  ASSERT_TRUE(sees("Roll")) << shown_;
  type("edit create Roll\r");
  ASSERT_TRUE(sees("no? ")) << shown_;
  type("yes\r");
  EXPECT_TRUE(sees("There was an edit or log called \"Roll\" already")) << shown_;
}

TEST_F(TerminalTest, EmptyingTheTrashAsksFirst) {
  ASSERT_TRUE(sees("kv> ")) << shown_;
  type("project create Film\rproject enter Film\redit create Reel\redit delete Reel\r");
  ASSERT_TRUE(sees("Moved to the trash;")) << shown_;
  for (const char* answer : {"no\r", "\r"}) {
    type("trash empty\r");
    ASSERT_TRUE(sees("gone for everybody. Remove it? yes or no? ")) << shown_;
    type(answer);
    type("trash list\r");
    ASSERT_TRUE(sees("Reel")) << shown_;
  }
  type("trash empty\r");
  ASSERT_TRUE(sees("yes or no? ")) << shown_;
  type("yes\r");
  EXPECT_TRUE(sees("Removed for good: 1.")) << shown_;
}

TEST_F(TerminalTest, AnInterruptEndsItLikeQuit) {
  ASSERT_TRUE(sees("kv> ")) << shown_;
  EXPECT_EQ(exitStatusAfter("\003"), 0);
  EXPECT_FALSE(std::filesystem::exists(folder_ / "projects/ANNA.cli"));
}

}  // namespace
