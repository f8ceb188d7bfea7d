#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "host/base/Cookie.h"
#include "station/base/Json.h"

namespace korvel {

struct Happening;
struct MessageFields;
struct ReceivedMessage;

/// Where a change came from.
enum class Origin {
  eLocal,   ///< this station's user
  eRemote,  ///< a message
  eFolder,  ///< found in the folder, without a message
};

/// How events name it: "local", "remote", "folder".
const char* originText(Origin origin);

/// What the station tells those that show it: the console, the window, an event file. Called on the
/// host thread, except log(), network() and audit(), which any thread may call; implementations of
/// those guard themselves. Each does nothing unless it is overridden: a sink takes what it shows.
class iStationEvents {
 public:
  virtual ~iStationEvents() = default;

  /// A datagram left this station, once a message however many destinations it has. `wireText` is
  /// its bytes.
  virtual void sent([[maybe_unused]] const std::string& wireText) {}

  /// A datagram is about to be handed to the plug-in: its bytes, and what they say.
  virtual void received([[maybe_unused]] const std::string& wireText,
                        [[maybe_unused]] const MessageFields& message) {}

  /// Something that this station shows changed. `what`: edit, log, bin, rack, filter, media, room,
  /// permissions. `how`: created, reloaded, modified, destroyed, added, removed, refreshed.
  virtual void changed([[maybe_unused]] const std::string& what,
                       [[maybe_unused]] const Cookie& cookie,
                       [[maybe_unused]] const std::string& how, [[maybe_unused]] Origin origin) {}

  /// A line went to the host log; `toConsole` when it went to the console as well.
  virtual void log([[maybe_unused]] bool toConsole, [[maybe_unused]] const std::string& text) {}

  /// A remote command ran.
  virtual void command([[maybe_unused]] const std::string& name) {}

  /// A network problem, in a sentence; `dropped` counts the datagrams lost with it, 0 where none
  /// were.
  virtual void network([[maybe_unused]] const std::string& problem,
                       [[maybe_unused]] std::uint64_t dropped) {}

  /// A text that no panel took.
  virtual void notification([[maybe_unused]] const std::string& text) {}

  /// The message panel's conversation changed; these are all its lines now, UTF-8, the oldest
  /// first.
  virtual void panel([[maybe_unused]] const std::vector<std::string>& lines) {}

  /// Another station came, changed or went (`how`); `station` is its line in the list of stations.
  virtual void presence([[maybe_unused]] const std::string& how,
                        [[maybe_unused]] const JsonValue& station) {}

  /// Something between users: `event` is "said", "asked", "answered", "withdrawn" or "free", with
  /// the keys that the manual page of kv-station lists.
  virtual void talk([[maybe_unused]] const std::string& event,
                    [[maybe_unused]] const std::vector<JsonValue::Member>& members) {}

  /// Somebody did something in the open project, or more is known of it.
  virtual void happened([[maybe_unused]] const Happening& happening) {}

  /// The share, the network, or whether what is shown is up to date, works better or worse now.
  virtual void health([[maybe_unused]] const JsonValue& health) {}

  /// Something happened for which somebody may have to account. `what`: owner, deleted, restored,
  /// version, emptied, command, refused, keys; `detail` has the keys that docs/administration.md
  /// lists. Any thread.
  virtual void audit([[maybe_unused]] const std::string& what,
                     [[maybe_unused]] const std::vector<JsonValue::Member>& detail) {}

  /// What the user could undo and do again changed: each in words, "Undo trim of Clip-002 in
  /// Harbour", or empty.
  virtual void steps([[maybe_unused]] const std::string& undo,
                     [[maybe_unused]] const std::string& redo) {}
};

/// The detail of an audit() about an object: `kind`, `cookie` and `name`.
std::vector<JsonValue::Member> auditedObject(const std::string& kind, const Cookie& cookie,
                                             const std::string& name);

/// The station's events; a sink that drops everything until one is installed.
iStationEvents& events();

/// Installs the sink, which must live until another is installed or null restores the dropping one.
void installEvents(iStationEvents* sink);

/// Hears of each change that tellChanged() tells. Host thread.
class iChangeObserver {
 public:
  virtual ~iChangeObserver() = default;

