#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <string_view>
#include <unordered_set>

#include "host/base/Cookie.h"
#include "host/base/LightweightString.h"
#include "host/project/iPermissionsManager.h"

/// Knows the users of the shared projects, and decides whether the local one may change an object.
///
/// A user is a workstation: its network host name, upper-cased. The known users come from
/// "userlist.dat" in the projects directory (one name a line; kept by an administrator, only read
/// here). Owners are cached by object until the project changes. All state is shared by all
/// instances and lasts for the process. Host thread.
class PermissionsManager : public iPermissionsManager {
 public:
  /// Registers with the host as "Project sharing".
  PermissionsManager();

  /// This station's network host name, upper-cased; asked of the host until it has one, and then
  /// remembered.
  [[nodiscard]] LightweightString<wchar_t> getHostName() const;

  [[nodiscard]] LightweightString<wchar_t> getCurrentUser() const override;

  /// Reads the user list file on the first call, and adds the local station behind its names.
  const Vector<LightweightString<wchar_t>>& getUserList() override;

  void addUser(const LightweightString<wchar_t>& name) override;
  [[nodiscard]] bool isDirtiable(const Cookie& object) const override;

  /// Whether the local user may change the object. Everybody may outside network mode, an
  /// administrator always, and what a render job owns nobody else. An edit belongs to its owner
  /// alone (without one to nobody), a shot without an owner to all. The kind makes no difference.
  [[nodiscard]] bool isModificationAllowed(const Cookie& object,
                                           EditModificationType kind) const override;

  /// Records the owner of any object; an edit's is stored in the edit itself, too.
  void setOwner(const Cookie& object, const LightweightString<wchar_t>& owner, eObjectType type,
                bool describeChange) override;

  /// Forgets the owners of the old project's objects, and keeps the users.
  void flushOnProjectChange() override;

  [[nodiscard]] bool canManageCurrentProjectSpace() const override;
  [[nodiscard]] bool canTranferOwnership() const override;  // Required: spelled so.
  [[nodiscard]] unsigned getCaps() const override;

 private:
  using Text = LightweightString<wchar_t>;
  using Owners = std::map<Cookie, PermissionsInfo>;

  struct TextHash {
    std::size_t operator()(const Text& text) const {
      return std::hash<std::wstring_view>{}(text.view());
    }
  };

  static const Text& hostName();
  static void readUserList();
  static void addUpperCased(Text name);
  [[nodiscard]] bool decideModification(const Cookie& object) const;
  [[nodiscard]] bool isAllowedFor(const PermissionsInfo& info) const;
  static const PermissionsInfo* findInfo(const Cookie& object);
  static void recordOwner(const Cookie& object, const Text& owner, eObjectType type,
                          bool describeChange);

  static Text hostName_;
  static bool initialised_;
  static Owners map_;
  static std::array<const Owners::value_type*, 256> lastFound_;  ///< by the last byte of the UUID
  static Vector<Text> userList_;
  static std::unordered_set<Text, TextHash> knownUsers_;  ///< what userList_ holds, to find it fast
};
