#include "station/base/PipeWriter.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <utility>

#include "station/base/HostThread.h"

namespace korvel {

namespace {

constexpr int kMillisecondsBetweenOpens = 50;

/// A terminal that is ready for one byte may still make a longer write wait. Opened anew it can be
/// told not to wait, without changing the shell's own descriptor.
int withoutWaiting(int descriptor) {
  if (descriptor < 0 || ::isatty(descriptor) != 1) return descriptor;
  const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
  const int opened = ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (opened < 0) return descriptor;
  ::close(descriptor);
  return opened;
}

}  // namespace

PipeWriter::PipeWriter(int descriptor, std::string path, Failed failed)
    : descriptor_(withoutWaiting(descriptor)),
      path_(std::move(path)),
      failed_(std::move(failed)),
      ending_(::eventfd(0, EFD_CLOEXEC)),
      thread_(threadWithoutSignals([this] { run(); })) {}

PipeWriter::~PipeWriter() {
  finish();
  if (descriptor_ >= 0) ::close(descriptor_);
  ::close(ending_);
}

bool PipeWriter::write(const std::string& line) {
  const std::lock_guard lock(mutex_);
  // Taken and dropped: the failure was reported, and more lines must not wait for a reader that is
  // gone.
  if (hasFailed_) return true;
  if (waiting_.size() + line.size() > kMaxWaiting) return false;
  waiting_ += line;
  taken_ += line.size();
  queued_.notify_one();
  return true;
}

void PipeWriter::awaitWritten() {
  std::unique_lock lock(mutex_);
  const std::size_t wanted = taken_;
  for (std::size_t before = written_; written_ < wanted && !hasFailed_; before = written_) {
    progressed_.wait_for(lock, std::chrono::milliseconds(kPatience),
                         [&] { return written_ != before || hasFailed_; });
    if (written_ == before) return;
  }
}

std::size_t PipeWriter::finish() {
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
    queued_.notify_one();
  }
  ::eventfd_write(ending_, 1);
  if (thread_.joinable()) thread_.join();
  return hasFailed_ ? 0 : waiting_.size() + block_.size() - done_;
}

void PipeWriter::run() {
  if (!openPipe()) return;
  while (takeBlock() && writeBlock()) {
  }
}

/// With O_NONBLOCK, and again and again: opening a pipe for writing otherwise waits for a reader
/// without end.
bool PipeWriter::openPipe() {
  while (descriptor_ < 0) {
    const bool ends = isEnding();
    descriptor_ = ::open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor_ >= 0 || ends) break;
    if (errno != ENXIO && errno != EINTR) {
      giveUp(errno);
      break;
    }
    pollfd end{ending_, POLLIN, 0};
    ::poll(&end, 1, kMillisecondsBetweenOpens);
  }
  return descriptor_ >= 0;
}

bool PipeWriter::takeBlock() {
  std::unique_lock lock(mutex_);
  queued_.wait(lock, [this] { return isEnding_ || !waiting_.empty(); });
  block_.clear();
  done_ = 0;
  block_.swap(waiting_);
  return !block_.empty();
}

bool PipeWriter::writeBlock() {
  while (done_ < block_.size()) {
    std::array<pollfd, 2> wanted{pollfd{descriptor_, POLLOUT, 0}, pollfd{ending_, POLLIN, 0}};
    const bool ends = isEnding();
    const int count = ::poll(wanted.data(), ends ? 1 : 2, ends ? kPatience : -1);
    if (count == 0) return false;
    if (count > 0 && wanted[0].revents != 0 && !writeSome()) return false;
  }
  return true;
}

/// A pipe that is ready takes PIPE_BUF bytes at once, so this write does not wait.
bool PipeWriter::writeSome() {
  const std::size_t size = std::min<std::size_t>(block_.size() - done_, PIPE_BUF);
  const ssize_t count = ::write(descriptor_, block_.data() + done_, size);
  if (count >= 0) {
    done_ += static_cast<std::size_t>(count);
    const std::lock_guard lock(mutex_);
    written_ += static_cast<std::size_t>(count);
    progressed_.notify_all();
  } else if (errno != EINTR && errno != EAGAIN) {
    giveUp(errno);
    return false;
  }
  return true;
}

bool PipeWriter::isEnding() {
  const std::lock_guard lock(mutex_);
  return isEnding_;
}

void PipeWriter::giveUp(int problem) {
  {
    const std::lock_guard lock(mutex_);
    hasFailed_ = true;
    waiting_.clear();
    progressed_.notify_all();
  }
  failed_(problem);
}

QueuedWriter::QueuedWriter(Write write)
    : write_(std::move(write)), thread_(threadWithoutSignals([this] { run(); })) {}

QueuedWriter::~QueuedWriter() {
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
    queued_.notify_one();
  }
  thread_.join();
}

void QueuedWriter::write(const std::string& text) {
  if (text.empty()) return;
  std::unique_lock lock(mutex_);
  while (waiting_.size() >= kMaxWaiting) {
    hurry();
    progressed_.wait(lock);
  }
  waiting_ += text;
  ++waitingTexts_;
  ++taken_;
  const bool isToWake = std::exchange(isAsleep_, false);
  lock.unlock();
  // Without the lock, which the woken thread would have to wait for.
  if (isToWake) queued_.notify_one();
}

bool QueuedWriter::flush() {
  std::unique_lock lock(mutex_);
  const std::size_t wanted = taken_;
  while (written_ < wanted) {
    hurry();
    const std::size_t before = written_;
    const auto isFurther = [this, before] { return written_ != before; };
    if (!progressed_.wait_for(lock, kPatience, isFurther)) return false;
  }
  return true;
}

void QueuedWriter::hurry() {
  isHurried_ = true;
  queued_.notify_one();
}

void QueuedWriter::run() {
  std::unique_lock lock(mutex_);
  while (takeBlock(lock)) {
    lock.unlock();
    write_(block_, blockTexts_);
    lock.lock();
    written_ += blockTexts_;
    progressed_.notify_all();
  }
}

/// False at the end, when nothing is left.
bool QueuedWriter::takeBlock(std::unique_lock<std::mutex>& lock) {
  isAsleep_ = waiting_.empty();
  queued_.wait(lock, [this] { return isEnding_ || !waiting_.empty(); });
  isAsleep_ = false;
  queued_.wait_for(lock, kTogether, [this] { return isEnding_ || isHurried_; });
  isHurried_ = false;
  block_.clear();
  block_.swap(waiting_);
  blockTexts_ = std::exchange(waitingTexts_, 0);
  return !block_.empty();
}

bool isReadBySomebody(int descriptor) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return false;
  return S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode) || ::isatty(descriptor) == 1;
}

bool isNamedPipe(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

}  // namespace korvel
