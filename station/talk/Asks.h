#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/base/Cookie.h"
#include "station/base/HostThread.h"
#include "station/base/Json.h"
#include "station/base/Result.h"
#include "station/talk/AskWords.h"
#include "station/talk/HeldObjects.h"
#include "station/watch/StationNote.h"
#include "station/wire/MessageTable.h"

namespace korvel {

class Conversation;
struct Said;
class Edits;
class Presence;
class Projects;
class Rooms;
class UnsavedEdits;

/// Asking colleagues for what they hold: an edit that is theirs, a room they are in, a private
/// project that they have open.
///
/// An ask goes out as words to the colleague and stands in this station's note as long as it waits
/// for an answer, so that it arrives where the message was lost, and also when the colleague comes
/// back. Answers do the same. Either is taken once, by its identifier. What waits at this station's
/// end is taken up again at its next start.
///
/// Told as events: "asked" and "answered" of what came, "withdrawn" of an ask that its asker took
/// back, "free" of what tellWhenFree() waited for. Host thread.
class Asks {
 public:
  struct Parts {
    HostThread& host;
    Projects& projects;
    Edits& edits;
    Rooms& rooms;
    Presence& presence;
    UnsavedEdits& unsaved;
    Conversation& conversation;
  };

  /// Of one colleague's asks that wait, and of one's own, no more are taken. A note holds so many.
  static constexpr std::size_t kMostOfOne = 20;
  static constexpr std::size_t kMostAnswers = 40;
  static constexpr std::size_t kMostIncoming = 200;

  /// Where this station starts again so much later, in seconds, nobody waits for an answer any
  /// more.
  static constexpr std::int64_t kLongestWait = 7 * std::int64_t{86'400};

  explicit Asks(const Parts& parts);
  Asks(const Asks&) = delete;
  Asks& operator=(const Asks&) = delete;
  ~Asks();

  /// Asks the holder of an object to give it, as HeldObjects::find() has it. Returns the ask as
  /// lists show it. Failures: those of find(), and a text that is too long.
  Result<JsonValue> ask(const std::string& object, const std::string& text);

  /// What waits, the oldest first: others' asks and one's own for an answer, and with `awaited`
  /// what tellWhenFree() waits for.
  [[nodiscard]] JsonValue list() const;

  /// Answers the ask of this number. To give is to give the edit away, with unsaved changes saved
  /// first, or to leave the room or project; where that fails, the ask stays. One's own ask is
  /// withdrawn by keeping, and what is awaited is awaited no longer. Returns whether it was one's
  /// `own`, and of others' asks `answer`, `kind`, `name` and `to`.
  enum class Answer { eGive, eKeep };
  Result<JsonValue> answer(long number, Answer answer, const std::string& text);

  /// Tells this station's user when an object that another holds can be had; until then it is in
  /// the list. Who holds it now, as `holder`. Failures as of ask().
  Result<JsonValue> tellWhenFree(const std::string& object);

  /// A message that was delivered.
  void noteDelivered(const ReceivedMessage& message);

  /// What another station says of itself now.
  void noteStation(const StationNote& note);

  /// Puts what waits into this station's note.
  void addTo(StationNote& note) const;

 private:
  struct Incoming {
    NotedAsk ask;
    long number = 0;
    std::string from;
    std::string note;  ///< the id of the asker's station, once the ask was seen in its note
    bool isUnverified = false;
    std::chrono::steady_clock::time_point arrived = std::chrono::steady_clock::now();
  };

  struct Outgoing {
    NotedAsk ask;
    long number = 0;
    std::optional<std::chrono::steady_clock::time_point> freeSince{};  ///< it can be had without
  };

  struct Awaited {
    NotedAsk object;
    long number = 0;
  };

  struct Given {
    NotedAnswer answer;
    std::string note;  ///< of the asker's station, which had the ask; else empty
  };

  /// Identifiers that were added last, so many that a late copy of what they stand for is known
  /// again.
  class RecentIds {
   public:
    void add(const std::string& id);
    [[nodiscard]] bool contains(const std::string& id) const { return ids_.contains(id); }

   private:
    static constexpr std::size_t kMost = 4096;

    std::deque<std::string> order_;
    std::set<std::string> ids_;
  };

  [[nodiscard]] bool isMe(const std::string& name) const;

  void takeUpEarlier();
  void takeUpAsk(NotedAsk ask);
  void dropOwnFor(const NotedAsk& ask);
  void giveUp(const Outgoing& own);
  void keepAnswer(Given answer);
  void settle(const std::string& id);
  void keep(const Said& said);
  void makeRoom();
  void takeAsk(Incoming ask);
  void tellAsked(const Incoming& ask);
  bool takeAnswer(const NotedAnswer& answer, const std::string& by, bool isUnverified);
  std::optional<Outgoing> takeOut(std::vector<Outgoing>& asks, const std::string& id,
                                  const std::string& by) const;
  void withdrawMissing(const StationNote& note);
  template <typename IsWithdrawn>
  void dropIncoming(const IsWithdrawn& isWithdrawn);
  [[nodiscard]] bool knows(const std::string& id) const;
  Result<JsonValue> withdraw(std::vector<Outgoing>::iterator own);
  [[nodiscard]] Error whyNotAnswered(long number) const;
  Result<JsonValue> answerIncoming(std::vector<Incoming>::iterator ask, Answer answer,
                                   const std::string& text);
  Result<void> handOver(const Incoming& ask);
  Result<void> giveEdit(const Incoming& ask);
  Result<void> leaveRoom(const NotedAsk& ask);
  Result<void> leaveProject(const NotedAsk& ask);
  void send(const std::string& to, AskWords::What what, NotedAsk ask) const;
  void watchSoon();
  void look();
  static void tellGone(const NotedAsk& object);
  static void tellFree(const NotedAsk& object);
  void dropNeedless();

  Parts parts_;
  HeldObjects held_;
  std::vector<Incoming> incoming_;
  std::vector<Outgoing> outgoing_;
  std::vector<Outgoing> givenUp_;  ///< taken back or made again; answers may still come
  std::vector<Given> answers_;
  std::vector<Awaited> awaited_;  ///< by tellWhenFree()
  RecentIds answered_;            ///< asks that were answered here or settled
  RecentIds replaced_;            ///< others' asks in whose place they made later ones
  RecentIds heard_;               ///< answers that were taken: ask and answerer
  std::set<std::string> more_;    ///< askers whose further asks are not taken
  long lastNumber_ = 0;
  std::string lastId_;  ///< of this station's asks
  bool isWatching_ = false;
  std::shared_ptr<int> alive_ = std::make_shared<int>(0);  ///< what posted tasks hold weakly
};

}  // namespace korvel
