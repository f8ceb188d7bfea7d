#include "station/watch/StationFile.h"

#include <uuid/uuid.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "host/base/Log.h"
#include "host/os/OS.h"
#include "host/os/iFileManager.h"
#include "station/base/HostThread.h"
#include "station/base/Strings.h"
#include "station/os/SharedFiles.h"
#include "station/project/ProjectFolder.h"

namespace korvel {

namespace {

constexpr std::chrono::seconds kPause(1);
constexpr std::chrono::seconds kTimeToEnd(1);

}  // namespace

/// What the thread works with. It outlives the file where the share holds the thread up.
class StationFile::Writer {
 public:
  Writer(std::string folder, StationNote note)
      : folder_(std::move(folder)), wanted_(std::move(note)), id_(wanted_.id) {}

  void run() {
    std::unique_lock lock(mutex_);
    while (!isEnding_) {
      const StationNote note = wanted_;
      isChanged_ = false;
      lock.unlock();
      write(note);
      lock.lock();
      changes_.wait_for(lock, kPause, [this] { return isEnding_; });
      changes_.wait(lock, [this] { return isEnding_ || isChanged_; });
    }
    lock.unlock();
    sayGoodbye();
    lock.lock();
    hasEnded_ = true;
    changes_.notify_all();
  }

  void show(const StationNote& note) {
    const std::lock_guard lock(mutex_);
    if (noteText(note) == noteText(wanted_)) return;
    wanted_ = note;
    isChanged_ = true;
    changes_.notify_all();
  }

  bool end() {
    std::unique_lock lock(mutex_);
    isEnding_ = true;
    changes_.notify_all();
    return changes_.wait_for(lock, kTimeToEnd, [this] { return hasEnded_; });
  }

 private:
  [[nodiscard]] std::string path() const { return folder_ + "/" + id_ + ".json"; }

  void write(StationNote note) {
    note.written = timeForRecord();
    auto written = takeLock();
    if (written) written = writeAtomically(path(), noteText(note));
    if (!written && !hasComplained_) {
      LogBoth("Others cannot see that this station is here and what it has open: %s\n",
              written.error().message);
    }
    hasComplained_ = !written;
  }

  /// Takes the lock, and takes it again where somebody removed its file.
  Result<void> takeLock() {
    const std::string path = noteLock(folder_, id_);
    if (lock_ && existsFresh(path)) return {};
    if (auto made = makeFolder(folder_); !made && made.error().code != ErrorCode::eExists) {
      return made;
    }
    lock_ = OS().fileManager().openFile(wideText(path), eFileReadWrite, eFileCreate, eFileShareNone,
                                        eFileGroupShared);
    if (lock_ && lock_->isOpen()) return {};
    lock_.reset();
    return Error{ErrorCode::eSystem,
                 inQuotes(path) + " cannot be locked. Ask for the right to write there.", path};
  }

  void sayGoodbye() {
    static_cast<void>(removeFileAt(path()));
    if (!lock_) return;
    lock_.reset();
    OS().fileManager().removeFile(wideText(noteLock(folder_, id_)));
  }

  const std::string folder_;
  StationNote wanted_;
  const std::string id_;
  Kv::Ptr<iFile> lock_;         ///< the thread's
  bool hasComplained_ = false;  ///< the thread's
  std::mutex mutex_;
  std::condition_variable changes_;
  bool isChanged_ = false;
  bool isEnding_ = false;
  bool hasEnded_ = false;
};

StationFile::StationFile(std::string folder, StationNote note)
    : writer_(std::make_shared<Writer>(std::move(folder), std::move(note))),
      thread_(watchThread([writer = writer_] { writer->run(); })) {}

StationFile::~StationFile() {
  if (writer_->end()) {
    thread_.join();
  } else {
    thread_.detach();
  }
}

void StationFile::show(const StationNote& note) { writer_->show(note); }

std::string StationFile::newId() {
  uuid_t bytes;
  uuid_generate_random(bytes);
  char text[37];
  uuid_unparse_lower(bytes, text);
  return text;
}

}  // namespace korvel
