#include "station/MessageJudge.h"

#include "host/containers/ContainerManager.h"
#include "host/edit/EditManager.h"
#include "host/project/ProjectSpacesManager.h"
#include "station/base/Events.h"
#include "station/base/HostParts.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/edit/Edits.h"
#include "station/os/SharedFiles.h"

namespace korvel {

namespace {

MessageGate await(const LightweightString<wchar_t>& file) {
  return {MessageGate::eAwaitFile, utf8Text(file)};
}

bool isRewritten(const MessageFields& message) {
  return numberAtStart(message.container) == static_cast<int>(ContainerValue::eRewritten);
}

bool isContainer(const Cookie& cookie) {
  const char kind = cookie.getType();
  return kind == CookieTypeBin || kind == CookieTypeMediaBin || kind == CookieTypeRack;
}

bool isKnown(const Cookie& cookie, const Cookie& open) {
  if (hostParts().edits->holds(cookie)) return true;
  return !open.isNull() && existsFresh(utf8Text(getFilenameForCookie(cookie, open)));
}

}  // namespace

MessageGate judgeMessage(const ReceivedMessage& received) {
  const MessageFields& message = received.fields;
  if (!message.valid) return {};
  const Cookie open = get_project_cookie();
  const Cookie cookie(message.cookie.c_str(), false);
  const bool isOfOpen = Cookie(message.project.c_str(), false).compare(open) == 0;
  // So that the file is the one for which the plug-in will look when it is handed the message.
  const RemoteChangeScope scope(&received);
  switch (message.type) {
    case MessageType::eEditCreated:
      return await(getFilenameForCookie(cookie, Cookie()));
    case MessageType::eContainerModification:
      if (!isOfOpen || !isRewritten(message) || !isContainer(cookie)) return {};
      return await(getFileNameForLogGroup(cookie, {}, Cookie()));
    case MessageType::eFilterModification:
      return isRewritten(message) ? await(UserFilter::getFilterMetadataFileName(cookie))
                                  : MessageGate{};
    case MessageType::ePermissionsChange:
      // The plug-in keeps each announced owner for as long as the station runs. A stranger who
      // invents objects would fill the memory.
      return {isOfOpen && !isKnown(cookie, open) ? MessageGate::eDrop : MessageGate::eDeliver, {}};
    default:
      return {};
  }
}

void noteDelivered(const ReceivedMessage& message) {
  const MessageFields& fields = message.fields;
  if (fields.type != MessageType::eEditSaved || !fields.valid || !settings().networkMode) return;
  const Cookie open = get_project_cookie();
  if (open.isNull() || Cookie(fields.project.c_str(), false).compare(open) != 0) return;
  const Cookie cookie(fields.cookie.c_str(), false);
  if (EditManager::isOpen(cookie)) return;
  const RemoteChangeScope scope(&message);
  const AuthorScope author(message.by);
  hostParts().edits->noteSavedElsewhere(cookie);
}

}  // namespace korvel
