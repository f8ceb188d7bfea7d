#include "app/base/EventSinks.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <string_view>
#include <utility>

#include "station/base/Json.h"
#include "station/base/StationSettings.h"
#include "station/project/ProjectFolder.h"
#include "station/watch/Happenings.h"
#include "station/wire/MessageTable.h"

namespace korvel {

const std::string& StationEvent::line() const {
  if (written.empty()) written = writeJson(value);
  return written;
}

std::string StationEvent::wholeLine() const {
  if (datagram.empty()) return line();
  const std::string more = writeJson(JsonValue::object(datagramMembers(datagram)));
  // Joins the two objects as text: the closing brace of one, the opening brace of the other.
  return line().substr(0, line().size() - 1) + "," + more.substr(1);
}

EventFile::~EventFile() { close(); }

Result<void> EventFile::open(const std::string& path) {
  const auto failed = [this](int problem) { tellBroken(problem); };
  path_ = path == "-" ? "standard output" : path;
  if (path != "-" && isNamedPipe(path)) {
    // Opening a named pipe waits for a reader, so the writer does it on its own thread.
    pipe_ = std::make_unique<PipeWriter>(-1, path, failed);
    return {};
  }
  const int descriptor =
      path == "-" ? ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3) : RotatingFile::open(path, O_TRUNC);
  if (descriptor < 0) {
    return Error{ErrorCode::eSystem,
                 "Events cannot be written to " + path_ + ": " + std::strerror(errno) +
                     "; name another file with --events FILE.",
                 path};
  }
  if (isReadBySomebody(descriptor)) {
    pipe_ = std::make_unique<PipeWriter>(descriptor, path, failed);
  } else {
    file_ = std::make_unique<RotatingFile>(descriptor, path);
  }
  return {};
}

void EventFile::take(const StationEvent& event) {
  if (pipe_) return queue(event);
  if (!file_) return;
  if (!file_->hasRoom()) return stopFor(event);
  const std::string before =
      leftOut_ > 0
          ? logLine(std::to_string(leftOut_) + " events are missing here, for want of room.")
          : std::string();
  leftOut_ = 0;
  if (file_->write(before + event.wholeLine() + "\n")) return;
  // close() may change errno.
  const int problem = errno;
  close();
  tellBroken(problem);
}

void EventFile::queue(const StationEvent& event) {
  // The reader sees the gap where it is, before the first event that fits again.
  const std::string before = leftOut_ > 0 ? missingLine() : std::string();
  if (!pipe_->write(before + event.wholeLine() + "\n")) return leaveOut(event);
  leftOut_ = 0;
}

void EventFile::stopFor(const StationEvent& event) {
  leftOutTime_ = event.value["time"];
  if (leftOut_++ > 0) return;
  file_->write(logLine(std::string("The events stop: ") + RotatingFile::kNoRoom + "."));
  tell_("The events written to " + path_ + " stop: " + RotatingFile::kNoRoom + ". Make room.");
}

std::string EventFile::logLine(const std::string& text) const {
  const JsonValue line = JsonValue::object(
      {{"event", "log"}, {"time", leftOutTime_}, {"to", "console"}, {"text", text}});
  return writeJson(line) + "\n";
}

std::string EventFile::missingLine() const {
  return logLine(std::to_string(leftOut_) + " events are missing here, since nobody read them.");
}

void EventFile::leaveOut(const StationEvent& event) {
  leftOutTime_ = event.value["time"];
  if (leftOut_++ > 0) return;
  tell_("Nobody reads the events written to " + path_ +
        "; the station goes on, and events are left out until they are read.");
}

void EventFile::tellBroken(int problem) const {
  tell_("Events are no longer written to " + path_ + ": " + std::strerror(problem) +
        ". The station goes on; start it again to have events.");
}

void EventFile::close() {
  file_.reset();
  if (!pipe_) return;
  const std::size_t unread = pipe_->finish() + leftOut_;
  pipe_.reset();
  if (unread > 0) tell_("The last events written to " + path_ + " were never read.");
}

Result<void> AuditFile::open(const std::string& path) {
  log_.emplace(path);
  auto written = append(JsonValue::object({{"what", "started"}}));
  if (written) return written;
  const Error& why = written.error();
  return Error{why.code, why.message + " Or name another file with --audit FILE.", why.path};
}

