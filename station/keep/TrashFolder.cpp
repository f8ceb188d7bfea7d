#include "station/keep/TrashFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <uuid/uuid.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>

#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"
#include "station/project/Names.h"
#include "station/project/ProjectFolder.h"

namespace korvel {

namespace {

constexpr char kBetween = '~';
constexpr std::size_t kMarkDigits = 8;
constexpr std::int64_t kNanosecond = 1'000'000'000;
constexpr std::int64_t kOneDay = 86'400;

/// Leaves room for the other parts in what file systems allow for a name (255 bytes).
constexpr std::size_t kLongestUser = 150;
constexpr std::string_view kEllipsis = "\xE2\x80\xA6";

/// A name for a file name, cut between two letters and two escapes where it is too long.
std::string shortEscaped(std::string name) {
  std::string escaped = escapedForFile(name);
  while (escaped.size() > kLongestUser) {
    const std::size_t cut = name.size() - 1 - (escaped.size() - kLongestUser) / 4;
    std::size_t end = std::min(cut, name.size() - 1);
    while (end > 0 && (name[end] & 0xC0) == 0x80) --end;
    name.resize(end);
    escaped = escapedForFile(name) + std::string(kEllipsis);
  }
  return escaped;
}

std::string newMark() {
  uuid_t bytes;
  uuid_generate_random(bytes);
  char text[kMarkDigits + 1];
  std::snprintf(text, sizeof text, "%02x%02x%02x%02x", bytes[0], bytes[1], bytes[2], bytes[3]);
  return text;
}

/// "2024-05-31T12:00:00Z" as it stands in a file name, "20240531T120000Z".
std::string shortTime(std::string time) {
  std::erase(time, '-');
  std::erase(time, ':');
  return time;
}

/// The way back; empty for anything else.
std::string longTime(const std::string& time) {
  std::tm parts{};
  if (time.size() != 16 || !::strptime(time.c_str(), "%Y%m%dT%H%M%SZ", &parts)) return {};
  char text[32];
  return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

/// Takes what stands before the next separator off the front.
bool takePart(std::string& rest, std::string& part) {
  const std::size_t end = rest.find(kBetween);
  if (end == 0 || end == std::string::npos) return false;
  part = rest.substr(0, end);
  rest.erase(0, end + 1);
  return true;
}

/// Reads the name of a file in the trash; false for any other.
bool readName(const std::string& name, Trashed& trashed) {
  const std::size_t point = name.rfind('.');
  if (point == std::string::npos || name.front() == '.') return false;
  std::string rest = name.substr(0, point);
  trashed.ending = name.substr(point);
  std::string time;
  const bool isWhole = takePart(rest, trashed.object) && takePart(rest, time) &&
                       takePart(rest, trashed.mark) && !rest.empty();
  trashed.at = longTime(time);
  trashed.by = unescapedFromFile(rest);
  return isWhole && !trashed.at.empty() && trashed.mark.size() == kMarkDigits &&
         trashed.mark.find_first_not_of("0123456789abcdef") == std::string::npos;
}

/// Takes up what the file system knows of a deletion; false when it is gone. One that cannot be
/// looked at is there all the same: who takes it back is told why that cannot be.
bool lookAt(Trashed& trashed) {
  struct stat status {};
  if (::lstat(trashed.path.c_str(), &status) != 0) {
    const int problem = errno;
    // When it was deleted its name says, too: without a time it would count as the oldest of all.
    std::tm parts{};
    if (::strptime(trashed.at.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts))
      trashed.moved = ::timegm(&parts) * kNanosecond;
    return problem != ENOENT && problem != ENOTDIR;
  }
  trashed.isPlain = S_ISREG(status.st_mode);
  trashed.size = static_cast<std::size_t>(status.st_size);
  // The rename into the trash set the time of change, by the share's clock.
  trashed.moved = status.st_ctim.tv_sec * kNanosecond + status.st_ctim.tv_nsec;
  return true;
}

}  // namespace

std::int64_t Trashed::deletedAt(std::int64_t now) const {
  std::tm parts{};
  const std::int64_t byShare = moved / kNanosecond;
  if (!::strptime(at.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts)) return byShare;
  const std::int64_t byStation = ::timegm(&parts);
  return byStation > now + kOneDay ? byShare : std::max(byShare, byStation);
}

Result<void> TrashFolder::make() const {
  if (auto made = makeFolder(folder_); !made && made.error().code != ErrorCode::eExists) {
    return made.error();
  }
  return requireFolder();
}

Result<void> TrashFolder::requireFolder() const {
  struct stat status {};
  // The name may have been taken by a file, or by a link that leads out of the share.
  if (::lstat(folder_.c_str(), &status) != 0) return errorFromErrno(errno, "use", folder_);
  if (S_ISDIR(status.st_mode)) return {};
  return Error{ErrorCode::eBadContent,
               folder_ + " is no folder, so it can be no trash. Move it away.", folder_};
}

Result<Trashed> TrashFolder::take(const std::string& file, const std::string& user) const {
  if (auto made = make(); !made) return made.error();
  const std::string name = nameOf(file);
  const std::size_t point = std::min(name.rfind('.'), name.size());
  Trashed trashed;
  trashed.object = name.substr(0, point);
  trashed.ending = name.substr(point);
  trashed.at = timeForRecord();
  trashed.mark = newMark();
  const std::string by = shortEscaped(user.empty() ? "?" : user);
  trashed.by = unescapedFromFile(by);
  trashed.path = folder_ + "/" + trashed.object + kBetween + shortTime(trashed.at) + kBetween +
                 trashed.mark + kBetween + by + trashed.ending;
  if (auto moved = moveFile(file, trashed.path); !moved) return moved.error();
  // It may be gone again already, taken back by another station: then only size and time are
  // missing.
  lookAt(trashed);
  return trashed;
}

Result<std::vector<Trashed>> TrashFolder::list() const {
  std::vector<Trashed> all;
  const auto names = listFresh(folder_);
  // Only where the project itself is there: while the share is away, an empty list would be wrong.
  if (!names && isGoneFrom(folderOf(folder_), folder_)) return all;
  if (!names) return names.error();
  if (auto folder = requireFolder(); !folder) return folder.error();
  for (const std::string& name : *names) {
    Trashed trashed;
    trashed.path = folder_ + "/" + name;
    if (readName(name, trashed) && lookAt(trashed)) all.push_back(std::move(trashed));
  }
  std::ranges::sort(all, [](const Trashed& a, const Trashed& b) {
    return a.moved != b.moved ? a.moved > b.moved : a.path < b.path;
  });
  return all;
}

std::string TrashFolder::whoDeleted(const std::string& object) const {
  const auto all = list();
  if (!all) return {};
  // The list begins with the newest, so the first match is the latest deletion.
  const auto newest = std::ranges::find(*all, object, &Trashed::object);
  return newest == all->end() ? std::string() : newest->by;
}

Trashed TrashFolder::asItIsNow(const Trashed& trashed) {
  if (existsFresh(trashed.path)) return trashed;
  const auto all = TrashFolder(folderOf(folderOf(trashed.path))).list();
  if (!all) return trashed;
  const auto newest = std::ranges::find_if(*all, [&](const Trashed& each) {
    return each.object == trashed.object && each.by == trashed.by;
  });
  return newest == all->end() ? trashed : *newest;
}

Result<void> TrashFolder::giveBack(const Trashed& trashed, const std::string& file) {
  auto moved = moveFile(trashed.path, file);
  if (moved) return moved;
  Error why = moved.error();
  if (why.code == ErrorCode::eExists) {
    why.message = "It is in the project again, so it stays in the trash as well.";
  }
  if (why.code == ErrorCode::eNotFound) {
    why.message = "It is no longer in the trash: another station took it back, or emptied it.";
  }
  return why;
}

Result<bool> TrashFolder::remove(const Trashed& trashed) {
  // Without this a network file system may answer from its cache that a file is there, or is not.
  lookAfresh(folderOf(trashed.path));
  if (::unlink(trashed.path.c_str()) == 0) return true;
  if (errno == ENOENT) return false;
  return errorFromErrno(errno, "remove", trashed.path);
}

Result<std::int64_t> TrashFolder::shareTime() const {
  // A file that is made now bears the share's time. This machine's clock may be wrong, and would
  // then empty the trash too early.
  const std::string path = folder_ + "/.kv-" + newMark() + ".tmp";
  const Descriptor file = openPlainFile(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW);
  struct stat status {};
  const bool isKnown = file.isOpen() && ::fstat(file.get(), &status) == 0;
  const int problem = errno;
  if (file.isOpen()) ::unlink(path.c_str());
  if (!isKnown) return errorFromErrno(problem, "ask the time in", folder_);
  return status.st_ctim.tv_sec;
}

}  // namespace korvel
