#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/fakes/ScratchFolder.h"
#include "tests/share/ProgramRun.h"
#include "tests/support/StationProcess.h"

namespace korvel {

/// Stations in processes of their own that share one projects folder and one port. Each station's
/// user is called like its host, in capitals, as owners are compared.
class SharedStations : public testing::Test {
 protected:
  using Keys = StationProcess::Keys;

  SharedStations() : SharedStations(std::filesystem::temp_directory_path()) {}

  /// In a folder elsewhere than among the system's temporary files, if that can be written to.
  explicit SharedStations(const std::filesystem::path& parent);

  /// Starts a station and waits until it is ready.
  StationProcess& start(const std::string& name, int machine,
                        const std::vector<std::string>& more = {});

  /// Starts anna, ben and carla (machines 11, 12 and 13), all of which open the project "Film".
  void startThree(const std::vector<std::string>& more = {});

  /// Gives a command that must succeed; its result.
  static JsonValue run(StationProcess& station, const std::string& line);

  /// Gives a command that must fail; what it says.
  static std::string refusal(StationProcess& station, const std::string& line);

  /// Waits for an event that must come.
  static JsonValue await(StationProcess& station, const std::string& event, const Keys& keys);

  /// Waits until a station has dealt with everything that a `marker` datagram follows, which is
  /// sent now. Datagrams of one sender arrive in order.
  void settle(StationProcess& station);

  /// How many of its own messages a station has sent, those about rooms left out.
  static std::size_t sentCount(const StationProcess& station);

  /// Sends a message as the administrator's tool does.
  void send(std::vector<std::string> words);

  [[nodiscard]] std::string sample(const std::string& name) const;
  [[nodiscard]] std::vector<std::string> stationWords(std::vector<std::string> more) const;

  ScratchFolder folder_;  ///< holds the projects directory, "projects"
  int port_ = freeUdpPort();
  int markers_ = 0;
  std::string project_;  ///< the cookie of "Film"
  std::vector<std::unique_ptr<StationProcess>> stations_;
  StationProcess* anna_ = nullptr;
  StationProcess* ben_ = nullptr;
  StationProcess* carla_ = nullptr;
};

}  // namespace korvel