  /// `name` is what the object is called, or was; empty where the teller does not say.
  virtual void changed(const std::string& what, const Cookie& cookie, const std::string& how,
                       const std::string& name) = 0;
};

/// Sets the observer of changes, or null; it must outlive this or be taken back. Host thread.
void observeChanges(iChangeObserver* observer);

/// Tells the station's events and the observer that something changed, from where currentOrigin()
/// says. Host thread.
void tellChanged(const std::string& what, const Cookie& cookie, const std::string& how,
                 const std::string& name = {});

/// Where a change that is being made right now comes from: remote while a datagram is being
/// delivered, folder while what was found there is being shown. Host thread.
Origin currentOrigin();

/// The user who made the change that is being told of: this station's own for one made here, else
/// the sender of the message that is being delivered, else the one whom an AuthorScope names; empty
/// where it is not known. Host thread.
std::string currentAuthor();

/// Names who made what is being shown, where nothing else says so, for as long as it lives: the
/// user who a file says has saved it. Host thread.
class AuthorScope {
 public:
  explicit AuthorScope(std::string user);
  AuthorScope(const AuthorScope&) = delete;
  AuthorScope& operator=(const AuthorScope&) = delete;
  ~AuthorScope();

 private:
  std::string before_;
};

/// The message that is being delivered right now; null while none is. Host thread.
const ReceivedMessage* currentMessage();

/// Whether what the calling thread is about to wait for was waited for already, so that waiting
/// again would only cost time.
bool wasWaitedFor();

/// Makes it so for as long as it lives, for this thread.
class WaitedScope {
 public:
  WaitedScope();
  WaitedScope(const WaitedScope&) = delete;
  WaitedScope& operator=(const WaitedScope&) = delete;
  ~WaitedScope();
};

/// Marks a delivery for as long as it lives; what is delivered, where it is a message, must outlive
/// it. Host thread.
class RemoteChangeScope {
 public:
  explicit RemoteChangeScope(const ReceivedMessage* message = nullptr);
  RemoteChangeScope(const RemoteChangeScope&) = delete;
  RemoteChangeScope& operator=(const RemoteChangeScope&) = delete;
  ~RemoteChangeScope();

 private:
  const ReceivedMessage* before_;
};

/// Marks the showing of what was found in the folder, for as long as it lives. Host thread.
class FolderChangeScope {
 public:
  FolderChangeScope();
  FolderChangeScope(const FolderChangeScope&) = delete;
  FolderChangeScope& operator=(const FolderChangeScope&) = delete;
  ~FolderChangeScope();
};

/// A text for the user that no panel took.
struct Notification {
  std::chrono::system_clock::time_point time;
  std::string text;           ///< as it came: UTF-8, if its sender wrote that
  std::string source{};       ///< the user who wrote it; empty where this station did
  bool isCut = false;         ///< the separator of fields ended it
  bool isUnverified = false;  ///< its sender could have sealed it, and did not

  /// The local time of day as "2024-05-31 12:00:00".
  [[nodiscard]] std::string timeText() const;
};

/// Shows a text to the user: keeps it with the time and tells the station's events. Host thread.
void notifyUser(const std::string& text);

/// The same for a text of another user. Host thread.
void notifyUser(Notification notification);

/// The notifications of this process, the oldest first; of very many the latest kMostNotifications,
/// so that a flood does not take the machine's memory. Host thread.
const std::deque<Notification>& notifications();

inline constexpr std::size_t kMostNotifications = 10'000;

/// How many texts people were shown so far, in a notification or in a conversation. Host thread.
std::uint64_t textsShown();

/// Counts one that was shown in a conversation. Host thread.
void noteTextShown();

}  // namespace korvel
