#include "ProjectShare/Receiver.h"

#include <cstdlib>
#include <string_view>

#include "ProjectShare/Broadcaster.h"
#include "ProjectShare/HostEntry.h"
#include "host/base/Config.h"
#include "host/base/Log.h"
#include "host/base/Text.h"
#include "host/containers/ContainerManager.h"
#include "host/edit/Edit.h"
#include "host/edit/EditManager.h"
#include "host/edit/ThumbnailRenderTaskQueue.h"
#include "host/media/DiskManager.h"
#include "host/media/SystemCache.h"
#include "host/os/Files.h"
#include "host/os/OS.h"
#include "host/project/CommandMap.h"
#include "host/project/ProjectSpacesManager.h"
#include "host/project/iPermissionsManager.h"
#include "host/project/iProjectShare.h"
#include "host/ui/GlobManager.h"

namespace ProjectSharing {

namespace {

using Text = LightweightString<char>;
using WideText = LightweightString<wchar_t>;

constexpr char kVersionMarker = 'd';
constexpr const char* kEverybody = "<All>";
constexpr const char* kDescription = "ProjectShare";
constexpr int kFileTries = 10;
constexpr unsigned kFilePause = 100;      // milliseconds
constexpr unsigned kThumbnailPause = 10;  // milliseconds

/// Keeps the broadcaster disabled for as long as it lives, whatever happens meanwhile: what a
/// message changes here must not be announced once more.
class BroadcasterPause {
 public:
  BroadcasterPause() { Broadcaster::disable(); }
  BroadcasterPause(const BroadcasterPause&) = delete;
  BroadcasterPause& operator=(const BroadcasterPause&) = delete;
  ~BroadcasterPause() {
    guardedEntry("Broadcaster::enable", [] { Broadcaster::enable(); });
  }
};

/// A buffer's bytes up to the first zero byte. What follows it is not the plug-in's: hosts may add
/// something of their own to a datagram there.
Text textOf(iMemHolder& buffer) {
  const std::string_view bytes(buffer.bytes(), buffer.size());
  return Text(bytes.substr(0, bytes.find('\0')));
}

bool isForThisUser(const Text& target) {
  if (target == kEverybody) return true;
  iProjectShare* share = iProjectShare::instance();
  return (share ? share->getCurrentUser() : WideText()) == Kv::WStringFromAscii(target);
}

void deliverUserMessage(const NetMessage& message) {
  // Required: the format stands as it is, odd conversion included; log readers look for it.
  LogBoth("msg for % from %ss, (%s)\n", message.target, message.source, message.data);
  if (!isForThisUser(message.target)) return;
  // Required: the words alone are handed over, although the panel reads a whole wire text.
  if (Glob* panel = GlobManager::find("Messager")) Glob::sendMsg(panel, message.data, panel);
}

void runCommand(const NetMessage& message) {
  if (std::strtol(message.target.c_str(), nullptr, 10) != Cookie::getLocalMachineNumber()) return;
  CommandMap& commands = CommandMap::theCommandMap();
  const CommandMap::Index index = commands.findCommand(message.data);
  if (index != CommandMap::kNotFound) commands.callCommand(index, CommandContext());
}

/// The cookie of a media file: made from its name.
Cookie materialCookie(const MaterialFilename& file) {
  const auto path = file.getPath().view();
  // Required: cut at the first dot anywhere in the path; every station names material this way.
  const WideText base = stripPath(WideText(path.substr(0, path.find(L'.'))));
  return Cookie(toUTF8(base).c_str(), true);
}

MaterialFilename localFile(const Text& networkPath) {
  return DiskManager::convertUNCtoFsysFilename(fromUTF8(networkPath));
}

void addMaterial(const Text& networkPath) {
  const MaterialFilename file = localFile(networkPath);
  SystemCache::instance().addFile(materialCookie(file), file, false);
}

void removeMaterial(const Text& networkPath) {
  const MaterialFilename file = localFile(networkPath);
  PlayFileCache::remove(file.getOsPath());
  Kv::FileReaderResource::clearRequestCache(file.getOsPath());
  SystemCache::instance().removeFile(materialCookie(file), false,
                                     SystemCache::eRemoveEntry | SystemCache::eRemoveProxies);
}

void changeContainer(ContainerManagerBase& manager, const Cookie& cookie, const WideText& file,
                     const ContainerModification& modification) {
  switch (modification.value_) {
    case ContainerModification::eRewritten:
      if (Receiver::waitForFile(file)) manager.reload(cookie);
      break;
    case ContainerModification::eReload:
      manager.reload(cookie);
      break;
    case ContainerModification::eDestroyed:
      manager.destroy(cookie, "");
      break;
    default:
      break;
  }
}

/// Takes over the owner that an edit's file names; a log's file names none.
void takeOwner(const Cookie& cookie, EditModifier& edit) {
  iPermissionsManager* permissions = iPermissionsManager::instance();
  if (!permissions) return;
  if (edit->isEdit()) {
    const WideText owner = fromUTF8(edit->config().get("OWNER"));
    permissions->setOwner(cookie, owner, iPermissionsManager::eEdit, false);
  } else {
    permissions->setOwner(cookie, WideText(), iPermissionsManager::eShot, false);
  }
}

void reload(const Cookie& cookie, EditModifier& edit) {
  const bool cuesWereShown = edit->areCelCuesOn();
  edit->reOpen(getFilenameForCookie(cookie, Cookie()));
  cuesWereShown ? edit->celCuesOn() : edit->celCuesOff();
}

}  // namespace

Receiver::Receiver()
    : listener_(OSPrivate().networkService().createUDPListener(
          config_int("shared_projects_udp_port", kDefaultPort), 0, this)) {}

int Receiver::receive(const Kv::Ptr<iMemHolder>& buffer, iTCPReceiveContext*) {
  guardedEntry("receive", [&] {
    if (buffer) take(textOf(*buffer));
  });
  return 1;
}

void Receiver::take(const Text& wireText) {
  if (wireText.empty() || wireText[0] != kVersionMarker) return;
  const NetMessage message(wireText);
  log(NetMessage(wireText));  // Required: parsed again, so that logs tell of a faulty text twice.
  if (!isAcceptable(message)) return;
  if (isProjectDependentMessage(message.type) &&
      message.projectCookie.compare(get_project_cookie()) != 0)
    return;
  const BroadcasterPause pause;
  apply(message, wireText);
}

bool Receiver::isAcceptable(const NetMessage& message) {
  return message.type == NetMessage::eActionRequest ||
         ProjectSpacesManager::machineIsInNetworkMode();
}

bool Receiver::isProjectDependentMessage(NetMessage::Type type) {
  switch (type) {
    case NetMessage::eEditModification:
    case NetMessage::eEditSaved:
    case NetMessage::eEditDeleted:
    case NetMessage::eProjdbRecChange:
    case NetMessage::ePermissionsChange:
    case NetMessage::eContainerModification:
      return true;
    default:  // Required: filters and new logs are taken whatever project is open.
      return false;
  }
}

void Receiver::log(const NetMessage& message) {
  static const bool isWanted = config_int("log_incoming_net_messages", 0) != 0;
  if (isWanted) message.log("Received");
}

void Receiver::apply(const NetMessage& message, const Text& wireText) {
  const Cookie& cookie = message.cookie;
  switch (message.type) {
    case NetMessage::eNone:
      return;
    case NetMessage::eEditModification:
      return EditManager::addNetMessage(cookie, wireText);
    case NetMessage::eEditSaved:
      return handleLogModification(cookie);
    case NetMessage::eEditDeleted:
      return EditManager::handleNetDelete(cookie);
    case NetMessage::eProjdbRecChange:
      return EditManager::updateProjdbRec(cookie);
    case NetMessage::ePermissionsChange:
      return EditManager::updateLocalPermissions(cookie, message.data);
    case NetMessage::eRoomChange:
      return ProjectSpacesManager::refreshCurrentLobby();
    case NetMessage::eContainerModification:
      return handleContainerModification(cookie, message.containerModification);
    case NetMessage::eAddMaterial:
      return addMaterial(message.data);
    case NetMessage::eRemoveMaterial:
      return removeMaterial(message.data);
    case NetMessage::eUserMessage:
      return deliverUserMessage(message);
    case NetMessage::eBinTransfer:
    case NetMessage::eClipTransfer:
      return LogBoth("bin/clip for %s: (%s)\n", message.target, cookie.asString(false));
    case NetMessage::eActionRequest:
      return runCommand(message);
    case NetMessage::eEditCreated:
      return handleLogCreation(cookie);
    case NetMessage::eFilterModification:
      return handleFilterModification(cookie, message.containerModification);
  }
  // Required: a fixed place, which readers of logs know; not this file's line.
  assertionFailed("false", "ProjectShare/Receiver line 417");
}

bool Receiver::waitForFile(const WideText& path) {
  for (int tries = 0; tries < kFileTries; ++tries) {
    if (fileExists(path)) return true;
    OS().sleepMilliseconds(kFilePause);
  }
  Log("Receiver::waitForFile( %s ) failed\n", toUTF8(path));
  return false;
}

void Receiver::handleLogCreation(const Cookie& cookie) {
  if (!waitForFile(getFilenameForCookie(cookie, Cookie()))) return;
  EditPtr edit;
  edit.i_open(cookie, 0);
  EditModifier modifier(edit, kDescription);
  if (modifier) modifier->setChangeDescription(eModCreated, true);
}

void Receiver::handleLogModification(const Cookie& cookie) {
  if (!EditManager::isOpen(cookie)) return;
  while (!ThumbnailRenderTaskQueue::instance().isIdle()) OS().sleepMilliseconds(kThumbnailPause);
  EditPtr edit;
  edit.i_open(cookie, 0);
  EditModifier modifier(edit, kDescription);
  if (!modifier) return;
  reload(cookie, modifier);
  takeOwner(cookie, modifier);
  modifier->issueChangeNotification(EditModification(eModContentsChanged));
  modifier->setDirty(false);
  modifier.clearModifications();
}

void Receiver::handleContainerModification(const Cookie& cookie,
                                           const ContainerModification& modification) {
  const WideText file = getFileNameForLogGroup(cookie, WideText(), Cookie());
  switch (cookie.getType()) {
    case CookieTypeBin:
    case CookieTypeMediaBin:
      return changeContainer(*BinManager::instance(), cookie, file, modification);
    case CookieTypeRack:
      return changeContainer(*RackManager::instance(), cookie, file, modification);
    default:
      return;
  }
}

void Receiver::handleFilterModification(const Cookie& cookie,
                                        const ContainerModification& modification) {
  if (modification.value_ == ContainerModification::eRewritten &&
      !waitForFile(UserFilter::getFilterMetadataFileName(cookie)))
    return;
  ProjectFilterManager::instance()->reInit();
}

}  // namespace ProjectSharing
