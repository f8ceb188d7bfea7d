#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "host/base/Cookie.h"
#include "station/base/Json.h"
#include "station/base/Result.h"
#include "station/net/NetworkHooks.h"
#include "station/project/ProjectFolder.h"
#include "station/project/Rooms.h"

namespace korvel {

/// Counts what this station sent and heard of others, for what it tells of itself and of its
/// health. Any thread.
class TrafficCounts : public iTrafficObserver {
 public:
  /// `ownPort` is the port that this station's messages leave from; `next` is told of everything,
  /// too, and may be null.
  TrafficCounts(std::uint16_t ownPort, std::shared_ptr<iTrafficObserver> next)
      : ownPort_(ownPort), next_(std::move(next)) {}

  void heard(Ipv4 address, std::uint16_t port) override {
    if (port != ownPort_) ++heard_;
    if (next_) next_->heard(address, port);
  }
  void taken(Ipv4 address, std::uint16_t port) override;
  void sent() override {
    ++sent_;
    if (next_) next_->sent();
  }
  void reached(bool everywhere) override { isCut_ = !everywhere; }

  [[nodiscard]] long sentCount() const { return sent_; }
  [[nodiscard]] long heardCount() const { return heard_; }

  /// How many different messages came from a port of a machine with these addresses, "10.0.0.7".
  [[nodiscard]] long takenFrom(const std::vector<std::string>& addresses, std::uint16_t port) const;

  [[nodiscard]] std::uint16_t ownPort() const { return ownPort_; }

  /// Whether the latest message did not leave for every destination.
  [[nodiscard]] bool hasFailed() const { return isCut_; }

 private:
  /// More senders than any facility has; addresses and ports can be forged without end.
  static constexpr std::size_t kMostSenders = 4096;

  const std::uint16_t ownPort_;
  const std::shared_ptr<iTrafficObserver> next_;
  std::atomic<long> sent_{0};
  std::atomic<long> heard_{0};
  mutable std::mutex mutex_;
  std::map<std::pair<std::uint16_t, Ipv4>, long> taken_;  ///< by port, then address
  std::atomic<bool> isCut_{false};
};

/// What one user asks another for, as it waits in the asker's note.
struct NotedAsk {
  std::string id;         ///< 16 hexadecimal digits
  std::string to;         ///< the user who is asked
  std::string kind;       ///< "edit", "log", "room" or "project"
  std::string object;     ///< the cookie's text; of a room its name in hexadecimal
  std::string name;       ///< as the asker was shown it
  std::string project;    ///< the cookie's text of the project that it is in
  std::string text;       ///< the asker's own words; may be empty
  std::int64_t when = 0;  ///< seconds since 1970, by the asker's clock

  friend bool operator==(const NotedAsk&, const NotedAsk&) = default;
};

JsonValue jsonOf(const NotedAsk& ask);
NotedAsk notedAsk(const JsonValue& json);

/// The answer to an ask, as it waits in the answerer's note until it was seen.
struct NotedAnswer {
  std::string ask;  ///< its identifier
  std::string to;   ///< the user who asked
  bool isGiven = false;
  std::string text;

  friend bool operator==(const NotedAnswer&, const NotedAnswer&) = default;
};

JsonValue jsonOf(const NotedAnswer& answer);
NotedAnswer notedAnswer(const JsonValue& json);

/// What a station tells of itself, in a small file that others read.
///
///     <projects directory>/.stations/<id>.json   what it tells
///                                    <id>.lock   held open exclusively for as long as it lives
///
/// The lock tells whether the station lives: the kernel frees it when the program dies. The text is
/// beside the lock, since a locked file cannot be read by others on SMB. Texts are UTF-8.
struct StationNote {
  std::string id;  ///< the files' name, new with each start
  std::string user;
  std::string host;
  int machine = 0;
  std::vector<std::string> addresses;
  std::uint16_t port = 0;  ///< that its messages leave from; 0 where that is not known
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
  std::vector<NotedAsk> asks;     ///< that wait for an answer
  std::vector<NotedAnswer> answers;
  std::string written;  ///< when this was written, by its machine's clock

  friend bool operator==(const StationNote&, const StationNote&) = default;
};

/// A station's note as another finds it.
struct FoundStation {
  StationNote note;
  LockState state = LockState::eUnknown;  ///< held: it lives; left behind or free: it is gone
  std::string problem;                    ///< why the note cannot be read; empty when it can

  [[nodiscard]] bool isAlive() const { return state == LockState::eHeld; }

  /// Whether nobody holds its lock. A lock that cannot be looked at tells nothing.
  [[nodiscard]] bool isGone() const {
    return state == LockState::eLeftBehind || state == LockState::eFree;
  }

  /// "here", "gone without goodbye" or "unknown".
  [[nodiscard]] const char* stateText() const;
};

/// The note as its file holds it.
std::string noteText(const StationNote& note);

/// The same, at most kLargestNote bytes: where it has too much to tell, some of the edits that are
/// open are left out first, and the answers and asks that wait longest last.
std::string fittingNoteText(StationNote note);

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

/// Leaves out the dead stations whose user was there again on the same host: what a killed station
/// left tells nothing once it is back.
void leaveOutReturned(std::vector<FoundStation>& stations);

inline constexpr std::size_t kLargestNote = std::size_t{64} << 10;

/// A station's line in a list and in the event "presence".
JsonValue shownStation(const FoundStation& station);

/// This station's note in the projects directory, and the lock that says that it lives. A thread of
/// its own writes them, so that a share that hangs does not hold up the host thread. Host thread.
class StationFile {
 public:
  /// Makes the folder where it is missing, takes the lock and writes the note. Where that cannot be
  /// done it is told once, and tried again every second.
  /// `directory` is the projects directory, in which nothing is written while it is another.
  StationFile(std::shared_ptr<SeenDirectory> directory, std::string folder, StationNote note);
  StationFile(const StationFile&) = delete;
  StationFile& operator=(const StationFile&) = delete;

  /// Says goodbye: removes the files, unless the share does not answer within a second.
  ~StationFile();

  /// Removes the files of these stations, too, when this one says goodbye: of its own earlier
  /// starts that were killed.
  void takeAlong(std::vector<std::string> ids);

  /// Writes the note where it differs from the one that was written, at most once a second.
  void show(const StationNote& note);

  /// Writes the note anew soon, for where it may be missing.
  void writeAgain();

  /// A name for the files of a station that starts now.
  static std::string newId();

 private:
  class Writer;

  std::shared_ptr<Writer> writer_;
  std::thread thread_;
};

}  // namespace korvel
