#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "app/base/EventSinks.h"
#include "station/base/Log.h"
#include "station/base/PipeWriter.h"
#include "station/base/Result.h"

namespace korvel {

/// Writes each event as one line to a file, a pipe or standard output, at once. What cannot be
/// written (a full disk, a reader that is gone) is told once; then nothing more is written. Calls
/// come one at a time. A file is rotated, and readable by its user alone.
///
/// The station never waits for whoever reads a pipe: when the reader stops reading, events are kept
/// for it up to PipeWriter::kMaxWaiting bytes; what comes then is left out, which is told at once,
/// and in an event of the kind `log` where the events are missing.
class EventFile : public iEventSink {
 public:
  /// Called with a problem, in a sentence. Any thread.
  using Tell = std::function<void(const std::string&)>;

  explicit EventFile(Tell tell) : tell_(std::move(tell)) {}
  EventFile(const EventFile&) = delete;
  EventFile& operator=(const EventFile&) = delete;
  ~EventFile() override;

  /// Opens `path`, emptying a file that is there; "-" is standard output.
  Result<void> open(const std::string& path);

  void take(const StationEvent& event) override;

 private:
  [[nodiscard]] std::string missingLine() const;
  void queue(const StationEvent& event);
  void leaveOut(const StationEvent& event);
  void tellBroken(int problem) const;
  void close();

  Tell tell_;
  std::string path_;
  std::unique_ptr<RotatingFile> file_;
  std::unique_ptr<PipeWriter> pipe_;  ///< in the file's stead where somebody reads
  std::uint64_t leftOut_ = 0;         ///< events that no line tells of yet
  JsonValue leftOutTime_;             ///< the time of the last of them
};

}  // namespace korvel
