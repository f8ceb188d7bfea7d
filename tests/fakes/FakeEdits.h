#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "host/edit/Edit.h"
#include "host/edit/EditManager.h"
#include "host/edit/ThumbnailRenderTaskQueue.h"
#include "tests/fakes/Journal.h"

namespace korvel {

/// An edit's configuration on memory.
class FakeConfig : public configb {
 public:
  FakeConfig(Journal& journal, const Cookie& cookie) : journal_(journal), cookie_(cookie) {}

  std::map<std::string, std::string> values;

  void set(const LightweightString<char>& key, const LightweightString<char>& value) override;
  [[nodiscard]] LightweightString<char> get(const LightweightString<char>& key) const override;

 private:
  Journal& journal_;
  Cookie cookie_;
};

/// An edit or log whose answers a test sets.
class FakeEdit : public Edit {
 public:
  FakeEdit(Journal& journal, const Cookie& cookie)
      : settings(journal, cookie), journal_(journal), cookie_(cookie) {}

  bool edit = true;
  int logType = kEditLogType;
  bool imported = true;
  bool scratch = false;
  bool celCues = false;
  bool dirty = false;
  bool canBeOpened = true;
  bool canBeModified = true;  ///< whether an edit-modifier holds it
  FakeConfig settings;        ///< "OWNER" is the owner

  /// The announcement that setChangeDescription asked for; made when the edit is closed or its
  /// modifier released.
  std::optional<EditModificationType> pending;

  [[nodiscard]] Cookie getCookie() const override { return cookie_; }
  [[nodiscard]] bool isEdit() const override { return edit; }
  [[nodiscard]] int getLogType() const override { return logType; }
  [[nodiscard]] bool isImported() const override { return imported; }
  [[nodiscard]] bool isScratch() const override { return scratch; }
  [[nodiscard]] LightweightString<wchar_t> getOwner() const override;
  configb& config() override { return settings; }
  void setChangeDescription(EditModificationType type, bool announce) override;
  bool reOpen(const LightweightString<wchar_t>& path) override;
  [[nodiscard]] bool areCelCuesOn() const override { return celCues; }
  void celCuesOn() override;
  void celCuesOff() override;
  void issueChangeNotification(const EditModification& modification) override;
  [[nodiscard]] bool isDirty() const override { return dirty; }
  void setDirty(bool isDirty) override;
  void clearPendingModifications() override;

  /// Makes the pending announcement, if any.
  void announce();

 private:
  Journal& journal_;
  Cookie cookie_;
};

/// The edits that the fake host holds.
class FakeEdits {
 public:
  explicit FakeEdits(Journal& journal) : journal_(journal) {}

  /// Makes an edit known under a cookie.
  FakeEdit& add(const Cookie& cookie);

  /// The edit with a cookie, or null.
  FakeEdit* find(const Cookie& cookie);

  std::set<std::string> openHere;  ///< text forms of the cookies that isOpen affirms

 private:
  Journal& journal_;
  std::map<std::string, std::unique_ptr<FakeEdit>> edits_;
};

/// A thumbnail queue that is busy for as many questions as a test sets.
class FakeThumbnails : public ThumbnailRenderTaskQueue {
 public:
  explicit FakeThumbnails(Journal& journal) : journal_(journal) {}
  mutable int busyAnswers = 0;
  [[nodiscard]] bool isIdle() const override;

 private:
  Journal& journal_;
};

}  // namespace korvel
