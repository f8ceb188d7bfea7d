#pragma once

#include <cstdint>
#include <memory>

#include "ProjectShare/Broadcaster.h"
#include "ProjectShare/NetLock.h"
#include "ProjectShare/Receiver.h"
#include "host/plugin/KvPluginBase.h"
#include "host/plugin/Shutdown.h"
#include "host/project/iProjectShare.h"

namespace ProjectSharing {

/// The plug-in's one object: makes the working components after loading and releases them.
///
///     load -> built -> postLoadInitialization -> running -> shutdown -> preUnloadDeinitialization
///
/// It is built while the library is loaded, handed out by kvPluginInstance and never deleted. Host
/// thread, one call at a time.
class DeviceDriver : public KvDeviceDriverBase {
 public:
  /// Names the plug-in and registers shutdown() with the host.
  DeviceDriver();

  /// Makes the broadcaster, the receiver, the permissions manager and the project share, in this
  /// order; the driver is initialised when all are there.
  void postLoadInitialization() override;

  /// Releases the broadcaster, the receiver and then the components. Nothing when the driver is not
  /// initialised.
  void preUnloadDeinitialization() override;

  /// The application ends, for whatever reason: releases the broadcaster and the receiver, so that
  /// nothing is sent or applied any more. The components stay, and the driver stays initialised.
  void shutdown(Shutdown::eExitType type);

 private:
  void releaseTransport();

  Kv::Ptr<Broadcaster> broadcaster_;
  Kv::Ptr<Receiver> receiver_;
};

}  // namespace ProjectSharing

/// The plug-in's entry. Writes the address of the driver, or null where there is none, and tells
/// whether it is initialised.
extern "C" bool kvPluginInstance(KvPluginBase** plugin);

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
