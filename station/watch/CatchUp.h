#pragma once

#include <chrono>
#include <memory>
#include <optional>

#include "host/project/ProjectListener.h"
#include "station/base/HostThread.h"
#include "station/os/ReadCache.h"
#include "station/watch/FolderWatch.h"

namespace korvel {

/// Brings what is shown of the open project in line with its folder, without a message and without
/// entering the project again: messages can be lost, and the folder decides. Changes found there
/// are handed to the project's parts and told with the origin "folder". Host thread.
class CatchUp : public ProjectListener {
 public:
  explicit CatchUp(HostThread& host) : host_(host) {}
  CatchUp(const CatchUp&) = delete;
  CatchUp& operator=(const CatchUp&) = delete;

  void handleProjectEntry() override;
  void handleProjectExit() override;

  /// How the open project's folder answered; nothing while no project is open.
  [[nodiscard]] std::optional<ShareAnswer> answer() const;

  /// What the open project's folders were asked since it was entered; nothing while none is open.
  [[nodiscard]] std::optional<WatchCounts> counts() const;

  /// How many changes were found, since the project was entered, that no message had told of.
  [[nodiscard]] std::size_t found() const { return found_; }

 private:
  void take(const FoundFiles& files);
  void postSave(std::chrono::milliseconds delay);

  HostThread& host_;
  std::unique_ptr<FolderWatch> watch_;
  std::size_t found_ = 0;
  std::shared_ptr<ReadCache> cache_;  ///< the open project's
};

}  // namespace korvel
