#include "ProjectShare/Broadcaster.h"

#include <cstdint>
#include <optional>

#include "ProjectShare/HostEntry.h"
#include "ProjectShare/NetMessage.h"
#include "host/base/Config.h"
#include "host/base/Text.h"
#include "host/containers/ContainerManager.h"
#include "host/edit/Edit.h"
#include "host/media/DiskManager.h"
#include "host/media/SystemCache.h"
#include "host/os/OS.h"
#include "host/project/ProjectSpacesManager.h"
#include "host/project/iPermissionsManager.h"

namespace ProjectSharing {

namespace {

Broadcaster* theBroadcaster = nullptr;

/// The payload that the notifier a handler is registered with sends.
template <typename Payload>
const Payload& payloadOf(const NotifyMsg& message) {
  return dynamic_cast<const Payload&>(*message.payload());
}

template <typename Data>
Cookie cookieOf(const Data& object) {
  const auto& type = object.typeBytes;
  return Cookie(object.uuid, static_cast<char>(type[0]), type[1], type[2]);
}

/// What other stations are told of a change; nothing when it does not concern them.
std::optional<ContainerModification> announcedChange(std::uint32_t flags) {
  using Flags = ContainerManagerBase::eModificationFlags;
  if (flags & Flags::eDestroyed) return ContainerModification(ContainerModification::eDestroyed);
  if (!(flags & Flags::eChanged)) return std::nullopt;
  return ContainerModification(flags & Flags::eFileWritten ? ContainerModification::eRewritten
                                                           : ContainerModification::eReload);
}

/// Required: unlike a filter's, a bin's or rack's object is not tested; it is always there.
template <typename Data>
void announceContainer(Broadcaster& broadcaster, const NotifyMsg& message) {
  const auto& change = payloadOf<ContainerManagerBase::Modification<Data>>(message);
  const Cookie cookie = cookieOf(*change.object());
  if (const auto announced = announcedChange(change.flags())) {
    broadcaster.broadcast(NetMessage(cookie, *announced));
  }
}

void announceFilter(Broadcaster& broadcaster, const NotifyMsg& message) {
  const auto& change = payloadOf<ContainerManagerBase::Modification<BinData>>(message);
  if (!change.object()) return;
  const auto announced = announcedChange(change.flags());
  if (!announced) return;
  NetMessage text(NetMessage::eFilterModification, cookieOf(*change.object()));
  text.containerModification.value_ = announced->value_;
  // Required of filters: only the value travels, and the record is never taken for a checked one.
  text.containerModification.valid_ = false;
  broadcaster.broadcast(text);
}

void announceMaterial(Broadcaster& broadcaster, NetMessage::Type type,
                      const MaterialFilename& file) {
  broadcaster.broadcast(NetMessage(type, toUTF8(DiskManager::convertLocalToUNC(file))));
}

void announceMedia(Broadcaster& broadcaster, const NotifyMsg& message) {
  const auto& entry = payloadOf<FsysDirectoryEntry>(message);
  const NotifyMsgType type = message.type();
  if (type == SystemCache::fileAddedMsgType_) {
    announceMaterial(broadcaster, NetMessage::eAddMaterial, entry.getFilename());
  } else if (type == SystemCache::fileRemovedMsgType_) {
    announceMaterial(broadcaster, NetMessage::eRemoveMaterial, entry.getFilename());
  } else if (type == SystemCache::proxyAddedMsgType_) {
    announceMaterial(broadcaster, NetMessage::eAddMaterial, entry.getProxyFiles().at(0));
  } else if (type == SystemCache::proxyRemovedMsgType_) {
    announceMaterial(broadcaster, NetMessage::eRemoveMaterial, entry.getProxyFiles().at(0));
  }
}

}  // namespace

Broadcaster::Broadcaster() {
  listenTo(*BinManager::instance(), &Broadcaster::handleBinModifications);
  listenTo(*ProjectFilterManager::instance(), &Broadcaster::handleFilterModifications);
  listenTo(*RackManager::instance(), &Broadcaster::handleRackModifications);
  listenTo(SystemCache::instance(), &Broadcaster::handleMediaAvailability);
  const int port = config_int("shared_projects_udp_port", kDefaultPort);
  udpBroadcaster_ = OSPrivate().networkService().createUDPBroadcaster(port);
  // Last: what throws before this leaves no pointer to a broadcaster that was never whole.
  theBroadcaster = this;
}

// Required: whichever broadcaster goes, none is current afterwards.
Broadcaster::~Broadcaster() { theBroadcaster = nullptr; }

void Broadcaster::listenTo(NotifierBase& notifier, Handler handler) {
  const NotifyMsgType type =
      NotifyMsgTypeDictionary::instance()[NotifyMsgTypeDictionary::eAnyChange];
  const Kv::Ptr<iCallback<NotifyMsg>> callback(
      new MethodCallback<Broadcaster, NotifyMsg, int>(this, handler));
  const Kv::Ptr<CallbackInvoker<NotifyMsg>> invoker(new CallbackInvoker<NotifyMsg>(type, callback));
  guards_.push_back(notifier.registerInternal(invoker));
}

void Broadcaster::enable() {
  if (theBroadcaster) theBroadcaster->enabled_ = ProjectSpacesManager::machineIsInNetworkMode();
}

void Broadcaster::disable() {
  if (theBroadcaster) theBroadcaster->enabled_ = false;
}

void Broadcaster::broadcast(const NetMessage& message) {
  const LightweightString<char> text = message.asString();
  udpBroadcaster_->broadcast(text);
  message.log("Sent");
}

void Broadcaster::broadcastMessage(const NetMessage& message) {
  if (theBroadcaster) theBroadcaster->broadcast(message);
}

void Broadcaster::handleProjectEntry() {
  guardedEntry("handleProjectEntry", [&] {
    enabled_ = ProjectSpacesManager::machineIsInNetworkMode();
    if (enabled_) broadcast(NetMessage(NetMessage::eRoomChange, get_project_cookie()));
  });
}

void Broadcaster::handleProjectExit() { enabled_ = false; }

void Broadcaster::handleLogsDeletion(const CookieVec& cookies, LightweightString<char>) {
  guardedEntry("handleLogsDeletion", [&] {
    if (!enabled_) return;
    // Required: the index is 16 bits wide, so a longer list starts over without end.
    for (std::uint16_t i = 0; i < cookies.size(); ++i) {
      broadcast(NetMessage(NetMessage::eEditDeleted, cookies[i]));
    }
  });
}

void Broadcaster::handleLogStorage(const Cookie& cookie, bool isNew) {
  guardedEntry("handleLogStorage", [&] {
    if (!enabled_) return;
    broadcast(NetMessage(isNew ? NetMessage::eEditCreated : NetMessage::eEditSaved, cookie));
  });
}

void Broadcaster::handleLogDirtied(const Cookie& cookie) {
  guardedEntry("handleLogDirtied", [&] {
    if (!enabled_) return;
    EditPtr edit;
    edit.i_open(cookie, 0);
    if (edit && edit->getLogType() != Edit::kEditLogType && !edit->isScratch()) {
      const auto user = toUTF8(iPermissionsManager::instance()->getCurrentUser());
      broadcast(NetMessage(NetMessage::ePermissionsChange, cookie, user));
    }
    edit.i_close();
  });
}

void Broadcaster::handleLogModification(const Cookie& cookie,
                                        const EditModification& modification) {
  guardedEntry("handleLogModification", [&] {
    if (!enabled_) return;
    EditPtr edit;
    edit.i_open(cookie, 0);
    if (edit && edit->isImported()) {
      if (modification.type_ == eModOwnerChanged) {
        broadcast(NetMessage(NetMessage::ePermissionsChange, cookie, toUTF8(edit->getOwner())));
      } else {
        broadcast(NetMessage(cookie, modification));
      }
    }
    edit.i_close();
  });
}

int Broadcaster::handleBinModifications(const NotifyMsg& message) {
  guardedEntry("handleBinModifications", [&] {
    if (enabled_) announceContainer<BinData>(*this, message);
  });
  return 0;
}

int Broadcaster::handleFilterModifications(const NotifyMsg& message) {
  guardedEntry("handleFilterModifications", [&] {
    if (enabled_) announceFilter(*this, message);
  });
  return 0;
}

int Broadcaster::handleRackModifications(const NotifyMsg& message) {
  guardedEntry("handleRackModifications", [&] {
    if (enabled_) announceContainer<RackData>(*this, message);
  });
  return 0;
}

int Broadcaster::handleMediaAvailability(const NotifyMsg& message) {
  guardedEntry("handleMediaAvailability", [&] {
    if (enabled_) announceMedia(*this, message);
  });
  return 0;
}

}  // namespace ProjectSharing
