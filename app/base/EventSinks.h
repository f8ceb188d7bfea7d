#pragma once

#include <string>

#include "station/base/Json.h"

namespace korvel {

/// Something that happened, as event files show it.
struct StationEvent {
  std::string name;  ///< "sent", "reply"
  JsonValue value;   ///< an object: "event", "time" and the event's own keys
  std::string line;  ///< the same as one line of JSON, without its end

  /// The bytes of the datagram that it is about; empty where it is about none. They are turned into
  /// hexadecimal only for a sink that asks.
  std::string datagram{};

  /// The line with the datagram's own keys.
  [[nodiscard]] std::string wholeLine() const;
};

/// Takes a station's events in the order in which they happen, one at a time, on any thread.
class iEventSink {
 public:
  virtual ~iEventSink() = default;
  virtual void take(const StationEvent& event) = 0;
};

}  // namespace korvel
