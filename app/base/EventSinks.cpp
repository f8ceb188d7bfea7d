#include "app/base/EventSinks.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include "station/wire/MessageFields.h"

namespace korvel {

std::string StationEvent::wholeLine() const {
  if (datagram.empty()) return line;
  const std::string more = writeJson(JsonValue::object(datagramMembers(datagram)));
  return line.substr(0, line.size() - 1) + "," + more.substr(1);
}

EventFile::~EventFile() { close(); }

Result<void> EventFile::open(const std::string& path) {
  const auto failed = [this](int problem) { tellBroken(problem); };
  path_ = path == "-" ? "standard output" : path;
  if (path != "-" && isNamedPipe(path)) {
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
  if (!file_ || file_->write(event.wholeLine() + "\n")) return;
  const int problem = errno;
  close();
  tellBroken(problem);
}

void EventFile::queue(const StationEvent& event) {
  const std::string before = leftOut_ > 0 ? missingLine() : std::string();
  if (!pipe_->write(before + event.wholeLine() + "\n")) return leaveOut(event);
  leftOut_ = 0;
}

std::string EventFile::missingLine() const {
  const JsonValue line = JsonValue::object(
      {{"event", "log"},
       {"time", leftOutTime_},
       {"to", "console"},
       {"text", std::to_string(leftOut_) + " events are missing here, since nobody read them."}});
  return writeJson(line) + "\n";
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

Waiter::Waiter() : descriptor_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Waiter::~Waiter() { ::close(descriptor_); }

void Waiter::end() {
  change([this] { ending_ = true; });
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
    kept_.push_back({{event.name, {}, event.line, event.datagram}});
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

// `seen` counts events from the first ever, so that each is looked at once however often the waiter
// wakes.
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

}  // namespace korvel
