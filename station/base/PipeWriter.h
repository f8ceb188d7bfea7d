#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace korvel {

/// Writes lines to a pipe, a socket or a terminal on a thread of its own, so that a reader that
/// stops reading never holds up who has something to write.
///
///     write() --bounded queue--> thread --> descriptor
///
/// A terminal is opened again for this, so that writing to it never waits.
///
/// What the queue has no room for is not taken. A named pipe is opened as soon as somebody reads
/// it.
class PipeWriter {
 public:
  /// How many bytes wait for a reader at most.
  static constexpr std::size_t kMaxWaiting = 64u << 20;

  /// How long the end waits for a reader that reads nothing.
  static constexpr int kPatience = 2000;  // milliseconds

  /// Told once, on the thread, by the errno value that ended the writing.
  using Failed = std::function<void(int problem)>;

  /// Takes over an open descriptor, or, where that is below zero, opens the named pipe at `path`.
  PipeWriter(int descriptor, std::string path, Failed failed);
  PipeWriter(const PipeWriter&) = delete;
  PipeWriter& operator=(const PipeWriter&) = delete;

  /// Ends as finish() does.
  ~PipeWriter();

  /// Queues a line; false when there is no room for it. After a failure lines are taken and
  /// dropped. Any thread.
  bool write(const std::string& line);

  /// Waits until everything that was queued is written; kPatience at most while nothing is read.
  void awaitWritten();

  /// Writes what waits, unless nothing of it is read for kPatience; how many bytes were not
  /// written. Nothing is to be written afterwards.
  std::size_t finish();

 private:
  void run();
  bool openPipe();
  bool takeBlock();
  bool writeBlock();
  bool writeSome();
  [[nodiscard]] bool isEnding();
  void giveUp(int problem);

  int descriptor_;
  const std::string path_;
  const Failed failed_;
  const int ending_;      ///< an eventfd, readable once the end has begun
  std::string block_;     ///< what the thread writes now
  std::size_t done_ = 0;  ///< how much of it is written

  std::mutex mutex_;
  std::condition_variable queued_;
  std::condition_variable progressed_;
  std::string waiting_;
  std::size_t taken_ = 0;    ///< bytes queued since the beginning
  std::size_t written_ = 0;  ///< bytes of them that are written
  bool isEnding_ = false;
  bool hasFailed_ = false;

  std::thread thread_;
};

/// Hands texts to a function on a thread of its own, in their order and several at once, so that a
/// thread that has something to write does not wait for a disk.
///
///     write() --bounded queue--> thread, kTogether later --> function
///
/// The thread is woken once for all that comes within kTogether. Nothing is left out: where the
/// queue is full, write() waits.
class QueuedWriter {
 public:
  /// How many bytes wait for the function at most, but for one text.
  static constexpr std::size_t kMaxWaiting = 4u << 20;

  /// How long texts wait for those that follow.
  static constexpr auto kTogether = std::chrono::milliseconds(2);

  /// How long flush() waits for a function that does not return.
  static constexpr auto kPatience = std::chrono::seconds(2);

  /// Writes so many texts, one behind the other in `block`. Called on the thread; it must not use
  /// the QueuedWriter.
  using Write = std::function<void(const std::string& block, std::size_t texts)>;

  /// std::system_error where there is no thread to be had.
  explicit QueuedWriter(Write write);
  QueuedWriter(const QueuedWriter&) = delete;
  QueuedWriter& operator=(const QueuedWriter&) = delete;

  /// Ends once everything is written.
  ~QueuedWriter();

  /// Queues a text. Any thread.
  void write(const std::string& text);

  /// Waits until everything that was queued is written; false when the function did not return for
  /// kPatience. Any thread.
  bool flush();

  /// Whether something is not written yet. Any thread, and in a signal handler.
  [[nodiscard]] bool hasWaiting() const noexcept { return written_ != taken_; }

 private:
  void run();
  bool takeBlock(std::unique_lock<std::mutex>& lock);
  void hurry();

  const Write write_;
  std::string block_;           ///< what the thread writes now
  std::size_t blockTexts_ = 0;  ///< of how many texts it is

  std::mutex mutex_;
  std::condition_variable queued_;
  std::condition_variable progressed_;
  std::string waiting_;
  std::size_t waitingTexts_ = 0;
  std::atomic<std::size_t> taken_{0};    ///< texts queued since the beginning
  std::atomic<std::size_t> written_{0};  ///< texts of them that were written
  bool isAsleep_ = false;                ///< the thread waits for a text, and must be woken
  bool isHurried_ = false;               ///< something waits for the thread
  bool isEnding_ = false;

  std::thread thread_;
};

/// Whether a write to the descriptor may wait for a reader: a pipe, a socket, a terminal.
bool isReadBySomebody(int descriptor);

/// Whether a path leads to a named pipe, which opening for writing would wait at for a reader.
bool isNamedPipe(const std::string& path);

}  // namespace korvel