void AuditFile::take(const StationEvent& event) {
  if (!log_ || event.name != "audit") return;
  const auto written = append(event.value);
  if (!written && !isTold_) {
    tell_("The audit log is incomplete from now on: " + written.error().message);
  }
  isTold_ = !written;
}

Result<void> AuditFile::append(const JsonValue& event) {
  JsonValue record = JsonValue::object({{"time", timeForRecord()},
                                        textMember("user", settings().user),
                                        textMember("host", settings().host)});
  for (const auto& [key, value] : event.members()) {
    if (key != "event" && key != "time") record.set(key, value);
  }
  return log_->append(std::move(record));
}

Waiter::Waiter() : descriptor_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Waiter::~Waiter() { ::close(descriptor_); }

void Waiter::end() {
  change([this] { ending_ = true; });
  // Never read again: everything that polls the descriptor sees the end.
  ::eventfd_write(descriptor_, 1);
}

bool Waiter::isEnding() const {
  const std::lock_guard lock(mutex_);
  return ending_;
}

namespace {

std::string comparedText(const JsonValue& value) {
  return value.isString() ? value.asString() : writeJson(value);
}

}  // namespace

bool EventPattern::matches(const JsonValue& value) const {
  return std::ranges::all_of(keys, [&value](const auto& wanted) {
    const JsonValue* found = value.find(wanted.first);
    return found && wanted.second.contains(comparedText(*found));
  });
}

void EventHistory::take(const StationEvent& event) {
  waiter_.change([&] {
    // Without the value: thousands of events are kept, and few are waited for.
    kept_.push_back({{event.name, {}, event.line(), event.datagram}});
    bytes_ += kept_.back().bytes();
    while (kept_.size() > kMaxEvents || bytes_ > kMaxBytes) forgetOldest();
  });
}

std::optional<JsonValue> EventHistory::await(const EventPattern& pattern,
                                             Waiter::Clock::time_point deadline) {
  std::optional<JsonValue> found;
  std::size_t seen = 0;
  waiter_.await(deadline, [&] { return (found = takeMatch(pattern, seen)).has_value(); });
  return found;
}

// `seen` counts events since the start, so that each is compared once, no matter how often the
// waiter wakes.
std::optional<JsonValue> EventHistory::takeMatch(const EventPattern& pattern, std::size_t& seen) {
  for (seen = std::max(seen, forgotten_); seen - forgotten_ < kept_.size(); ++seen) {
    const auto kept = kept_.begin() + static_cast<std::ptrdiff_t>(seen - forgotten_);
    if (kept->event.name != pattern.event) continue;
    auto value = parseJson(kept->event.wholeLine());
    if (!value || !pattern.matches(*value)) continue;
    bytes_ -= kept->bytes();
    kept_.erase(kept);
    return *value;
  }
  return std::nullopt;
}

void EventHistory::forgetOldest() {
  bytes_ -= kept_.front().bytes();
  kept_.pop_front();
  ++forgotten_;
}

