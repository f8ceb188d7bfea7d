#include "station/watch/CatchUp.h"

#include <system_error>

#include "host/base/Log.h"
#include "station/base/Events.h"
#include "station/base/HostParts.h"
#include "station/edit/EditSummary.h"
#include "station/edit/Edits.h"
#include "station/os/SharedFiles.h"
#include "station/project/Projects.h"
#include "station/project/Records.h"

namespace korvel {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kProjectPeriod(2000);

/// Rooms change less often than edits, and their lists ask the share by themselves.
constexpr milliseconds kRoomsPeriod(4000);

/// When the cache of what was read is written: once soon after the entry, when files that changed
/// just before it are at rest, and then regularly.
constexpr milliseconds kFirstSave(5000);
constexpr milliseconds kSavePeriod(60'000);

constexpr const char* kRecord = "project.json";

bool isRoomFile(std::string_view name) { return !name.starts_with('.'); }

std::vector<WatchedFolder> foldersOf(const OpenProject& project) {
  WatchedFolder folder;
  folder.path = project.folder;
  folder.isWanted = isProjectFile;
  folder.largest = kLargestFile;
  folder.period = kProjectPeriod;
  // Under a mount that is away lies an empty folder. Without this every object would count as
  // removed.
  folder.proof = kRecord;
  folder.known = project.listing;
  folder.cache = project.cache;
  folder.shown = project.shown;
  WatchedFolder rooms;
  rooms.path = project.folder + "/rooms";
  rooms.prefix = "rooms/";
  rooms.isWanted = isRoomFile;
  rooms.period = kRoomsPeriod;
  rooms.mayBeMissing = true;
  return {std::move(folder), std::move(rooms)};
}

/// Keeps what was read of a file for later sessions, in the form in which the edits and the records
/// look for it.
void keep(ReadCache& cache, const FoundFile& file) {
  if (!Edits::cookieOfFile(file.name).isNull()) {
    if (const auto summary = readEditSummary(*file.bytes)) {
      cache.put(file.name, file.stamp, keptText(*summary));
    }
  } else if (file.name.ends_with(".json") && file.bytes->size() <= kLongestKept) {
    cache.put(file.name, file.stamp, *file.bytes);
  }
}

}  // namespace

void CatchUp::handleProjectEntry() try {
  found_ = 0;
  watch_ = std::make_unique<FolderWatch>(host_, foldersOf(*hostParts().projects->current()),
                                         [this](const FoundFiles& files) { take(files); });
  cache_ = hostParts().projects->current()->cache;
  postSave(kFirstSave);
} catch (const std::system_error& problem) {
  LogBoth(
      "Changes that no message tells of are not found, since no thread can be made for it: %s. "
      "Enter the project again when the machine has room.\n",
      problem.what());
}

void CatchUp::handleProjectExit() {
  watch_.reset();
  cache_.reset();
}

/// Regularly, and not only at the end: a station may be killed.
void CatchUp::postSave(std::chrono::milliseconds delay) {
  host_.postAfter(delay, [this, kept = std::weak_ptr(cache_)] {
    const auto cache = kept.lock();
    if (!cache) return;
    cache->save();
    postSave(kSavePeriod);
  });
}

std::optional<ShareAnswer> CatchUp::answer() const {
  if (!watch_) return {};
  return watch_->answer();
}

std::optional<WatchCounts> CatchUp::counts() const {
  if (!watch_) return {};
  return watch_->counts();
}

void CatchUp::take(const FoundFiles& files) {
  const FolderChangeScope scope;
  found_ += hostParts().projects->catchUp(files);
  for (const FoundFile& file : files) {
    if (cache_ && file.isAtRest && file.bytes) keep(*cache_, file);
  }
}

}  // namespace korvel
