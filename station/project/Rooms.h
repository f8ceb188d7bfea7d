#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/base/LightweightString.h"
#include "host/os/iFileManager.h"
#include "station/base/HostParts.h"
#include "station/base/Result.h"
#include "station/project/iProjectPart.h"

namespace korvel {

/// What a look at a lock file shows, without taking it.
enum class LockState {
  eFree,
  eHeld,        ///< a station holds it, perhaps this one
  eLeftBehind,  ///< the file is there and not locked: its station is gone
  eUnknown,     ///< the file may not be looked at, or the file system offers no locks
};

/// Looks at a lock file without taking it, asked freshly.
LockState lookAtLock(const LightweightString<wchar_t>& lockFile);

/// Looks whether the file of a lock that this station gave up is gone, and removes it if it stayed:
/// other stations would take this one for dead. What cannot be removed is told (`what`: "Room
/// \"Sound\"").
void clearGivenUp(const std::string& what, const LightweightString<wchar_t>& lockFile);

/// How lists show a state: "free", "held", "left behind", "unknown".
std::string lockStateText(LockState state);

/// The holder's name as it may be shown. `ask` reads it; while it reads nothing it is asked again,
/// for 100 ms in all, since a holder writes its name only after it has won. Empty when it stays
/// unreadable.
std::string awaitHolder(const std::function<LightweightString<wchar_t>()>& ask);

/// Tells the user where others are shown another name than his beside a lock that was just taken:
/// `what` ("You are in room \"Sound\"") and what they are shown, `holder`, as read back. The
/// plug-in holds a lock also when it cannot write who does.
void warnOfHolderName(const std::string& what, const LightweightString<wchar_t>& holder);

/// Who holds it, in words: the name, or that it cannot be read yet.
std::string holderText(const std::string& holder);

/// The refusal of a lock (`what`: "Room \"Sound\"") that the file manager gave for `reason`; `ask`
/// reads the holder's name, `advice` is what the user can do when it is held.
Error lockRefusal(const std::string& what, eFileError reason,
                  const std::function<LightweightString<wchar_t>()>& ask,
                  const std::string& advice);

/// What a list of rooms shows of one.
struct RoomInfo {
  std::string name;
  LockState state = LockState::eFree;
  std::string holder;   ///< empty unless it is taken or left behind and the name can be read
  bool isHere = false;  ///< whether this station is in it

  friend bool operator==(const RoomInfo&, const RoomInfo&) = default;
};

/// The rooms of the open shared project. A room is the record "rooms/<file name>.json" in the
/// project's folder (Names.h), and its path without the ending is what is locked. Host thread. One
/// object a process.
class Rooms : public iProjectPart {
 public:
  Rooms();
  Rooms(const Rooms&) = delete;
  Rooms& operator=(const Rooms&) = delete;
  ~Rooms() override;

  void enter(const OpenProject& project, const std::vector<std::string>& files) override;

  /// Gives up the room that the station is in.
  void leave() override;

  void findByName(const std::string&, std::vector<NamedObject>&) const override {}
  [[nodiscard]] bool holds(const Cookie&) const override { return false; }
  void listObjects(std::vector<NamedObject>&) const override {}
  std::size_t catchUp(const FoundFiles& files) override;
  [[nodiscard]] std::string stateKey() const override { return "rooms"; }
  [[nodiscard]] JsonValue state() const override;

  /// Notes that the rooms were told of as they are now; nothing in a process without rooms.
  static void noteToldHere();

  Result<void> create(const std::string& name);
  Result<std::vector<RoomInfo>> list() const;

  /// The rooms as they were told of last, in the order of their names. Asks nothing.
  [[nodiscard]] const std::vector<RoomInfo>& known() const { return told_; }

  /// Goes into a room; the one the station is in is given up only when the new one is won. A room
  /// that another station holds is refused with the holder's name.
  Result<void> goInto(const std::string& name);

  /// Leaves the room; eNotFound when the station is in none.
  Result<void> goOut();

  /// The name of the room that the station is in, or empty.
  [[nodiscard]] const std::string& current() const { return current_; }

 private:
  void noteTold();
  [[nodiscard]] Result<void> requireShared() const;
  [[nodiscard]] std::string pathOf(const std::string& fileName) const;
  [[nodiscard]] Error noRoom(const std::string& name) const;
  void giveUp();
  void clearLock(const std::string& room) const;
  [[nodiscard]] RoomInfo look(const std::string& name, const std::string& fileName) const;

  std::string folder_;  ///< of the rooms; empty when no project is open
  bool isShared_ = false;
  std::string current_;
  std::vector<RoomInfo> told_;  ///< the rooms as they were last told of
  const HostEntry<Rooms> entry_{&HostParts::rooms, *this};
};

}  // namespace korvel
