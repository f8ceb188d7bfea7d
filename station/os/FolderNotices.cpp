#include "station/os/FolderNotices.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace korvel {

namespace {

constexpr std::uint32_t kChanges = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                   IN_CLOSE_WRITE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

int millisecondsUntil(FolderNotices::Clock::time_point until) {
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(until - FolderNotices::Clock::now());
  return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 3'600'000));
}

}  // namespace

FolderNotices::FolderNotices()
    : notices_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)),
      wakes_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

bool FolderNotices::watch(const std::string& folder) {
  if (!notices_.isOpen()) return false;
  const int number = ::inotify_add_watch(notices_.get(), folder.c_str(), kChanges);
  if (number < 0) return false;
  folders_[number] = folder;
  return true;
}

std::set<std::string> FolderNotices::await(Clock::time_point until) {
  std::array<pollfd, 2> waited{{{wakes_.get(), POLLIN, 0}, {notices_.get(), POLLIN, 0}}};
  if (::poll(waited.data(), waited.size(), millisecondsUntil(until)) <= 0) return {};
  return taken();
}

void FolderNotices::pause(Clock::time_point until) {
  pollfd waited{wakes_.get(), POLLIN, 0};
  ::poll(&waited, 1, millisecondsUntil(until));
}

void FolderNotices::wake() {
  const std::uint64_t one = 1;
  // The counter can only be full, and then it is readable already.
  [[maybe_unused]] const ssize_t written = ::write(wakes_.get(), &one, sizeof one);
}

std::set<std::string> FolderNotices::taken() {
  std::set<std::string> changed;
  alignas(inotify_event) std::array<char, 1 << 14> buffer;
  for (;;) {
    const ssize_t count = ::read(notices_.get(), buffer.data(), buffer.size());
    if (count <= 0) return changed;
    for (ssize_t at = 0; at < count;) {
      inotify_event notice{};
      std::memcpy(&notice, buffer.data() + at, sizeof notice);
      at += static_cast<ssize_t>(sizeof notice + notice.len);
      // After an overflow any folder may have changed.
      for (const auto& [number, folder] : folders_) {
        if (number == notice.wd || (notice.mask & IN_Q_OVERFLOW)) changed.insert(folder);
      }
      if (notice.mask & IN_IGNORED) folders_.erase(notice.wd);
    }
  }
}

}  // namespace korvel
