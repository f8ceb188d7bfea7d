#pragma once

#include <memory>
#include <string>
#include <thread>

#include "station/watch/StationNote.h"

namespace korvel {

/// This station's note in the projects directory and the lock that says that it lives, kept by a
/// thread of its own: a share that hangs keeps nobody waiting. Host thread.
class StationFile {
 public:
  /// Makes the folder where it is missing, takes the lock and writes the note. Where that cannot be
  /// done it is told once, and tried again with each change.
  StationFile(std::string folder, StationNote note);
  StationFile(const StationFile&) = delete;
  StationFile& operator=(const StationFile&) = delete;

  /// Says goodbye: removes the files, unless the share does not answer within a second.
  ~StationFile();

  /// Writes the note where it differs from the one that was written, at most once a second.
  void show(const StationNote& note);

  /// A name for the files of a station that starts now.
  static std::string newId();

 private:
  class Writer;

  std::shared_ptr<Writer> writer_;
  std::thread thread_;
};

}  // namespace korvel
