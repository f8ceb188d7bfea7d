#include "app/base/EventSinks.h"

#include "station/wire/MessageMembers.h"

namespace korvel {

std::string StationEvent::wholeLine() const {
  if (datagram.empty()) return line;
  const std::string more = writeJson(JsonValue::object(datagramMembers(datagram)));
  return line.substr(0, line.size() - 1) + "," + more.substr(1);
}

}  // namespace korvel
