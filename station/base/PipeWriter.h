#pragma once

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

/// Whether a write to the descriptor may wait for a reader: a pipe, a socket, a terminal.
bool isReadBySomebody(int descriptor);

/// Whether a path leads to a named pipe, which opening for writing would wait at for a reader.
bool isNamedPipe(const std::string& path);

}  // namespace korvel
