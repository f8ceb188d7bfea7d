#pragma once

#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "station/base/HostThread.h"
#include "station/base/Json.h"
#include "station/edit/EditFile.h"
#include "station/edit/Edits.h"
#include "station/keep/RecoveryFolder.h"

namespace korvel {

/// What becomes of unsaved changes where a project is left.
enum class Leaving {
  eRefuse,   ///< it is not left
  eSave,     ///< they are saved; it is not left where one cannot be
  eDiscard,  ///< they are dropped
};

/// The open project's edits with unsaved changes of the local user's: their list, what becomes of
/// them when the project is left, and their copies on this machine (RecoveryFolder), which the next
/// station of the same user finds when this one ends without saving. Must be entered after the
/// edits and left before them. Host thread. One object a process.
class UnsavedEdits : public iProjectPart, public iUnsavedObserver {
 public:
  UnsavedEdits(HostThread& thread, Edits& edits);
  UnsavedEdits(const UnsavedEdits&) = delete;
  UnsavedEdits& operator=(const UnsavedEdits&) = delete;
  ~UnsavedEdits() override;

  /// Says what earlier stations of this user left.
  void enter(const OpenProject& project, const std::vector<std::string>& files) override;

  /// Keeps what is unsaved for the next time and says so, unless it is to be discarded.
  void leave() override;
  void findByName(const std::string&, std::vector<NamedObject>&) const override {}
  [[nodiscard]] bool holds(const Cookie&) const override { return false; }
  void listObjects(std::vector<NamedObject>&) const override {}

  /// What can be recovered: cookie, name, when it was changed.
  [[nodiscard]] std::string stateKey() const override { return "recovery"; }
  [[nodiscard]] JsonValue state() const override;

  void changed(const EditFile& edit) override;
  void settled(const Cookie& cookie) override;
  void dropping(const EditFile& edit) override;

  /// The edits and logs with unsaved changes of the local user's, by name.
  [[nodiscard]] std::vector<NamedObject> list() const;

  /// Saves all of them, or drops all their changes. The first that cannot be saved ends it.
  Result<void> saveAll();
  Result<void> discardAll();

  /// To be called before the project is left by the user's wish. With eDiscard the changes are
  /// dropped by leave() only, so that they are still there where the project cannot be left.
  Result<void> prepareToLeave(Leaving leaving);

  /// The project was not left after all.
  void stay() { isDiscarding_ = false; }

  /// Why unsaved changes are not being kept on this machine, in a sentence; empty while they are.
  [[nodiscard]] std::string problem() const { return folder_.problem(); }

  /// Takes up what was left of an object, by cookie or name: as unsaved changes of the edit, or as
  /// a new edit where that one is gone. The edit's cookie.
  Result<Cookie> recover(const std::string& nameOrCookie);

  /// Refuses where something is left of an edit, which would stay behind if it were given away now.
  [[nodiscard]] Result<void> requireNothingLeft(const Cookie& cookie) const;

  /// Throws away what was left of an object; how many versions of it.
  Result<int> discardLeft(const std::string& nameOrCookie);

 private:
  [[nodiscard]] Result<std::vector<UnsavedState>> findLeft(const std::string& nameOrCookie) const;
  Result<Cookie> takeUp(const UnsavedState& state, OtioDocument document);
  void flush();
  void keep(const EditFile& edit);
  void noteKeeping();
  void tryAgainLater();
  void tryAgain();
  void refreshLeft() { left_ = folder_.left(); }
  void dropWhatWasSaved();
  void tellOfLeft() const;

  using Clock = std::chrono::steady_clock;

  HostThread& thread_;
  Edits& edits_;
  RecoveryFolder folder_;
  std::vector<UnsavedState> left_;
  std::set<Cookie> waiting_;  ///< changed since they were last kept
  Clock::time_point lastKept_;
  bool isPosted_ = false;
  bool isTryPosted_ = false;
  bool isUnkeptTold_ = false;
  bool isDiscarding_ = false;
  std::shared_ptr<UnsavedEdits*> self_;  ///< for tasks that come after this object's end
};

}  // namespace korvel
