#pragma once

#include <functional>
#include <string>

#include "app/iEventSink.h"
#include "station/base/Result.h"

/// Writes each event as one line to a file, a pipe or standard output, at once. What cannot be
/// written (a full disk, a reader that is gone) is told once; then nothing more is written. Calls
/// come one at a time.
class EventFile : public iEventSink {
 public:
  /// Called once with the problem, in a sentence.
  using Tell = std::function<void(const std::string&)>;

  explicit EventFile(Tell tell) : tell_(std::move(tell)) {}
  EventFile(const EventFile&) = delete;
  EventFile& operator=(const EventFile&) = delete;
  ~EventFile() override;

  /// Opens `path`, emptying a file that is there; "-" is standard output.
  Result<void> open(const std::string& path);

  void take(const StationEvent& event) override;

 private:
  void close();

  Tell tell_;
  std::string path_;
  int descriptor_ = -1;
};
