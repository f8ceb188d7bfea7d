#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/fakes/ScratchFolder.h"
#include "tests/fault/TroubledShare.h"
#include "tests/support/StationProcess.h"

namespace korvel {

/// What came of killing a station again and again.
struct KillOutcome {
  using Milliseconds = std::chrono::milliseconds;

  int rounds = 0;
  int commands = 0;   ///< that were answered
  int refused = 0;    ///< those of them that the share's trouble made fail
  int inTrouble = 0;  ///< kills while the share was in trouble
  int deleted = 0;    ///< edits that were moved to the trash
  int restored = 0;   ///< edits that were taken back from it
  int saved = 0;      ///< versions that were reported as saved, each looked for after each kill
  int needed = 0;     ///< kills after which changes were in the recovery files alone
  int unsaved = 0;    ///< changes that were answered and not saved when the station was killed
  int missing = 0;    ///< those of them that were nowhere afterwards
  Milliseconds youngest{0};       ///< how old the youngest of these was when the station was killed
  Milliseconds oldest{0};         ///< and the oldest
  int recovered = 0;              ///< edits whose unsaved changes were taken up again
  std::vector<std::string> lost;  ///< what must be there and is not, and what went wrong
};

/// A station that trims, renames, saves, deletes, takes back, restores versions and gives, and is
/// killed at a random moment of it; then another takes up what was left, and goes on in the same
/// project. In every other round it works at a person's pace, with many changes between two saves;
/// in the others as fast as it answers. After each kill everything that was answered must be there:
/// as a file, in the history, in the trash, or, if it was not saved and a second old, in the
/// recovery files. Each change gives its edit a name or a first clip of its own, by which it is
/// looked for.
class KillSession {
 public:
  explicit KillSession(unsigned seed, Trouble trouble = Trouble::eNone);

  /// Whether this machine allows to make the trouble.
  [[nodiscard]] bool isAble() const { return share_.isAble(); }

  /// Plays so many rounds, and up to four times as many until kills have met all that they are to
  /// meet: saves, deletions, unsaved changes, and the share's trouble.
  KillOutcome run(int rounds);

 private:
  using Clock = std::chrono::steady_clock;

  /// By what one state of an edit is told from all others.
  struct State {
    std::string name;
    long end = 0;  ///< of the first clip's material, in frames
    auto operator<=>(const State&) const = default;
  };
  using States = std::set<State>;

  struct Change {
    State state;  ///< of the edit after the change
    Clock::time_point answered;
  };

  /// An edit as the answers told it.
  struct Known {
    std::string cookie;
    State state;
    std::vector<Change> unsaved;  ///< since it was saved, the oldest first
  };

  /// What was found after a kill, by the cookie of the edit.
  struct Found {
    std::map<std::string, States> stored;   ///< in the project, with history and trash
    std::map<std::string, States> unsaved;  ///< in the recovery files
  };

  void start();
  bool takeUp();
  bool learnTrash();
  bool learnEdits();
  bool learn(Known& edit);
  void work();
  bool step();
  bool change(Known& edit);
  bool create();
  bool rename(Known& edit);
  bool trim(Known& edit);
  bool save(Known& edit);
  bool restore(Known& edit);
  bool give(Known& edit);
  bool remove(std::size_t which);
  bool takeBack(std::size_t which);
  std::jthread arrangeKill();
  void look();
  void lookForFiles();
  Found find();
  State read(const std::string& path);
  void findBelow(const std::string& folder, std::map<std::string, States>& found);
  bool lookForChanges(const Known& edit, Found& found);
  void noteMissing(const Known& edit, const Change& change);
  void noteSaved(Known& edit);
  void noteChanged(Known& edit);

  /// Gives a command; false when the station is gone. `ok` tells what came of it.
  bool give(const std::string& line, bool& ok);

  /// Complains of a command that failed for another reason than the share's trouble.
  void expect(bool ok, const std::string& what);

  /// Whether this round's work is a person's, with pauses and many changes between two saves.
  [[nodiscard]] bool isByPerson() const { return outcome_.rounds % 2 == 0; }

  [[nodiscard]] std::size_t random(std::size_t below) { return random_() % below; }
  std::string nextName() { return "Name-" + std::to_string(++changes_); }
  void complain(const std::string& what);

  ScratchFolder folder_;
  TroubledShare share_;
  std::mt19937 random_;
  std::unique_ptr<StationProcess> station_;
  std::vector<Known> edits_;
  std::vector<std::string> trashed_;   ///< the cookies of what is in the trash
  std::set<std::string> made_;         ///< the cookies of all edits that were ever made
  std::map<std::string, State> left_;  ///< what is to be taken up again, by cookie
  std::map<std::string, State> read_;  ///< by what tells one file's content from another's
  std::string project_;
  std::map<std::string, States> saved_;  ///< what was reported as saved, by cookie
  Clock::time_point killed_;
  std::atomic<int> troubles_ = 0;  ///< beginnings and ends of the share's trouble
  JsonValue answer_;
  bool isTroubled_ = false;  ///< the share was in trouble during the last command
  long changes_ = 0;
  const Trouble trouble_;
  int port_ = freeUdpPort();
  KillOutcome outcome_;
};

}  // namespace korvel
