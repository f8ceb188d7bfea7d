#pragma once

namespace korvel {

class Bins;
class Desktop;
class Edits;
class Filters;
class MediaCache;
class Projects;
class Racks;
class RemoteCommands;
class Rooms;
class UndoList;

/// The parts of the one station of this process, each null while there is none: what the host's
/// static operations, which the plug-in calls without an object, and the parts among themselves
/// work on. Commands and windows take a Station& instead. Host thread.
struct HostParts {
  Bins* bins = nullptr;
  Desktop* desktop = nullptr;
  Edits* edits = nullptr;
  Filters* filters = nullptr;
  MediaCache* media = nullptr;
  Projects* projects = nullptr;
  Racks* racks = nullptr;
  RemoteCommands* commands = nullptr;
  Rooms* rooms = nullptr;
  UndoList* undo = nullptr;
};

/// The parts that there are now.
HostParts& hostParts();

/// A member by which a part is found for as long as it lives:
///
///     HostEntry<Rooms> entry_{&HostParts::rooms, *this};
///
/// Where two parts of one kind live at once, the later one is found, and none after it went.
template <typename Part>
class HostEntry {
 public:
  HostEntry(Part* HostParts::*place, Part& part) : place_(place), part_(&part) {
    hostParts().*place_ = part_;
  }
  HostEntry(const HostEntry&) = delete;
  HostEntry& operator=(const HostEntry&) = delete;
  ~HostEntry() {
    if (hostParts().*place_ == part_) hostParts().*place_ = nullptr;
  }

 private:
  Part* HostParts::*place_;
  Part* part_;
};

}  // namespace korvel
