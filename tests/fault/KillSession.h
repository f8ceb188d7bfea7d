#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/fakes/ScratchFolder.h"
#include "tests/support/StationProcess.h"

namespace korvel {

/// What came of killing a station again and again.
struct KillOutcome {
  int rounds = 0;
  int commands = 0;   ///< that were answered
  int deleted = 0;    ///< edits that were moved to the trash
  int restored = 0;   ///< edits that were taken back from it
  int saved = 0;      ///< versions that were reported as saved, each looked for after each kill
  int unsaved = 0;    ///< changes that were a second old when the station was killed
  int recovered = 0;  ///< edits whose unsaved changes were taken up again
  std::vector<std::string> lost;  ///< what was found nowhere, and what went wrong
};

/// A station that trims, renames, saves, deletes, takes back, restores versions and gives, and is
/// killed at a random moment of it; then another takes up what was left, and goes on in the same
/// project. After each kill everything that was answered must be there: as a file, in the history,
/// in the trash, or, if it was not saved and a second old, in the recovery files. Each change gives
/// its edit a name of its own, by which it is looked for.
class KillSession {
 public:
  explicit KillSession(unsigned seed);

  /// Where the kills fall: at random moments alone, or in every third round when a change that was
  /// not saved is in the recovery files, since a quick station saves all else.
  enum class Moments { eRandom, eThirdAtRest };

  KillOutcome run(int rounds, Moments moments = Moments::eRandom);

 private:
  using Clock = std::chrono::steady_clock;

  /// An edit as the answers told it.
  struct Known {
    std::string cookie;
    std::string unsaved;  ///< the name of the last change that was not saved
    Clock::time_point changed;
  };

  void start();
  bool takeUp();
  void work();
  bool step();
  bool create();
  bool rename(Known& edit);
  bool trim(Known& edit);
  bool save(Known& edit);
  bool restore(Known& edit);
  bool give(Known& edit);
  bool remove(std::size_t which);
  bool takeBack(std::size_t which);
  void look();
  void lookForFiles();

  /// Gives a command; false when the station is gone. `ok` tells what came of it.
  bool give(const std::string& line, bool& ok);

  [[nodiscard]] std::size_t random(std::size_t below) { return random_() % below; }
  std::string nextName() { return "Name-" + std::to_string(++names_); }
  void complain(const std::string& what);

  ScratchFolder folder_;
  std::mt19937 random_;
  std::unique_ptr<StationProcess> station_;
  std::vector<Known> edits_;
  std::vector<std::string> trashed_;  ///< the cookies of what is in the trash
  std::set<std::string> made_;        ///< the cookies of all edits that were ever made
  std::string project_;
  std::set<std::string> saved_;
  Clock::time_point killed_;
  JsonValue answer_;
  int names_ = 0;
  Moments moments_ = Moments::eRandom;
  int port_ = freeUdpPort();
  KillOutcome outcome_;
};

}  // namespace korvel
