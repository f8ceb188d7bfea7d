#include "tools/capture/SenderCounts.h"

#include <algorithm>
#include <cstdio>

#include "station/base/Rendering.h"
#include "station/base/TextMember.h"
#include "tools/capture/MessageFilter.h"

namespace korvel {

namespace {

constexpr double kNanosecondsASecond = 1e9;

double secondsBetween(std::int64_t from, std::int64_t to) {
  return static_cast<double>(std::max<std::int64_t>(to - from, 0)) / kNanosecondsASecond;
}

/// Messages a second, to three places.
JsonValue rateOf(std::uint64_t messages, double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f",
                static_cast<double>(messages) / std::max(seconds, 0.001));
  return JsonValue::number(text);
}

std::string typesText(const SenderCount& count) {
  std::string text;
  for (const auto& [type, messages] : count.types) {
    text += (text.empty() ? "" : ", ") + type + " " + std::to_string(messages);
  }
  return text;
}

JsonValue typesObject(const SenderCount& count) {
  JsonValue types = JsonValue::array();
  for (const auto& [type, messages] : count.types) {
    types.append(JsonValue::object({{"type_name", type}, {"messages", messages}}));
  }
  return types;
}

std::string nameOf(const std::pair<Ipv4, std::uint16_t>& sender) {
  return textOf(sender.first) + ":" + std::to_string(sender.second);
}

}  // namespace

SenderCounts::SenderCounts(std::int64_t start, Observer observer)
    : start_(start), observer_(std::move(observer)) {}

void SenderCounts::count(const HeardMessage& message, const MessageFields& fields) {
  ++messages_;
  SenderCount& sender = senders_[{message.sender, message.senderPort}];
  if (sender.messages++ == 0) sender.first = message.time;
  sender.last = message.time;
  if (!fields.valid) ++sender.notValid;
  if (!fields.source.empty()) sender.user = fields.source;
  ++sender.types[fields.valid ? fields.typeName : kNotValid];
  if (observer_) observer_(message, sender);
}

JsonValue SenderCounts::report(std::int64_t now, const MissedMessages& missed) const {
  const double seconds = secondsBetween(start_, now);
  JsonValue senders = JsonValue::array();
  for (const auto& [sender, count] : senders_) {
    senders.append(JsonValue::object({{"sender", textOf(sender.first)},
                                      {"port", static_cast<int>(sender.second)},
                                      textMember("user", count.user),
                                      {"messages", count.messages},
                                      {"not_valid", count.notValid},
                                      {"rate", rateOf(count.messages, seconds)},
                                      {"types", typesObject(count)}}));
  }
  return JsonValue::object({{"seconds", seconds},
                            {"messages", messages_},
                            {"rate", rateOf(messages_, seconds)},
                            {"copies", copies_},
                            {"missed_by_system", missed.bySystem},
                            {"missed_by_reader", missed.byQueue},
                            {"senders", std::move(senders)}});
}

std::string SenderCounts::table(std::int64_t now, const MissedMessages& missed) const {
  const double seconds = secondsBetween(start_, now);
  JsonValue rows = JsonValue::array();
  for (const auto& [sender, count] : senders_) {
    char rate[32];
    std::snprintf(rate, sizeof rate, "%.1f",
                  static_cast<double>(count.messages) / std::max(seconds, 0.001));
    rows.append(JsonValue::object({{"sender", nameOf(sender)},
                                   {"user", count.user},
                                   {"messages", count.messages},
                                   {"a second", rate},
                                   {"types", typesText(count)}}));
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", seconds);
  std::string all = senders_.empty() ? "" : renderForPeople(rows) + "\n";
  all += countText(messages_, "message") + " of " + countText(senders_.size(), "sender") + " in " +
         text + " s";
  if (copies_ > 0) all += ", " + countText(copies_, "copy") + " over another network";
  const std::string lost = missedText(missed);
  return all + (lost.empty() ? ", none missed" : "\n" + lost);
}

std::string missedText(const MissedMessages& missed) {
  std::string text;
  if (missed.bySystem > 0) {
    text = countText(missed.bySystem, "message") + " missed: this machine's buffer was full";
  }
  if (missed.byQueue > 0) {
    text += (text.empty() ? "" : "; ") + countText(missed.byQueue, "message") +
            " missed: what takes the output is too slow";
  }
  return text;
}

}  // namespace korvel
