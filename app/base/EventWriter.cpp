#include "app/base/EventWriter.h"

#include <chrono>
#include <cstdio>

#include "station/base/Json.h"
#include "station/wire/MessageFields.h"

namespace korvel {

namespace {

JsonValue secondsNow() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  char text[32];
  std::snprintf(text, sizeof text, "%.6f", std::chrono::duration<double>(now).count());
  return JsonValue::number(text);
}

/// A line without the line end that the log's texts carry.
std::string withoutLineEnd(std::string text) {
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

}  // namespace

void EventWriter::addSink(iEventSink& sink) { sinks_.push_back(&sink); }

void EventWriter::emit(std::string_view name, const std::vector<JsonValue::Member>& members,
                       const std::string& datagram) {
  StationEvent event{std::string(name), JsonValue::object({{"event", name}}), {}, datagram};
  const std::lock_guard lock(mutex_);
  event.value.set("time", secondsNow());
  for (const auto& [key, value] : members) event.value.set(key, value);
  event.line = writeJson(event.value);
  for (iEventSink* sink : sinks_) sink->take(event);
}

void EventWriter::sent(const std::string& wireText) {
  emit("sent", messageMembers(readMessage(wireText)), wireText);
}

namespace {

/// Whether nobody vouches for the sender of the message that is being delivered.
bool isUnverified() {
  const ReceivedMessage* const message = currentMessage();
  return message && message->isUnverified;
}

}  // namespace

void EventWriter::received(const std::string& wireText, const MessageFields& message) {
  auto members = messageMembers(message);
  if (isUnverified()) members.emplace_back("unverified", true);
  emit("received", members, wireText);
  message_ = message;
}

void EventWriter::changed(const std::string& what, const Cookie& cookie, const std::string& how,
                          Origin origin) {
  emit("changed", {{"what", what},
                   {"cookie", cookie.asString().str()},
                   {"how", how},
                   {"origin", originText(origin)}});
}

void EventWriter::log(bool toConsole, const std::string& text) {
  emit("log", {{"to", toConsole ? "console" : "file"}, textMember("text", withoutLineEnd(text))});
}

void EventWriter::command(const std::string& name) { emit("command", {textMember("name", name)}); }

void EventWriter::network(const std::string& problem, std::uint64_t dropped) {
  std::vector<JsonValue::Member> members{textMember("problem", problem)};
  if (dropped > 0) members.emplace_back("dropped", static_cast<unsigned long>(dropped));
  emit("network", members);
}

void EventWriter::presence(const std::string& how, const JsonValue& station) {
  std::vector<JsonValue::Member> members{{"how", how}};
  members.insert(members.end(), station.members().begin(), station.members().end());
  emit("presence", members);
}

void EventWriter::health(const JsonValue& health) { emit("health", health.members()); }

void EventWriter::steps(const std::string& undo, const std::string& redo) {
  emit("steps", {textMember("undo", undo), textMember("redo", redo)});
}

void EventWriter::notification(const std::string& text) {
  std::vector<JsonValue::Member> members{textMember("text", text)};
  const bool isTheirs = currentOrigin() == Origin::eRemote && message_.data == text;
  if (isTheirs && !message_.source.empty())
    members.push_back(textMember("source", message_.source));
  if (isTheirs && message_.isCut()) members.emplace_back("cut", true);
  if (isTheirs && isUnverified()) members.emplace_back("unverified", true);
  emit("notification", members);
}

void EventWriter::panel(const std::vector<std::string>& lines) {
  JsonValue shown = JsonValue::array();
  for (const std::string& line : lines) shown.append(textMember("", line).second);
  emit("panel", {{"lines", shown}});
}

}  // namespace korvel
