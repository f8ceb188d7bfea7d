#include "app/base/EventFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

namespace korvel {

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

}  // namespace korvel
