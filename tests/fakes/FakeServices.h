#pragma once

#include <string>

#include "host/base/Text.h"
#include "host/project/iPermissionsManager.h"
#include "host/project/iProjectShare.h"
#include "tests/fakes/FakeHost.h"

namespace korvel {

/// A project-share service that only knows the local user; every lock is refused.
class FakeProjectShare : public iProjectShare {
 public:
  explicit FakeProjectShare(const LightweightString<wchar_t>& userName = L"anna")
      : iProjectShare("fake"), user(userName) {}

  using Text = LightweightString<wchar_t>;
  Text user;

  [[nodiscard]] bool canManageCurrentProjectSpace() const override { return true; }
  Text getProjectLockFile(const Cookie&) override { return {}; }
  bool isProjectOccupied(const Cookie&) override { return false; }
  bool lockProject(const Cookie&) override { return false; }
  bool unlockCurrentlyLockedProject() override { return false; }
  Text getProjectLockOwner(const Cookie&) override { return {}; }
  bool isRoomOccupied(const Text&) override { return false; }
  bool lockRoom(const Text&) override { return false; }
  void unlockCurrentRoom() override {}
  Text getRoomLockOwner(const Text&) override { return {}; }
  std::uint32_t getNumActiveUsers() override { return 0; }
  Text getCurrentUser() override { return user; }
};

/// A permissions service that allows everything and notes the owners it is given.
class FakePermissions : public iPermissionsManager {
 public:
  FakePermissions() : iPermissionsManager("fake") {}

  using Text = LightweightString<wchar_t>;
  Text user = L"EDIT-1";
  Vector<Text> users;

  [[nodiscard]] Text getCurrentUser() const override { return user; }
  const Vector<Text>& getUserList() override { return users; }
  void addUser(const Text& name) override { users.push_back(name); }
  [[nodiscard]] bool isDirtiable(const Cookie&) const override { return true; }
  [[nodiscard]] bool isModificationAllowed(const Cookie&, EditModificationType) const override {
    return true;
  }
  void setOwner(const Cookie& object, const Text& owner, eObjectType type,
                bool describeChange) override {
    FakeHost::current().journal.did("iPermissionsManager::setOwner",
                                    {object, owner, static_cast<int>(type), describeChange});
  }
  void flushOnProjectChange() override {}
  [[nodiscard]] bool canManageCurrentProjectSpace() const override { return true; }
  [[nodiscard]] bool canTranferOwnership() const override { return true; }
};

}  // namespace korvel
