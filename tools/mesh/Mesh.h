#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "station/base/Result.h"
#include "station/net/Interfaces.h"
#include "tools/base/Tool.h"

namespace korvel {

/// A sender as a heard-list has it. Times are seconds since 1970.
struct HeardSender {
  Ipv4 address;
  int port = 0;
  long count = 0;
  long last = 0;
};

/// The list of one station: its identity, and the senders that it hears.
struct HeardFile {
  std::string station;
  std::string host;
  int port = 0;
  int sendsFrom = 0;  ///< 0 for one that never sends
  std::vector<Ipv4> addresses;
  long since = 0;      ///< when it began to listen
  long written = 0;    ///< by its own clock
  long lastSent = 0;   ///< as of 14 s before it was written; 0 for nothing
  long age = 0;        ///< of the file, in seconds
  long strangers = 0;  ///< senders that it heard and forgot, since more came than it lists
  std::vector<HeardSender> heard;

  /// Whether the list is still being written. An old one proves nothing about now.
  [[nodiscard]] bool isFresh() const { return age <= kFreshSeconds; }

  static constexpr long kFreshSeconds = 30;
};

/// Whether one program hears another.
enum class MeshLink {
  eHears,
  eDeaf,   ///< the other has sent, and nothing of it came
  eQuiet,  ///< the other has sent nothing that could be heard
};

/// Reads a list's text; `age` is the file's. eBadContent for anything else.
Result<HeardFile> readHeardFile(const std::string& text, long age);

/// Whether `listener` hears `sender`, by what both have written.
MeshLink linkOf(const HeardFile& listener, const HeardFile& sender);

/// Problems between any two stations: pairs that hear each other one way or not at all, with the
/// likely cause; lists that are no longer written.
Findings judgeMesh(const std::vector<HeardFile>& files);

/// The list of the station that a sender is; null for a sender without a list.
const HeardFile* ownerOf(const HeardSender& sender, const std::vector<HeardFile>& files);

}  // namespace korvel
