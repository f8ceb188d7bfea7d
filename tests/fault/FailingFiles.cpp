#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "tests/fault/FaultControl.h"

using namespace korvel;

namespace korvel {

// Preloaded into a program, this stands between it and the C library: operations on the files of
// one folder are counted, and the chosen one fails, is cut short, hangs, or is the program's last.

namespace {

/// The C library's function of this name and type.
template <typename Function>
Function next(const char* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

/// Threads that look at the folder by the clock would make every count a matter of chance.
bool isInBackground() {
  std::array<char, 16> name{};
  ::prctl(PR_GET_NAME, name.data());
  return std::strcmp(name.data(), "kv-watch") == 0;
}

class Watch {
 public:
  Watch() : folder_(std::getenv(kFaultFolderVariable)) {
    const char* path = std::getenv(kFaultControlVariable);
    if (path == nullptr || folder_ == nullptr) return;
    const int file = next<decltype(&::open)>("open")(path, O_RDWR | O_CLOEXEC);
    if (file < 0) return;
    void* const mapped =
        ::mmap(nullptr, sizeof(FaultControl), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    next<decltype(&::close)>("close")(file);
    if (mapped != MAP_FAILED) control_ = static_cast<FaultControl*>(mapped);
  }

  /// Whether the path, seen from the folder open at `at`, lies in the watched folder.
  bool sees(int at, const char* path) const {
    if (control_ == nullptr) return false;
    if (path == nullptr || path[0] != '/') return sees(at);
    return std::strncmp(path, folder_, std::strlen(folder_)) == 0;
  }

  /// Whether the descriptor is of a file in the watched folder.
  bool sees(int descriptor) const {
    return descriptor >= 0 && static_cast<std::size_t>(descriptor) < seen_.size() &&
           seen_[static_cast<std::size_t>(descriptor)];
  }

  void note(int descriptor, bool isSeen) {
    if (descriptor >= 0 && static_cast<std::size_t>(descriptor) < seen_.size()) {
      seen_[static_cast<std::size_t>(descriptor)] = isSeen;
    }
  }

  /// Counts an operation; what is to happen to it.
  FaultAction meet(const char* operation, int descriptor, const char* path) {
    if (!control_->seesBackground && isInBackground()) return FaultAction::eNone;
    const bool isNamed = control_->operation[0] != '\0';
    if (isNamed && std::strcmp(control_->operation, operation) != 0) return FaultAction::eNone;
    std::array<char, 400> name{};
    if (path == nullptr && isNamed) path = pathOf(descriptor, name);
    if (isNamed && std::strstr(path, control_->path) == nullptr) return FaultAction::eNone;
    const std::uint64_t count = ++control_->count;
    pause();
    if (control_->isRecording) record(count, operation, descriptor, path);
    if (!isChosen(count)) return FaultAction::eNone;
    if (path == nullptr) path = pathOf(descriptor, name);
    std::snprintf(control_->what, sizeof control_->what, "%s %s", operation, path);
    control_->isMet = true;
    return control_->action;
  }

  [[nodiscard]] int number() const { return control_->number; }

  [[nodiscard]] bool isStalled() const { return control_->action == FaultAction::eStall; }

 private:
  /// Makes an operation take its time, and counts how many do so at the same time.
  void pause() {
    if (control_->pause == 0) return;
    const int now = ++control_->pausing;
    int most = control_->mostPausing;
    while (now > most && !control_->mostPausing.compare_exchange_weak(most, now)) {
    }
    ::usleep(control_->pause);
    --control_->pausing;
  }

  /// A share that hangs hangs for all.
  [[nodiscard]] bool isChosen(std::uint64_t number) const {
    const std::uint64_t chosen = control_->chosen;
    const FaultAction action = control_->action;
    const bool lasts = action == FaultAction::eHang || action == FaultAction::eStall;
    const bool isLater = lasts && chosen != 0 && number > chosen;
    return number == chosen || isLater;
  }

  void record(std::uint64_t count, const char* operation, int descriptor, const char* path) {
    std::array<char, 400> name{};
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    FaultRecord& record = control_->records[count % kFaultRecords];
    record.when = now.tv_sec * 1000 + now.tv_nsec / 1'000'000;
    std::snprintf(record.what, sizeof record.what, "%s %s", operation,
                  path != nullptr ? path : pathOf(descriptor, name));
  }

  static const char* pathOf(int descriptor, std::array<char, 400>& name) {
    std::array<char, 32> link{};
    std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", descriptor);
    if (::readlink(link.data(), name.data(), name.size() - 1) < 0) name[0] = '\0';
    return name.data();
  }

  const char* folder_;
  FaultControl* control_ = nullptr;
  std::array<std::atomic<bool>, 4096> seen_{};
};

Watch& watch() {
  static auto* const made = new Watch;
  return *made;
}

/// One operation's turn, from before it is done to after it.
class Turn {
 public:
  Turn(const char* operation, int at, const char* path) {
    if (watch().sees(at, path)) begin(operation, at, path);
  }
  Turn(const char* operation, int descriptor) {
    if (watch().sees(descriptor)) begin(operation, descriptor, nullptr);
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;
  ~Turn() {
    if (action_ == FaultAction::eKillAfter) end();
  }

  [[nodiscard]] bool isSeen() const { return isSeen_; }

  /// True when the operation is to fail; errno says why.
  [[nodiscard]] bool fails() const {
    if (action_ != FaultAction::eFail) return false;
    errno = watch().number();
    return true;
  }

  /// How many of the bytes asked for are to be done.
  [[nodiscard]] std::size_t part(std::size_t count) const {
    return action_ == FaultAction::eShort && count > 1 ? count / 2 : count;
  }

 private:
  void begin(const char* operation, int descriptor, const char* path) {
    isSeen_ = true;
    action_ = watch().meet(operation, descriptor, path);
    if (action_ == FaultAction::eKillBefore) end();
    if (action_ == FaultAction::eHang) hang();
    while (action_ == FaultAction::eStall && watch().isStalled()) ::usleep(10'000);
  }

  static void end() {
    ::kill(::getpid(), SIGKILL);
    hang();
  }

  [[noreturn]] static void hang() {
    for (;;) ::pause();
  }

  bool isSeen_ = false;
  FaultAction action_ = FaultAction::eNone;
};

int openIn(const char* name, int at, const char* path, int flags, mode_t mode) {
  static const auto real = next<decltype(&::openat)>("openat");
  const Turn turn(name, at, path);
  if (turn.fails()) return -1;
  const int descriptor = real(at, path, flags, mode);
  if (descriptor >= 0) watch().note(descriptor, turn.isSeen());
  return descriptor;
}

mode_t modeOf(int flags, va_list arguments) {
  return flags & (O_CREAT | O_TMPFILE) ? va_arg(arguments, mode_t) : 0;
}

/// An operation on a path that gives 0 or -1.
template <typename Real, typename... Arguments>
int onPath(const char* name, Real real, int at, const char* path, Arguments... arguments) {
  const Turn turn(name, at, path);
  return turn.fails() ? -1 : real(path, arguments...);
}

/// The same where the path is seen from an open folder.
template <typename Real, typename... Arguments>
int inFolder(const char* name, Real real, int at, const char* path, Arguments... arguments) {
  const Turn turn(name, at, path);
  return turn.fails() ? -1 : real(at, path, arguments...);
}

/// The same on an open file.
template <typename Real, typename... Arguments>
int onFile(const char* name, Real real, int descriptor, Arguments... arguments) {
  const Turn turn(name, descriptor);
  return turn.fails() ? -1 : real(descriptor, arguments...);
}

bool isLock(int command) {
  return command == F_OFD_SETLK || command == F_OFD_GETLK || command == F_SETLK ||
         command == F_GETLK || command == F_OFD_SETLKW || command == F_SETLKW;
}

}  // namespace

}  // namespace korvel

extern "C" {

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeOf(flags, arguments);
  va_end(arguments);
  return openIn("open", AT_FDCWD, path, flags, mode);
}

int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeOf(flags, arguments);
  va_end(arguments);
  return openIn("open", AT_FDCWD, path, flags, mode);
}

int openat(int at, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeOf(flags, arguments);
  va_end(arguments);
  return openIn("openat", at, path, flags, mode);
}

int openat64(int at, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeOf(flags, arguments);
  va_end(arguments);
  return openIn("openat", at, path, flags, mode);
}

/// A descriptor is gone even when closing it fails.
int close(int descriptor) {
  static const auto real = next<decltype(&::close)>("close");
  const Turn turn("close", descriptor);
  watch().note(descriptor, false);
  const int closed = real(descriptor);
  return turn.fails() ? -1 : closed;
}

ssize_t read(int descriptor, void* bytes, std::size_t count) {
  static const auto real = next<decltype(&::read)>("read");
  const Turn turn("read", descriptor);
  return turn.fails() ? -1 : real(descriptor, bytes, turn.part(count));
}

ssize_t pread(int descriptor, void* bytes, std::size_t count, off_t offset) {
  static const auto real = next<decltype(&::pread)>("pread");
  const Turn turn("pread", descriptor);
  return turn.fails() ? -1 : real(descriptor, bytes, turn.part(count), offset);
}

ssize_t write(int descriptor, const void* bytes, std::size_t count) {
  static const auto real = next<decltype(&::write)>("write");
  const Turn turn("write", descriptor);
  return turn.fails() ? -1 : real(descriptor, bytes, turn.part(count));
}

ssize_t pwrite(int descriptor, const void* bytes, std::size_t count, off_t offset) {
  static const auto real = next<decltype(&::pwrite)>("pwrite");
  const Turn turn("pwrite", descriptor);
  return turn.fails() ? -1 : real(descriptor, bytes, turn.part(count), offset);
}

ssize_t writev(int descriptor, const iovec* blocks, int count) {
  static const auto real = next<decltype(&::writev)>("writev");
  const Turn turn("writev", descriptor);
  return turn.fails() ? -1 : real(descriptor, blocks, count);
}

int fsync(int descriptor) { return onFile("fsync", next<decltype(&::fsync)>("fsync"), descriptor); }

int fdatasync(int descriptor) {
  return onFile("fdatasync", next<decltype(&::fdatasync)>("fdatasync"), descriptor);
}

int ftruncate(int descriptor, off_t size) noexcept {
  return onFile("ftruncate", next<decltype(&::ftruncate)>("ftruncate"), descriptor, size);
}

int fchmod(int descriptor, mode_t mode) noexcept {
  return onFile("fchmod", next<decltype(&::fchmod)>("fchmod"), descriptor, mode);
}

int futimens(int descriptor, const timespec* times) noexcept {
  return onFile("futimens", next<decltype(&::futimens)>("futimens"), descriptor, times);
}

int fstat(int descriptor, struct stat* status) noexcept {
  return onFile("fstat", next<decltype(&::fstat)>("fstat"), descriptor, status);
}

int fcntl(int descriptor, int command, ...) {
  static const auto real = next<decltype(&::fcntl)>("fcntl");
  va_list arguments;
  va_start(arguments, command);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (!isLock(command)) return real(descriptor, command, argument);
  const Turn turn(command == F_OFD_GETLK || command == F_GETLK ? "getlock" : "setlock", descriptor);
  return turn.fails() ? -1 : real(descriptor, command, argument);
}

int stat(const char* path, struct stat* status) noexcept {
  return onPath("stat", next<decltype(&::stat)>("stat"), AT_FDCWD, path, status);
}

int lstat(const char* path, struct stat* status) noexcept {
  return onPath("lstat", next<decltype(&::lstat)>("lstat"), AT_FDCWD, path, status);
}

int fstatat(int at, const char* path, struct stat* status, int flags) noexcept {
  return inFolder("fstatat", next<decltype(&::fstatat)>("fstatat"), at, path, status, flags);
}

int statx(int at, const char* path, int flags, unsigned mask, struct statx* status) noexcept {
  static const auto real = next<decltype(&::statx)>("statx");
  const bool isOpenFile = *path == '\0';
  const Turn turn("statx", at, isOpenFile ? nullptr : path);
  return turn.fails() ? -1 : real(at, path, flags, mask, status);
}

int rename(const char* from, const char* to) noexcept {
  return onPath("rename", next<decltype(&::rename)>("rename"), AT_FDCWD, from, to);
}

int renameat2(int fromAt, const char* from, int toAt, const char* to, unsigned flags) noexcept {
  return inFolder("rename", next<decltype(&::renameat2)>("renameat2"), fromAt, from, toAt, to,
                  flags);
}

int unlink(const char* path) noexcept {
  return onPath("unlink", next<decltype(&::unlink)>("unlink"), AT_FDCWD, path);
}

int unlinkat(int at, const char* path, int flags) noexcept {
  return inFolder("unlinkat", next<decltype(&::unlinkat)>("unlinkat"), at, path, flags);
}

int mkdir(const char* path, mode_t mode) noexcept {
  return onPath("mkdir", next<decltype(&::mkdir)>("mkdir"), AT_FDCWD, path, mode);
}

int link(const char* from, const char* to) noexcept {
  return onPath("link", next<decltype(&::link)>("link"), AT_FDCWD, from, to);
}

DIR* opendir(const char* path) {
  static const auto real = next<decltype(&::opendir)>("opendir");
  const Turn turn("opendir", AT_FDCWD, path);
  if (turn.fails()) return nullptr;
  DIR* const folder = real(path);
  if (folder != nullptr) watch().note(::dirfd(folder), turn.isSeen());
  return folder;
}

dirent* readdir(DIR* folder) {
  static const auto real = next<decltype(&::readdir)>("readdir");
  const Turn turn("readdir", ::dirfd(folder));
  return turn.fails() ? nullptr : real(folder);
}

ssize_t getdents64(int folder, void* entries, std::size_t count) noexcept {
  static const auto real = next<decltype(&::getdents64)>("getdents64");
  const Turn turn("readdir", folder);
  return turn.fails() ? -1 : real(folder, entries, count);
}

int closedir(DIR* folder) {
  static const auto real = next<decltype(&::closedir)>("closedir");
  watch().note(::dirfd(folder), false);
  return real(folder);
}

}  // extern "C"
