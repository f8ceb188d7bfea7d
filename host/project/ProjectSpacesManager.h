#pragma once

// Which project is open here, and whether this machine takes part in sharing at all.
//
// What a plug-in announces or obeys depends on these answers; what users write is always sent. It
// asks anew for each message and each change: the user may switch projects between any two.
//
//     network mode off   no change is announced; of messages, remote commands alone are obeyed
//     no project open    there is nothing to announce, and messages about objects find none
//     shared project     several stations, each in a room of it or in none
//     private project    one station at a time

#include "host/base/Cookie.h"

/// The current project: its cookie, or the null cookie when none is open. Host thread.
KV_HOST_API Cookie get_project_cookie();

/// The host's project spaces: which kind of space is open, and what other users see of it. Host
/// thread.
class KV_HOST_API ProjectSpacesManager {
 public:
  enum eProjectSpaceType {
    eNoProjectSpace = 0,       ///< no project is open
    eSharedProjectSpace = 1,   ///< a shared project is open: several stations, rooms
    ePrivateProjectSpace = 2,  ///< a private project is open: one station at a time
  };

  /// Whether this machine shares projects over the network at all.
  static bool machineIsInNetworkMode();

  /// One of eProjectSpaceType.
  static int getCurrentProjectSpaceType();

  /// Reads again which projects and rooms are taken, and shows it.
  static void refreshCurrentLobby();
};
