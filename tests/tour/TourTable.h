#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/support/StationProcess.h"

namespace korvel {

/// What a group of stations sent to each other, what arrived, and what it changed: one row a
/// message type.
class TourTable {
 public:
  /// Counts a station's events so far; add every station before asking for the rest.
  void addStation(const std::string& name, const StationProcess& station);

  /// The table as text, with a heading and a last row of sums.
  [[nodiscard]] std::string text() const;

  /// A sentence for each message that a station did not receive exactly once.
  [[nodiscard]] std::vector<std::string> missing() const;

 private:
  struct Row {
    int sent = 0;
    int received = 0;
    int applied = 0;  ///< received messages that changed something there
  };
  using Counts = std::map<std::string, int>;  ///< by the datagram's bytes in hex

  void countEvent(const std::string& station, const JsonValue& event, std::string& delivering);
  [[nodiscard]] int receivedBy(const std::string& station, const std::string& datagram) const;

  std::map<std::string, Row> rows_;            ///< by type name
  std::map<std::string, std::string> typeOf_;  ///< a datagram's type name
  std::map<std::string, Counts> sent_;         ///< by station
  std::map<std::string, Counts> received_;     ///< by station
};

}  // namespace korvel
