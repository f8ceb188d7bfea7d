#include "station/watch/CatchUp.h"

#include <system_error>

#include "host/base/Log.h"
#include "station/base/Events.h"
#include "station/base/HostParts.h"
#include "station/os/SharedFiles.h"
#include "station/project/Projects.h"

namespace korvel {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kProjectPeriod(2000);

/// Rooms change less often than edits, and their lists ask the share by themselves.
constexpr milliseconds kRoomsPeriod(4000);

constexpr const char* kRecord = "project.json";

bool isRoomFile(std::string_view name) { return !name.starts_with('.'); }

std::vector<WatchedFolder> foldersOf(const OpenProject& project) {
  WatchedFolder folder{project.folder, {},    isProjectFile, kLargestFile,
                       kProjectPeriod, false, kRecord,       project.listing};
  WatchedFolder rooms{
      project.folder + "/rooms", "rooms/", isRoomFile, 0, kRoomsPeriod, true, {}, {}};
  return {std::move(folder), std::move(rooms)};
}

}  // namespace

void CatchUp::handleProjectEntry() try {
  found_ = 0;
  watch_ = std::make_unique<FolderWatch>(host_, foldersOf(*hostParts().projects->current()),
                                         [this](const FoundFiles& files) { take(files); });
} catch (const std::system_error& problem) {
  LogBoth(
      "Changes that no message tells of are not found, since no thread can be made for it: %s. "
      "Enter the project again when the machine has room.\n",
      problem.what());
}

void CatchUp::handleProjectExit() { watch_.reset(); }

std::optional<ShareAnswer> CatchUp::answer() const {
  if (!watch_) return {};
  return watch_->answer();
}

void CatchUp::take(const FoundFiles& files) {
  const FolderChangeScope scope;
  found_ += hostParts().projects->catchUp(files);
}

}  // namespace korvel
