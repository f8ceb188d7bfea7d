#include "station/media/MediaFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace korvel {

namespace {

constexpr std::size_t kHeadSize = 64;

struct Signature {
  std::size_t at;
  std::string_view bytes;
  const char* format;
};

constexpr Signature kSignatures[] = {
    {4, "ftyp", "QuickTime or MP4"},
    {4, "moov", "QuickTime"},
    {4, "mdat", "QuickTime"},
    {0, "\x06\x0E\x2B\x34", "MXF"},
    {8, "AVI ", "AVI"},
    {8, "WAVE", "Wave"},
    {0, "\x1A\x45\xDF\xA3", "Matroska"},
    {0, "FORM", "AIFF"},
    {0, "SDPX", "DPX"},
    {0, "XPDS", "DPX"},
};

std::string formatOf(std::string_view head) {
  for (const Signature& signature : kSignatures) {
    if (head.size() < signature.at) continue;
    if (head.substr(signature.at).starts_with(signature.bytes)) return signature.format;
  }
  return {};
}

}  // namespace

MediaFiles& MediaFiles::instance() {
  static MediaFiles files;
  return files;
}

MediaFiles::~MediaFiles() {
  for (const auto& [path, descriptor] : open_) ::close(descriptor);
}

MediaLook MediaFiles::look(const std::string& path) {
  Stamp stamp;
  const auto kept = heads_.find(path);
  errno = 0;
  const bool isThere = stampAt(path, stamp);
  if (!isThere || (kept != heads_.end() && !(kept->second.stamp == stamp))) {
    close(path);
    dropHead(path);
  }
  const int descriptor = isThere ? descriptorFor(path) : -1;
  const int problem = errno;
  if (descriptor < 0)
    return {false, 0, problem == 0 ? "no plain file" : std::strerror(problem), {}};
  return {true, stamp.size, {}, formatOf(headOf(path, stamp, descriptor))};
}

void MediaFiles::close(const std::string& path) {
  const auto found = open_.find(path);
  if (found == open_.end()) return;
  ::close(found->second);
  open_.erase(found);
  std::erase(order_, path);
}

void MediaFiles::dropHead(const std::string& path) { heads_.erase(path); }

bool MediaFiles::stampAt(const std::string& path, Stamp& stamp) {
  struct stat found {};
  if (::stat(path.c_str(), &found) != 0 || !S_ISREG(found.st_mode)) return false;
  constexpr std::int64_t kNanoseconds = 1'000'000'000;
  stamp = {found.st_dev, found.st_ino, static_cast<std::uint64_t>(found.st_size),
           found.st_mtim.tv_sec * kNanoseconds + found.st_mtim.tv_nsec};
  return true;
}

int MediaFiles::descriptorFor(const std::string& path) {
  if (const auto found = open_.find(path); found != open_.end()) return found->second;
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return descriptor;
  if (open_.size() >= kMaxOpen) close(std::string(order_.front()));
  open_.emplace(path, descriptor);
  order_.push_back(path);
  return descriptor;
}

const std::string& MediaFiles::headOf(const std::string& path, const Stamp& stamp, int descriptor) {
  const auto kept = heads_.find(path);
  if (kept != heads_.end()) return kept->second.bytes;
  std::string bytes(kHeadSize, '\0');
  const ssize_t count = ::pread(descriptor, bytes.data(), bytes.size(), 0);
  bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  return heads_.insert_or_assign(path, Head{stamp, bytes}).first->second.bytes;
}

}  // namespace korvel
