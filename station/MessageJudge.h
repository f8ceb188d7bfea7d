#pragma once

#include "station/net/NetworkHooks.h"

namespace korvel {

/// What becomes of another station's message before the plug-in sees it. A message that announces a
/// file which is not there yet is held back. One about the owner of an object that does not exist
/// is dropped. Only the open project and the one that the message names are looked at. Host thread.
MessageGate judgeMessage(const ReceivedMessage& message);

/// Does about a delivered message what the plug-in leaves to its host: lists read the file of an
/// edit that was saved elsewhere and that is not open here again when they are next shown. Host
/// thread.
void noteDelivered(const ReceivedMessage& message);

}  // namespace korvel
