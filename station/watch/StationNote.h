#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/base/Cookie.h"
#include "station/base/Json.h"
#include "station/base/Result.h"
#include "station/project/LockProbe.h"

namespace korvel {

/// What a station tells of itself, in a small file that others read.
///
///     <projects directory>/.stations/<id>.json   what it tells
///                                    <id>.lock   held open exclusively for as long as it lives
///
/// Whether it lives is asked of the lock, which the kernel frees when a program dies. The text is
/// beside the lock, since on some shares nobody can read a locked file. Texts are UTF-8.
struct StationNote {
  std::string id;  ///< the files' name, new with each start
  std::string user;
  std::string host;
  int machine = 0;
  std::vector<std::string> addresses;
  std::string version;
  std::string since;  ///< when it started, "2024-05-31T12:00:00Z"
  Cookie project;     ///< null where none is open
  std::string projectName;
  std::string room;
  std::vector<Cookie> open;       ///< the edits that its user has open
  std::vector<Cookie> unsaved;    ///< those with changes that are not saved
  long sent = 0;                  ///< messages since it started
  std::string seal;               ///< "off", "accept" or "require": its policy for seals
  std::vector<std::string> keys;  ///< the identifiers of the keys that it knows
  std::string written;            ///< when this was written, by its machine's clock
};

/// A station's note as another finds it.
struct FoundStation {
  StationNote note;
  LockState state = LockState::eUnknown;  ///< held: it lives; left behind or free: it is gone
  std::string problem;                    ///< why the note cannot be read; empty when it can

  [[nodiscard]] bool isAlive() const { return state == LockState::eHeld; }

  /// "here", "gone without goodbye" or "unknown".
  [[nodiscard]] const char* stateText() const;
};

/// The note as its file holds it.
std::string noteText(const StationNote& note);

/// Reads a note; what a later version adds is passed over. Failure: bytes that are no note.
Result<StationNote> parseNote(const std::string& bytes, const std::string& id);

/// The folder of the notes in a projects directory.
std::string notesFolder(const std::string& projectsDirectory);

/// Whether a file of this name in that folder holds a note; the id is the name without the ending.
bool isNoteFile(std::string_view name);
std::string noteId(std::string_view name);

/// The lock of a note.
std::string noteLock(const std::string& folder, const std::string& id);

/// All stations that left a note, in the order of users and hosts, asked freshly; none where the
/// folder is missing. Files that are no notes are listed with their problem. A note is at most
/// kLargestNote bytes long.
Result<std::vector<FoundStation>> listStations(const std::string& projectsDirectory);

inline constexpr std::size_t kLargestNote = std::size_t{64} << 10;

/// A station's line in a list and in the event "presence".
JsonValue shownStation(const FoundStation& station);

}  // namespace korvel