namespace {

JsonValue secondsNow() {
  const std::chrono::duration<double> now = std::chrono::steady_clock::now().time_since_epoch();
  char text[32];
  const auto end =
      std::to_chars(text, text + sizeof text, now.count(), std::chars_format::fixed, 6).ptr;
  return JsonValue::number(std::string(text, end));
}

/// A line without the line end that the log's texts carry.
std::string withoutLineEnd(std::string text) {
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

}  // namespace

void EventWriter::addSink(iEventSink& sink) { sinks_.push_back(&sink); }

bool EventWriter::isTaken(std::string_view name) const {
  return std::ranges::any_of(sinks_, [name](const iEventSink* each) { return each->takes(name); });
}

void EventWriter::emit(std::string_view name, std::vector<JsonValue::Member> members,
                       const std::string& datagram) {
  if (!isTaken(name)) return;
  StationEvent event{std::string(name), JsonValue::object({{"event", name}}), {}, datagram};
  const std::lock_guard lock(mutex_);
  // Under the lock: times rise in the order in which sinks get the events.
  event.value.set("time", secondsNow());
  for (auto& [key, value] : members) event.value.set(key, std::move(value));
  for (iEventSink* sink : sinks_) {
    if (sink->takes(name)) sink->take(event);
  }
}

// Those that come with each message ask first whether anybody takes them.

void EventWriter::sent(const std::string& wireText) {
  if (!isTaken("sent")) return;
  emit("sent", messageMembers(readMessage(wireText)), wireText);
}

namespace {

/// Whether the message that is being delivered comes from an unverified sender.
bool isUnverified() {
  const ReceivedMessage* const message = currentMessage();
  return message && message->isUnverified;
}

}  // namespace

void EventWriter::received(const std::string& wireText, const MessageFields& message) {
  message_ = message;
  if (!isTaken("received")) return;
  auto members = messageMembers(message);
  if (isUnverified()) members.emplace_back("unverified", true);
  emit("received", std::move(members), wireText);
}

void EventWriter::changed(const std::string& what, const Cookie& cookie, const std::string& how,
                          Origin origin) {
  if (!isTaken("changed")) return;
  std::vector<JsonValue::Member> members{{"what", what},
                                         {"cookie", cookie.asString().str()},
                                         {"how", how},
                                         {"origin", originText(origin)}};
  if (const std::string by = currentAuthor(); !by.empty()) members.push_back(textMember("by", by));
  emit("changed", std::move(members));
}

void EventWriter::log(bool toConsole, const std::string& text) {
  if (!isTaken("log")) return;
  emit("log", {{"to", toConsole ? "console" : "file"}, textMember("text", withoutLineEnd(text))});
}

void EventWriter::command(const std::string& name) { emit("command", {textMember("name", name)}); }

void EventWriter::network(const std::string& problem, std::uint64_t dropped) {
  std::vector<JsonValue::Member> members{textMember("problem", problem)};
  if (dropped > 0) members.emplace_back("dropped", static_cast<unsigned long>(dropped));
  emit("network", members);
}

void EventWriter::happened(const Happening& happening) {
  if (!isTaken("happened")) return;
  std::vector<JsonValue::Member> members = shownHappening(happening).members();
  // An event's time is that of the machine's clock; when it happened is under "when".
  std::erase_if(members, [](const JsonValue::Member& each) { return each.first == "time"; });
  emit("happened", members);
}

void EventWriter::presence(const std::string& how, const JsonValue& station) {
  std::vector<JsonValue::Member> members{{"how", how}};
  members.insert(members.end(), station.members().begin(), station.members().end());
  emit("presence", members);
}

void EventWriter::talk(const std::string& event, const std::vector<JsonValue::Member>& members) {
  std::vector<JsonValue::Member> own = members;
  // An event's time is that of the machine's clock; what was said has its own under "when".
  std::erase_if(own, [](const JsonValue::Member& each) { return each.first == "time"; });
  emit(event, own);
}

void EventWriter::audit(const std::string& what, const std::vector<JsonValue::Member>& detail) {
  std::vector<JsonValue::Member> members{{"what", what}};
  members.insert(members.end(), detail.begin(), detail.end());
  emit("audit", members);
}

void EventWriter::health(const JsonValue& health) { emit("health", health.members()); }

void EventWriter::steps(const std::string& undo, const std::string& redo) {
  emit("steps", {textMember("undo", undo), textMember("redo", redo)});
}

void EventWriter::notification(const std::string& text) {
  std::vector<JsonValue::Member> members{textMember("text", text)};
  // The plug-in notifies with the words alone. The message that is being delivered tells whose they
  // are.
  const bool isTheirs = currentOrigin() == Origin::eRemote && message_.data == text;
  if (isTheirs && !message_.source.empty())
    members.push_back(textMember("source", message_.source));
  if (isTheirs && message_.isCut()) members.emplace_back("cut", true);
  if (isTheirs && isUnverified()) members.emplace_back("unverified", true);
  emit("notification", members);
}

namespace {

JsonValue textsFrom(const std::vector<std::string>& lines, std::size_t first) {
  JsonValue shown = JsonValue::array();
  for (; first < lines.size(); ++first) shown.append(textMember("", lines[first]).second);
  return shown;
}

/// How many of the lines were there before. Lines are added at the end, and the oldest go.
std::size_t commonCount(const std::vector<std::string>& before,
                        const std::vector<std::string>& now) {
  for (std::size_t gone = 0; gone < before.size(); ++gone) {
    const std::size_t left = before.size() - gone;
    const auto from = before.begin() + static_cast<std::ptrdiff_t>(gone);
    if (left <= now.size() && std::equal(from, before.end(), now.begin())) return left;
  }
  return 0;
}

}  // namespace

void EventWriter::panel(const std::vector<std::string>& lines) {
  const std::size_t common = commonCount(panel_, lines);
  panel_ = lines;
  emit("panel", {{"added", textsFrom(lines, common)}, {"lines", textsFrom(lines, 0)}});
}

}  // namespace korvel
