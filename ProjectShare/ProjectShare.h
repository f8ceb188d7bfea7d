#pragma once

#include <cstdint>
#include <memory>

#include "ProjectShare/NetLock.h"
#include "host/project/iProjectShare.h"

/// Guards shared projects and rooms with lock files, and tells who holds them.
///
///     BASE + project cookie + "/Lock"      the project is occupied while this file exists
///     ROOM + ".lck"                        the room is occupied while this file exists
///     BASE + user name + ".cli"            marks a user as active
///
/// Beside each lock lies its information file (see NetLock). This station holds at most one project
/// and one room, whichever object it is asked through. Host thread.
class ProjectShare : public iProjectShare {
 public:
  /// Registers with the host as "Project sharing".
  ProjectShare();

  [[nodiscard]] bool canManageCurrentProjectSpace() const override;
  LightweightString<wchar_t> getProjectLockFile(const Cookie& project) override;
  bool isProjectOccupied(const Cookie& project) override;

  /// Takes the project's lock and writes the user's name beside it. A lock that is still held is
  /// dropped as it stands, held until the process ends: release it first.
  bool lockProject(const Cookie& project) override;

  bool unlockCurrentlyLockedProject() override;
  LightweightString<wchar_t> getProjectLockOwner(const Cookie& project) override;
  bool isRoomOccupied(const LightweightString<wchar_t>& room) override;
  bool lockRoom(const LightweightString<wchar_t>& room) override;
  void unlockCurrentRoom() override;
  LightweightString<wchar_t> getRoomLockOwner(const LightweightString<wchar_t>& room) override;
  std::uint32_t getNumActiveUsers() override;
  LightweightString<wchar_t> getCurrentUser() override;

 private:
  bool enterRoom(const LightweightString<wchar_t>& room);
  bool leaveRooms(const LightweightString<wchar_t>& room);
  static void dropProjectLock();

  static std::unique_ptr<NetLock> currentProjectLock_;
  static std::unique_ptr<NetLock> currentRoomLock_;
  static LightweightString<wchar_t> lastRoom_;  ///< the client marker written last, never a room
};
