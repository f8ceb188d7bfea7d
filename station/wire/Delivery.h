#pragma once

#include <string>

#include "host/net/iNetworkService.h"
#include "station/base/Events.h"
#include "station/base/Notifications.h"
#include "station/wire/MessageFields.h"

namespace korvel {

/// A datagram that is being delivered: the currentMessage().
struct ReceivedMessage {
  std::string wireText;
  MessageFields fields;  ///< what it says, read once for all of this station
  Notification words;    ///< its text for people
};

/// A text as a notification, of the current message's sender where it is what the sender wrote.
/// Host thread.
inline Notification notificationOf(const std::string& text) {
  const ReceivedMessage* const message = currentMessage();
  return message && message->words.text == text ? message->words : Notification{{}, text};
}

/// Reads a datagram. Any thread.
ReceivedMessage receivedMessage(std::string wireText);

/// Hands a datagram to the plug-in: tells the station's events first, and marks everything that the
/// plug-in does as another station's change. Words for this user that the plug-in showed nowhere
/// become a notification. Host thread.
void deliverMessage(iNetMessageReceiver& receiver, const ReceivedMessage& message);

/// The same for a message whose file the station has waited for already: the plug-in looks for it
/// as often as ever, and does not wait in between.
void deliverAfterWait(iNetMessageReceiver& receiver, const ReceivedMessage& message);

}  // namespace korvel
