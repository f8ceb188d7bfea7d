#pragma once

#include <memory>
#include <string>

#include "host/plugin/Shutdown.h"
#include "station/base/HostThread.h"
#include "station/base/Result.h"

namespace korvel {

class Asks;
class Bins;
class Desktop;
class Edits;
class Filters;
class CatchUp;
class Conversation;
class Happenings;
class Health;
class MediaCache;
class Presence;
class Projects;
class Racks;
class Rooms;
class Trash;
class UndoList;
class UnsavedEdits;

/// One workstation: the host behind the plug-in, whole.
///
/// Construction makes, in this order, the host thread's queue, the network service, the operating
/// system layer, the projects, their parts (edits, bins, racks, filters, media, rooms), the
/// command map and the desktop; destruction takes them down in the reverse order. settings() must
/// be installed before, and stay.
///
///     start()    the projects directory is looked at
///                the plug-in is loaded and initialised
///                the user is marked as present
///     ...        hostThread().run()
///     stop()     the open project and its room are left
///                the mark of presence is taken away
///                the plug-in's panels are closed
///                the shutdown callbacks run
///                the plug-in is taken down and unloaded
///
/// start() and stop() are called on the thread that runs the host thread's queue. One object a
/// process.
class Station {
 public:
  Station();
  Station(const Station&) = delete;
  Station& operator=(const Station&) = delete;

  /// Calls stop() as a normal end does.
  ~Station();

  /// Starts. A projects directory that is missing or no directory, and a plug-in that cannot be
  /// used, are failures; one in which nothing can be written is told in the log.
  Result<void> start();

  /// Releases everything that others see of this station and unloads the plug-in. Does nothing
  /// where it is not started.
  void stop(Shutdown::eExitType type);

  [[nodiscard]] HostThread& hostThread();

  /// The parts. Host thread.
  [[nodiscard]] Asks& asks();
  [[nodiscard]] Bins& bins();
  [[nodiscard]] CatchUp& catchUp();
  [[nodiscard]] Conversation& conversation();
  [[nodiscard]] Desktop& desktop();
  [[nodiscard]] Edits& edits();
  [[nodiscard]] Filters& filters();
  [[nodiscard]] Happenings& happenings();
  [[nodiscard]] Health& health();
  [[nodiscard]] MediaCache& media();
  [[nodiscard]] Presence& presence();
  [[nodiscard]] Projects& projects();
  [[nodiscard]] Racks& racks();
  [[nodiscard]] Rooms& rooms();
  [[nodiscard]] Trash& trash();
  [[nodiscard]] UndoList& undo();
  [[nodiscard]] UnsavedEdits& unsaved();

  /// The plug-in's name and version as it reports them; empty while none is loaded.
  [[nodiscard]] std::string pluginName() const;
  [[nodiscard]] std::string pluginVersion() const;

  /// What to do where messages to this user alone would not be taken, in one sentence or two; empty
  /// where they are. Others address a user by the upper-cased host name.
  [[nodiscard]] static std::string adviceOnNames();

 private:
  struct Parts;

  void markPresent();
  void unmarkPresent();

  std::unique_ptr<Parts> parts_;
};

}  // namespace korvel
