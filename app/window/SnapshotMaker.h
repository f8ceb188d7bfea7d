#pragma once

#include <map>
#include <string>

#include "app/window/EventFeed.h"
#include "app/window/Snapshot.h"
#include "station/Station.h"
#include "station/base/Json.h"

namespace korvel {

/// Makes the window's snapshots: looks anew at what changed and takes the rest over from the last
/// one. Host thread.
class SnapshotMaker {
 public:
  /// The station must outlive it.
  explicit SnapshotMaker(Station& station) : station_(station) {}

  SnapshotPtr make(const Changes& changes);

 private:
  void lookAtProject(Snapshot& next);
  void lookAtLists(Snapshot& next);
  void lookAtEdits(Snapshot& next, const Changes& changes);
  void lookAtLeft(Snapshot& next);
  void lookAtOthers(Snapshot& next, const Changes& changes);
  void lookAtPanel(Snapshot& next);
  void lookAtUsers(Snapshot& next);
  [[nodiscard]] unsigned remoteChanges(const QString& cookie) const;

  Station& station_;
  SnapshotPtr last_ = std::make_shared<const Snapshot>();
  std::map<std::string, unsigned> remote_;  ///< since the project was opened, by cookie
};

}  // namespace korvel
