#include "tools/doctor/FileMailbox.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"

namespace korvel {

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kPauseMicroseconds = 20'000;
constexpr std::size_t kIdLength = 8;
constexpr auto kBetweenTouches = std::chrono::milliseconds(500);

}  // namespace

FileMailbox::FileMailbox(const ProbeFolder& folder, std::string ownId)
    : folder_(folder), ownId_(std::move(ownId)) {}

FileMailbox::~FileMailbox() {
  for (const std::string& path : written_) ::unlink(path.c_str());
}

bool FileMailbox::post(const std::string& step, const JsonValue& letter) {
  const std::string path = folder_.file(ownId_, step);
  written_.push_back(path);
  return static_cast<bool>(writeAtomically(path, writeJson(letter)));
}

std::optional<JsonValue> FileMailbox::await(const std::string& id, const std::string& step,
                                            std::chrono::milliseconds patience) const {
  const auto deadline = Clock::now() + patience;
  while (writersOf(step).count(id) == 0) {
    if (Clock::now() >= deadline) return std::nullopt;
    ::usleep(kPauseMicroseconds);
  }
  const auto bytes = readFresh(folder_.file(id, step), kLargestList);
  if (!bytes) return std::nullopt;
  auto letter = parseJson(*bytes);
  if (!letter) return std::nullopt;
  return std::move(*letter);
}

std::set<std::string> FileMailbox::writersOf(const std::string& step) const {
  touchNowAndThen();
  std::set<std::string> writers;
  const auto names = listFresh(folder_.path());
  if (!names) return writers;
  const std::string head = nameOf(folder_.file("", ""));  // "kvd--"
  const std::string start = head.substr(0, head.size() - 1);
  const std::string ending = "-" + step;
  for (const std::string& name : *names) {
    if (name.size() != start.size() + kIdLength + ending.size() || !name.starts_with(start) ||
        !name.ends_with(ending)) {
      continue;
    }
    const std::string id = name.substr(start.size(), kIdLength);
    if (id != ownId_) writers.insert(id);
  }
  return writers;
}

void FileMailbox::touchNowAndThen() const {
  const auto now = Clock::now();
  if (now < nextTouch_) return;
  nextTouch_ = now + kBetweenTouches;
  static_cast<void>(::utimensat(AT_FDCWD, folder_.path().c_str(), nullptr, 0));
}

}  // namespace korvel
