#pragma once

// Who may change what.
//
// The host asks before it lets the user change an object; the plug-in's answer is final.
// Permissions rest on owners: an object belongs to the user who made it, until it is given to
// another.
//
//     user begins to trim -> host: isModificationAllowed(edit, eModTrim)? -> plug-in: false
//                         -> the host refuses, and names the owner
//
// Owners are compared in upper case, by one mapping on all stations. The manager keeps the owners
// it has asked for until the project changes, because the host asks for each edit of a list.
//
// One manager answers at a time: the one that was built last and still lives. While there is none,
// nobody has said that anything is forbidden, and the host allows it.

#include "host/base/Cookie.h"
#include "host/edit/EditModification.h"
#include "host/plugin/KvPluginBase.h"

namespace Kv {

/// What the host knows of a project without opening it.
struct ProjectSummary {
  Cookie cookie;
  LightweightString<wchar_t> name;
};

}  // namespace Kv

/// The host's question to whoever decides which user may change what. Host thread.
class KV_HOST_API iPermissionsManager : public KvResourceTypeBase {
 public:
  enum eObjectType {
    eEdit = 0,         ///< an edit: an object whose log type is 2
    eShot = 1,         ///< a log of any other log type
    eUnsupported = 2,  ///< a kind whose permissions nobody manages
  };

  struct PermissionsInfo {
    LightweightString<wchar_t> owner;  ///< upper-cased; empty when nobody is recorded
    eObjectType type_ = eEdit;
  };

  /// The owner's name that means that nobody owns the object: "<NOBODY>", in upper case as owners
  /// are compared.
  static const LightweightString<wchar_t> kNoOwner;

  /// Registers the object as the host's instance.
  explicit iPermissionsManager(const LightweightString<char>& name);

  /// Ends the registration.
  ~iPermissionsManager() override;

  /// The object registered last that still lives, or null.
  static iPermissionsManager* instance();

  /// The local user as owners are compared: upper-cased.
  [[nodiscard]] virtual LightweightString<wchar_t> getCurrentUser() const = 0;

  /// The known users, upper-cased, in order of first appearance. Owned by the manager, valid for
  /// its life.
  virtual const Vector<LightweightString<wchar_t>>& getUserList() = 0;

  /// Adds a user to the list in memory, unless it is there.
  virtual void addUser(const LightweightString<wchar_t>& name) = 0;

  /// Whether the local user may make the object dirty.
  [[nodiscard]] virtual bool isDirtiable(const Cookie& object) const = 0;

  /// Whether the local user may make a modification of this kind.
  [[nodiscard]] virtual bool isModificationAllowed(const Cookie& object,
                                                   EditModificationType kind) const = 0;

  /// Records an owner; with `describeChange` an edit's change is announced as a change of
  /// ownership.
  virtual void setOwner(const Cookie& object, const LightweightString<wchar_t>& owner,
                        eObjectType type, bool describeChange) = 0;

  /// The host calls it when the current project changes: what was remembered of the old project's
  /// objects is forgotten.
  virtual void flushOnProjectChange() = 0;

  [[nodiscard]] virtual bool canManageCurrentProjectSpace() const = 0;
  [[nodiscard]] virtual bool canTranferOwnership() const = 0;  // Required: spelled so.
  [[nodiscard]] virtual bool canModifyProject(const Kv::ProjectSummary&) const { return true; }
  [[nodiscard]] virtual bool canCreateProjects() const { return true; }

  /// What the manager can do, as bits: 4 ownership may be transferred, 8 owners are kept.
  [[nodiscard]] virtual unsigned getCaps() const { return 8; }
};
