#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <initializer_list>
#include <string>

#include "tests/lab/ProjectView.h"
#include "tests/lab/machines/Site.h"

namespace korvel {

/// A scenario on one network file system: anna's station on the machine "first", ben's on "second".
class NetFsTest : public testing::TestWithParam<std::string> {
 protected:
  using Seconds = StationProcess::Seconds;

  /// How the other machine came to see something.
  struct Seen {
    bool isSeen = false;
    int milliseconds = 0;  ///< since the asking began
  };

  NetFsTest();
  ~NetFsTest() override { site_.endAll(); }

  static JsonValue run(StationProcess& station, const std::string& line) {
    return Site::run(station, line);
  }

  /// Asks again and again, for so long at most, stretched as slow machines need it.
  static Seen seeks(const std::function<bool()>& question, Seconds limit);

  /// Whether the station can open the project now; what it says when it cannot is kept.
  bool canEnter(StationProcess& station);

  /// Makes the scenario's project, and opens it on anna's station.
  void annaEnters(const std::string& kindOption);

  /// The lock of the scenario's project as a station lists it, and its holder.
  std::string lockSeen(StationProcess& station);
  std::string holderSeen(StationProcess& station);

  /// Whether both stations come to show the same; ten seconds are given for messages to come.
  Seen agrees();

  /// Both stations have the project open: they show the same, and so does a station on the server's
  /// own disk that reads all of it now; the files in the folder are those of what it shows.
  void expectAgreement();

  /// The same of a project that one alone may have open: what these show of it who have it open, or
  /// enter it one after the other, and leave it.
  void expectAgreementInTurn(std::initializer_list<StationProcess*> stations);

  /// Adds to what the lab's table says that the scenario showed.
  void shows(const std::string& what);
  void shows(const std::string& what, const Seen& seen);

  /// Lets what nothing tells the end of come to rest, for so long on a quick machine.
  static void rest(Seconds duration);

  /// What a network file system may take to tell, on a machine that others use as well.
  static constexpr Seconds kSoon{20};

  Site site_;
  StationProcess& anna_;
  StationProcess* ben_;
  std::string project_;  ///< its name
  std::string refusal_;  ///< of the last attempt to enter

 private:
  std::string difference();
  ProjectView viewOf(StationProcess& station);
  ProjectView viewInTurn(StationProcess& station);
  ProjectView viewOfFolder();

  std::string shown_;
};

}  // namespace korvel
