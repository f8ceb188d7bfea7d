#pragma once

#include <string>

#include "host/project/iProjectShare.h"
#include "station/base/Strings.h"

namespace korvel {

/// Stands in for a station's project share where messages are written on behalf of a user: it
/// knows that user's name, and holds nothing.
class NamedSender : public iProjectShare {
 public:
  explicit NamedSender(const std::string& user)
      : iProjectShare("kv-share"), user_(wideText(user)) {}

  LightweightString<wchar_t> getCurrentUser() override { return user_; }

  [[nodiscard]] bool canManageCurrentProjectSpace() const override { return false; }
  LightweightString<wchar_t> getProjectLockFile(const Cookie&) override { return {}; }
  bool isProjectOccupied(const Cookie&) override { return false; }
  bool lockProject(const Cookie&) override { return false; }
  bool unlockCurrentlyLockedProject() override { return false; }
  LightweightString<wchar_t> getProjectLockOwner(const Cookie&) override { return {}; }
  bool isRoomOccupied(const LightweightString<wchar_t>&) override { return false; }
  bool lockRoom(const LightweightString<wchar_t>&) override { return false; }
  void unlockCurrentRoom() override {}
  LightweightString<wchar_t> getRoomLockOwner(const LightweightString<wchar_t>&) override {
    return {};
  }
  std::uint32_t getNumActiveUsers() override { return 0; }

 private:
  LightweightString<wchar_t> user_;
};

}  // namespace korvel
