#pragma once

// Which project and which room this station holds, and who holds the others.
//
//     user opens a private project -> lockProject()  true: open it
//                                                    false: getProjectLockOwner() is shown
//     user enters a room           -> lockRoom()     true: the room left before is free now
//                                                    false: this station stays where it was
//     lists are shown              -> isProjectOccupied(), isRoomOccupied() and the owners
//
// A lock is an open file of the share that excludes all others. It ends with the process that
// holds it, however that ends; the file may stay behind. So "occupied" speaks of the file, and
// taking the lock is the only sure question. Each of these calls waits for the share.

#include <cstdint>

#include "host/base/Cookie.h"
#include "host/plugin/KvPluginBase.h"

/// The host's question to whoever guards shared projects and rooms. The host calls it when the user
/// opens or closes a project, enters or leaves a room, or looks at the lists of either. Host
/// thread.
class KV_HOST_API iProjectShare : public KvResourceTypeBase {
 public:
  /// Registers the object as the host's instance.
  explicit iProjectShare(const LightweightString<char>& name);

  /// Ends the registration.
  ~iProjectShare() override;

  /// The object registered last that still lives, or null.
  static iProjectShare* instance();

  /// Whether this workstation may manage the current project space.
  [[nodiscard]] virtual bool canManageCurrentProjectSpace() const = 0;

  /// The path of the file whose exclusive open is the project's lock; empty for no project.
  virtual LightweightString<wchar_t> getProjectLockFile(const Cookie& project) = 0;

  /// Whether the project's lock file exists, whoever holds it.
  virtual bool isProjectOccupied(const Cookie& project) = 0;

  /// Takes the project's lock; false when another holds it. Release the lock held before first.
  virtual bool lockProject(const Cookie& project) = 0;

  /// Releases the project lock held; false when there was none.
  virtual bool unlockCurrentlyLockedProject() = 0;

  /// The name in the project's lock information file; empty when it cannot be read.
  virtual LightweightString<wchar_t> getProjectLockOwner(const Cookie& project) = 0;

  /// A room is named by its path, without an ending. Whether its lock file exists, whoever holds
  /// it.
  virtual bool isRoomOccupied(const LightweightString<wchar_t>& room) = 0;

  /// Enters a room, giving up the one held only when the new one is won; false when another holds
  /// it. With the empty text leaves all rooms.
  virtual bool lockRoom(const LightweightString<wchar_t>& room) = 0;

  /// Releases the room held, if any.
  virtual void unlockCurrentRoom() = 0;

  /// The name in the room's lock information file; empty when it cannot be read.
  virtual LightweightString<wchar_t> getRoomLockOwner(const LightweightString<wchar_t>& room) = 0;

  /// The number of users that have a marker in the projects directory.
  virtual std::uint32_t getNumActiveUsers() = 0;

  /// The workstation's user name, unchanged.
  virtual LightweightString<wchar_t> getCurrentUser() = 0;
};
