#include "station/wire/Delivery.h"

#include <utility>

#include "host/project/iProjectShare.h"
#include "station/base/Activity.h"
#include "station/base/Events.h"
#include "station/base/Notifications.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"

namespace korvel {

namespace {

/// Bytes that outlive their delivery, should the plug-in keep them.
class HeldBytes : public iMemHolder {
 public:
  explicit HeldBytes(std::string bytes) : bytes_(std::move(bytes)) {}
  [[nodiscard]] const char* bytes() const override { return bytes_.data(); }
  [[nodiscard]] std::size_t size() const override { return bytes_.size(); }

 private:
  std::string bytes_;
};

/// Whether words are for the user of this station. Unlike the plug-in, which compares byte by byte
/// with letters, it knows a user whose name is not ASCII.
bool isForThisUser(const MessageFields& message) {
  if (message.type != MessageType::eUserMessage || !message.valid) return false;
  if (!settings().networkMode) return false;
  iProjectShare* const share = iProjectShare::instance();
  return message.target == kEverybody ||
         (share && utf8Text(share->getCurrentUser()) == message.target);
}

}  // namespace

ReceivedMessage receivedMessage(std::string wireText) {
  MessageFields fields = readMessage(wireText);
  Notification words{{}, fields.data, fields.source, fields.isCut()};
  return {std::move(wireText), std::move(fields), std::move(words)};
}

void deliverAfterWait(iNetMessageReceiver& receiver, const ReceivedMessage& message) {
  const WaitedScope waited;
  deliverMessage(receiver, message);
}

void deliverMessage(iNetMessageReceiver& receiver, const ReceivedMessage& message) {
  const RemoteChangeScope scope(&message);
  const ActivityScope activity("the message " + message.fields.typeName);
  events().received(message.wireText, message.fields);
  const std::uint64_t shownBefore = textsShown();
  receiver.receive(Kv::Ptr<iMemHolder>(new HeldBytes(message.wireText)), nullptr);
  // The panel takes words that look like a message of its own and shows nothing of them.
  if (textsShown() == shownBefore && isForThisUser(message.fields)) notifyUser(message.words);
}

}  // namespace korvel
