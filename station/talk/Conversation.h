#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "station/base/Json.h"
#include "station/base/Result.h"
#include "station/wire/MessageTable.h"

namespace korvel {

// Words between users, as people read and write them.

/// Words as they are sent so that every station shows them: those that begin with a small "d" get a
/// blank before them, since panels take such a text for one of the messages between stations.
std::string wordsToSend(const std::string& typed);

/// Words that came, or were sent, as they were typed.
std::string wordsAsTyped(const std::string& words);

/// Words with "?" for each character that messages cannot carry, such as "€".
std::string carriedWords(const std::string& words);

/// Advice for the sender of a message that others will not see as it was written: the reason, and
/// what to write instead. Empty where they will see it whole. The message is sent unchanged in any
/// case. Any thread.
std::string messageAdvice(const std::string& text);

/// Whether a user of this name, in whatever case, is at work in the projects directory; also where
/// that cannot be told. Asks the projects directory. Any thread.
bool isAtWork(const std::string& user);

/// Advice for the sender of a message to one user: that no user of that name is present, or that
/// the message is shown otherwise than usual, and why. Else empty. Asks the projects directory. Any
/// thread.
std::string recipientAdvice(const std::string& user);

/// Something that one user said to another.
struct Said {
  enum class Kind { eWords, eAsk, eAnswer };

  std::int64_t when = 0;  ///< seconds since 1970, by this machine's clock
  Kind kind = Kind::eWords;
  std::string from;
  std::string to;      ///< a user, or kEverybody
  std::string text;    ///< as typed
  std::string ask{};   ///< of an ask and its answer: the ask's identifier
  JsonValue detail{};  ///< of one's own ask: what is needed to go on with it after a restart
  bool isOwn = false;  ///< this station's user said it
  bool isUnverified = false;
  bool isCut = false;  ///< a character that messages cannot carry ended it on its way

  /// The colleague with whom this user had these words: the other one, or kEverybody.
  [[nodiscard]] const std::string& with() const;
};

/// What lists, events and the file show of it: time, kind, from, to, text, and ask, own, cut and
/// unverified where they matter.
JsonValue shownSaid(const Said& said);

/// All that this station's user and others said to each other: words, asks and answers, kept on
/// this machine over restarts. Each is told as an event "said".
///
///     <folder>/<hash of user and projects directory>.jsonl
///
/// One JSON object a line. The first line names the user and the projects directory. A line that a
/// power cut left unfinished is passed over. Another user's file is set aside under another name.
/// Readable by its user alone. What cannot be written is told once and kept in memory. Host thread.
class Conversation {
 public:
  /// Of more the oldest are forgotten.
  static constexpr std::size_t kMostSaid = 2000;
  static constexpr std::size_t kMostBytes = std::size_t{2} << 20;

  /// Of longer texts only so much is kept, in bytes.
  static constexpr std::size_t kLongestText = std::size_t{64} << 10;

  /// Takes up what was said before. `folder` is made when it is needed; empty: memory alone.
  Conversation(std::string folder, std::string user, const std::string& projectsDirectory);

  void add(Said said);

  /// Everything, the oldest first.
  [[nodiscard]] const std::deque<Said>& all() const { return said_; }

  /// What was said with one colleague, whatever the capitals of the name, or to everybody; all
  /// where it is empty.
  [[nodiscard]] JsonValue listed(const std::string& colleague) const;

  /// A message of words that this station's plug-in sent, as its text on the wire.
  void noteSent(const std::string& wireText);

  /// A message that was delivered: its words, where it has words for this user.
  void noteDelivered(const ReceivedMessage& message);

 private:
  using Time = std::chrono::steady_clock::time_point;

  /// Words that came over the network.
  struct Heard {
    Time arrived;
    std::string from;
    std::string wireText;
  };

  bool isCopy(const ReceivedMessage& message);
  void load();
  void take(const std::string& line);
  void keep(Said said);
  [[nodiscard]] std::string header() const;
  [[nodiscard]] bool isOurs(const std::string& line) const;
  void setAside();
  void write(const std::string& lines);
  void rewrite();
  void tellProblem(const std::string& problem);

  std::string path_;  ///< empty: memory alone
  std::string user_;
  std::string projects_;
  std::deque<Said> said_;
  std::deque<Heard> heard_;  ///< a moment ago
  std::size_t bytes_ = 0;    ///< of the texts in memory
  std::size_t written_ = 0;  ///< bytes of the file
  bool endsInLine_ = true;   ///< else its last line was cut
  bool isTold_ = false;      ///< that it cannot be written
};

}  // namespace korvel
