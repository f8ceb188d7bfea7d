#include "station/seal/AuditLog.h"

#include <fcntl.h>
#include <sodium.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <thread>
#include <utility>

#include "station/base/Log.h"
#include "station/base/Strings.h"
#include "station/os/FileErrors.h"
#include "station/os/Posix.h"

namespace korvel {

namespace {

constexpr std::size_t kHashBytes = 32;
constexpr const char* kPrevious = "previous";

/// How long another program may write.
constexpr std::chrono::milliseconds kLongestWait(3000);
constexpr std::chrono::milliseconds kBetweenTries(2);

std::string noHash() { return std::string(2 * kHashBytes, '0'); }

std::string hashOf(std::string_view line) {
  std::array<unsigned char, kHashBytes> hash{};
  crypto_generichash(hash.data(), hash.size(), reinterpret_cast<const unsigned char*>(line.data()),
                     line.size(), nullptr, 0);
  return hexText({reinterpret_cast<const char*>(hash.data()), hash.size()});
}

bool waitForLock(int descriptor) {
  const auto deadline = std::chrono::steady_clock::now() + kLongestWait;
  while (!tryLock(descriptor)) {
    if (errno != EAGAIN || std::chrono::steady_clock::now() > deadline) return false;
    // Such a lock cannot be waited for with a limit; this is asked again.
    std::this_thread::sleep_for(kBetweenTries);
  }
  return true;
}

/// What the next record has to know of the file's last line.
struct Tail {
  std::string hash = noHash();  ///< of the last line
  bool isCut = false;           ///< the last line has no end
};

bool readTail(int descriptor, std::size_t size, Tail& tail) {
  if (size == 0) return true;
  std::string bytes(std::min(size, AuditLog::kLongestLine + 1), '\0');
  const auto from = static_cast<off_t>(size - bytes.size());
  const ssize_t count = ::pread(descriptor, bytes.data(), bytes.size(), from);
  if (count != static_cast<ssize_t>(bytes.size())) return false;
  tail.isCut = bytes.back() != '\n';
  if (!tail.isCut) bytes.pop_back();
  const std::size_t end = bytes.rfind('\n');
  tail.hash = hashOf(std::string_view(bytes).substr(end == bytes.npos ? 0 : end + 1));
  return true;
}

/// Writes all of it or nothing.
bool writeWhole(int descriptor, std::size_t size, const std::string& bytes) {
  if (writeAll(descriptor, bytes)) return true;
  const int problem = errno;
  // Where this fails, too, the line stays cut, and the next begins on a line of its own.
  [[maybe_unused]] const int shortened = ::ftruncate(descriptor, static_cast<off_t>(size));
  errno = problem;
  return false;
}

bool appendTo(int descriptor, JsonValue& record) {
  struct stat status {};
  Tail tail;
  if (!waitForLock(descriptor) || ::fstat(descriptor, &status) != 0) return false;
  const auto size = static_cast<std::size_t>(status.st_size);
  if (!readTail(descriptor, size, tail)) return false;
  record.set(kPrevious, tail.hash);
  return writeWhole(descriptor, size, (tail.isCut ? "\n" : "") + writeJson(record) + "\n");
}

/// Follows the chain line by line.
class ChainCheck {
 public:
  void take(const std::string& line) {
    ++checked_.lines;
    const auto record = parseJson(line);
    const std::string& previous = record ? (*record)[kPrevious].asString() : std::string();
    if (!record) {
      unread_ = checked_.lines;
    } else if (previous != checked_.last) {
      fault("does not follow from the line before: one of the two was changed, or lines are gone");
    } else if (unread_ != 0) {
      // The next writer found it so: it was cut at that moment, and not later.
      checked_.cut.push_back({std::exchange(unread_, 0), "was cut while it was written"});
    }
    if (record && unread_ != 0) noteUnread();
    checked_.last = hashOf(line);
  }

  AuditLog::Checked finish() {
    if (unread_ != 0) noteUnread();
    return std::move(checked_);
  }

 private:
  void fault(std::string what) { checked_.faults.push_back({checked_.lines, std::move(what)}); }

  void noteUnread() {
    checked_.faults.push_back(
        {std::exchange(unread_, 0), "is no record: it was changed, or cut while it was written"});
    std::ranges::sort(checked_.faults, {}, &AuditLog::Fault::line);
  }

  AuditLog::Checked checked_{0, noHash(), {}, {}};
  std::size_t unread_ = 0;  ///< a line that is no record, until the next says why
};

}  // namespace

Result<void> AuditLog::append(JsonValue record) const {
  const Descriptor file = openToChange(path_, O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW);
  if (file.isOpen() && appendTo(file.get(), record)) return {};
  return errorFromErrno(errno, "write the audit log", path_);
}

Result<AuditLog::Checked> AuditLog::check() const {
  errno = 0;
  std::ifstream file(path_, std::ios::binary);
  ChainCheck chain;
  for (std::string line; std::getline(file, line);) {
    if (line.size() > kLongestLine) line.resize(kLongestLine);
    chain.take(line);
  }
  if (!file.eof() || file.bad()) return errorFromErrno(errno == 0 ? EIO : errno, "read", path_);
  return chain.finish();
}

}  // namespace korvel
