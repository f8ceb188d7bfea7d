#pragma once

#include <cstdint>
#include <string>

#include "station/base/Result.h"
#include "tools/capture/CaptureSource.h"
#include "tools/capture/HeardMessage.h"

namespace korvel {

/// What a command hears, and when it ends by itself.
struct ListenRequest {
  Hearing hearing;
  FilterWords filter;
  std::uint64_t count = 0;  ///< messages after which it ends; 0 for never
  double seconds = 0;       ///< time after which it ends; 0 for never
};

/// Declares what monitor and record have in common: which messages, where, and until when.
void declareListening(CommandOptions& options, ListenRequest& request);

/// How both hear, for the end of their help.
inline constexpr const char* kBesideStations =
    "Shares the port with the stations of this machine and takes nothing from them: a datagram to\n"
    "this machine alone goes to one program, a station where there is one, and is not heard here\n"
    "without --capture. Where another program holds the port, packets are captured.\n";

/// Takes what is heard. One thread.
class iHeardSink {
 public:
  virtual ~iHeardSink() = default;

  /// Hearing begins, in this manner. A failure ends it at once.
  virtual Result<void> begin(const std::string& manner) = 0;

  /// A message that is meant. A failure ends the hearing.
  virtual Result<void> take(const HeardMessage& message, const MessageFields& fields) = 0;

  /// A copy of a message that came already over another network.
  virtual Result<void> takeCopy(const HeardMessage& message) = 0;

  /// What was there is taken; a few times a second at least. False ends the hearing.
  virtual bool pause(const MissedMessages& missed) = 0;
};

/// Hears messages until the request's end, SIGINT, SIGTERM, SIGHUP or the sink ends it. How many
/// were meant; the failure says what went wrong (eUsage and eNoRights before anything was heard).
/// Once a process: it takes those signals for the whole program.
Result<std::uint64_t> listen(const ListenRequest& request, iHeardSink& sink);

/// Now, in nanoseconds since 1970, UTC.
std::int64_t wallClock();

}  // namespace korvel
