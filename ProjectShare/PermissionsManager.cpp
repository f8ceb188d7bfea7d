#include "ProjectShare/PermissionsManager.h"

#include "ProjectShare/HostEntry.h"
#include "host/base/Config.h"
#include "host/base/Log.h"
#include "host/base/Text.h"
#include "host/edit/Edit.h"
#include "host/edit/EditManager.h"
#include "host/os/Files.h"
#include "host/os/OS.h"
#include "host/project/ProjectSpacesManager.h"

namespace {

/// The owner of what a render job is working on.
constexpr std::wstring_view kRenderOwner = L"RENDER";

/// The second type byte of a project's cookie where it stands for an object.
constexpr int kProjectSubtype = 255;

/// What this manager can do: ownership may be transferred, owners are kept.
constexpr unsigned kCaps = 12;

// Read once, while the library is loaded: a later change of the configuration gives nobody rights.
const bool isAdministrator_ = config_int("Administrator", 0) == 1;

LightweightString<wchar_t> upperCased(LightweightString<wchar_t> text) {
  Kv::toUpper(text);
  return text;
}

/// Whether the object stands for the current project, or neither is one. What bears another subtype
/// is told apart without asking the host.
bool isCurrentProject(const Cookie& object) {
  if (object.getTypeBytes()[1] != kProjectSubtype && object.getType() != CookieTypeNone) {
    return false;
  }
  return object ==
         convertCookie(EditManager::getCurrentProjectID(), CookieTypeEdit, kProjectSubtype);
}

}  // namespace

LightweightString<wchar_t> PermissionsManager::hostName_;
bool PermissionsManager::initialised_ = false;
PermissionsManager::Owners PermissionsManager::map_;
std::array<const PermissionsManager::Owners::value_type*, 256> PermissionsManager::lastFound_{};
Vector<LightweightString<wchar_t>> PermissionsManager::userList_;
std::unordered_set<LightweightString<wchar_t>, PermissionsManager::TextHash>
    PermissionsManager::knownUsers_;

PermissionsManager::PermissionsManager() : iPermissionsManager("Project sharing") {}

LightweightString<wchar_t> PermissionsManager::getHostName() const {
  return guardedEntry("getHostName", Text(), [] { return hostName(); });
}

LightweightString<wchar_t> PermissionsManager::getCurrentUser() const { return getHostName(); }

const LightweightString<wchar_t>& PermissionsManager::hostName() {
  // A machine may get its host name after the start, so an empty one is asked for again.
  if (hostName_.empty()) hostName_ = upperCased(OS().networkHostName());
  return hostName_;
}

const Vector<LightweightString<wchar_t>>& PermissionsManager::getUserList() {
  guardedEntry("getUserList", [] {
    if (!initialised_) readUserList();
  });
  return userList_;
}

void PermissionsManager::readUserList() {
  const TextFile file(getProjectsBaseDirectory() + L"userlist.dat", true);
  for (std::size_t i = 0; i < file.getNumLines(); ++i) {
    addUpperCased(Kv::WStringFromAscii(file.getLine(i)));
  }
  // The local user is always offered, on a share without a user list, too.
  addUpperCased(hostName());
  initialised_ = true;
}

void PermissionsManager::addUser(const Text& name) {
  guardedEntry("addUser", [&] { addUpperCased(name); });
}

void PermissionsManager::addUpperCased(Text name) {
  Kv::toUpper(name);
  if (knownUsers_.insert(name).second) userList_.push_back(name);
}

void PermissionsManager::flushOnProjectChange() {
  lastFound_.fill(nullptr);
  map_.clear();
}

bool PermissionsManager::canManageCurrentProjectSpace() const {
  return guardedEntry("canManageCurrentProjectSpace", false, [] {
    return ProjectSpacesManager::getCurrentProjectSpaceType() ==
           ProjectSpacesManager::eSharedProjectSpace;
  });
}

bool PermissionsManager::canTranferOwnership() const { return true; }

unsigned PermissionsManager::getCaps() const { return kCaps; }

bool PermissionsManager::isDirtiable(const Cookie& object) const {
  return isModificationAllowed(object, eModContentsChanged);
}

bool PermissionsManager::isModificationAllowed(const Cookie& object, EditModificationType) const {
  return guardedEntry("isModificationAllowed", false, [&] { return decideModification(object); });
}

bool PermissionsManager::decideModification(const Cookie& object) const {
  if (isAdministrator_) return true;
  if (!ProjectSpacesManager::machineIsInNetworkMode()) return true;
  if (isCurrentProject(object)) return true;
  const PermissionsInfo* info = findInfo(object);
  return !info || isAllowedFor(*info);
}

/// The object's entry, made from the stored object when there is none; null for what cannot be
/// opened, which is tried again the next time. The few objects that a user works on are asked for
/// again and again: they are found without going through the map.
const iPermissionsManager::PermissionsInfo* PermissionsManager::findInfo(const Cookie& object) {
  const Owners::value_type*& last = lastFound_[object.getUuid().bytes.back()];
  if (last && last->first == object) return &last->second;
  const auto known = map_.find(object);
  if (known != map_.end()) {
    last = &*known;
    return &known->second;
  }
  EditPtr edit;
  edit.i_open(object, 0);
  if (!edit) return nullptr;
  PermissionsInfo info;
  info.owner = upperCased(edit->getOwner());
  info.type_ = edit->getLogType() == Edit::kEditLogType ? eEdit : eShot;
  const auto made = map_.emplace(object, info).first;
  edit.i_close();
  return &made->second;
}

/// An unowned shot is free for all, an unowned edit closed to all: required, users rely on both.
// Required: assertions name fixed places, which readers of logs know; not this file's lines.
bool PermissionsManager::isAllowedFor(const PermissionsInfo& info) const {
  if (info.type_ == eUnsupported) {
    assertionFailed("false", "ProjectShare/PermissionsManager line 203");
    return false;
  }
  if (info.owner.view() == kRenderOwner) return false;
  if (!ProjectSpacesManager::machineIsInNetworkMode()) return true;
  if (info.type_ == eEdit) return info.owner == getCurrentUser();
  if (info.type_ != eShot) {
    assertionFailed("p.type_ == eShot", "ProjectShare/PermissionsManager line 188");
  }
  return info.owner == getCurrentUser() || info.owner == kNoOwner || info.owner.empty();
}

void PermissionsManager::setOwner(const Cookie& object, const Text& owner, eObjectType type,
                                  bool describeChange) {
  guardedEntry("setOwner", [&] { recordOwner(object, owner, type, describeChange); });
}

void PermissionsManager::recordOwner(const Cookie& object, const Text& owner, eObjectType type,
                                     bool describeChange) {
  const Text upper = upperCased(owner);
  map_[object] = PermissionsInfo{upper, type};
  EditPtr edit;
  edit.i_open(object, 0);
  // Required: the stored owner is compared with the name as it was given, so that the same name in
  // lower case is written once more; stations announce ownership by that write.
  if (edit && edit->getLogType() == Edit::kEditLogType && edit->getOwner() != owner) {
    edit->config().set("OWNER", toUTF8(upper));
    EditManager::flushChanges(object);
    if (describeChange) edit->setChangeDescription(eModOwnerChanged, true);
  }
  edit.i_close();
}
