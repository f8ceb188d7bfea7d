#include "tests/tour/TourTable.h"

#include <cstdio>

namespace korvel {

namespace {

std::string line(const std::string& name, const std::string& sent, const std::string& expected,
                 const std::string& received, const std::string& applied) {
  char text[160];
  std::snprintf(text, sizeof text, "%-24s %6s %10s %10s %9s\n", name.c_str(), sent.c_str(),
                expected.c_str(), received.c_str(), applied.c_str());
  return text;
}

std::string line(const std::string& name, int sent, int expected, int received, int applied) {
  return line(name, std::to_string(sent), std::to_string(expected), std::to_string(received),
              std::to_string(applied));
}

bool isEffect(const JsonValue& event) {
  const std::string& name = event["event"].asString();
  return name == "notification" || name == "command" ||
         (name == "changed" && event["origin"].asString() == "remote");
}

}  // namespace

void TourTable::addStation(const std::string& name, const StationProcess& station) {
  sent_[name];
  received_[name];
  std::string delivering;
  for (const JsonValue& event : station.events()) countEvent(name, event, delivering);
}

void TourTable::countEvent(const std::string& station, const JsonValue& event,
                           std::string& delivering) {
  const std::string& name = event["event"].asString();
  const std::string& type = event["type_name"].asString();
  const std::string& datagram = event["text_hex"].asString();
  if (name == "sent") {
    ++rows_[type].sent;
    ++sent_[station][datagram];
    typeOf_[datagram] = type;
  } else if (name == "received") {
    ++rows_[type].received;
    ++received_[station][datagram];
    delivering = type;
  } else if (!delivering.empty() && isEffect(event)) {
    ++rows_[delivering].applied;
    delivering.clear();  // one message counts once, however much it changed
  }
}

std::string TourTable::text() const {
  const int others = static_cast<int>(sent_.size()) - 1;
  std::string text = "\n" + line("message", "sent", "to arrive", "received", "applied");
  Row sum;
  for (const auto& [type, row] : rows_) {
    text += line(type, row.sent, row.sent * others, row.received, row.applied);
    sum.sent += row.sent;
    sum.received += row.received;
    sum.applied += row.applied;
  }
  return text + line("all", sum.sent, sum.sent * others, sum.received, sum.applied);
}

int TourTable::receivedBy(const std::string& station, const std::string& datagram) const {
  const Counts& counts = received_.at(station);
  const auto found = counts.find(datagram);
  return found == counts.end() ? 0 : found->second;
}

std::vector<std::string> TourTable::missing() const {
  std::vector<std::string> missing;
  for (const auto& [receiver, unused] : received_) {
    Counts expected;
    for (const auto& [sender, counts] : sent_) {
      if (sender == receiver) continue;
      for (const auto& [datagram, count] : counts) expected[datagram] += count;
    }
    for (const auto& [datagram, count] : expected) {
      const int arrived = receivedBy(receiver, datagram);
      if (arrived == count) continue;
      missing.push_back(receiver + " received " + typeOf_.at(datagram) + " " +
                        std::to_string(arrived) + " times; it was sent " + std::to_string(count) +
                        " times");
    }
  }
  return missing;
}

}  // namespace korvel
