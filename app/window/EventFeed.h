#pragma once

#include <QCoreApplication>
#include <QDateTime>
#include <QString>
#include <array>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "app/base/EventSinks.h"

namespace korvel {

/// One line of the log pane.
struct LogLine {
  enum class Kind { eSent, eReceived, eAssertion, eNetwork, eCommand, eText };
  Kind kind = Kind::eText;
  QTime time;
  QString text;
};

/// A text that reached this station and that no panel took.
struct NotificationLine {
  QDateTime time;
  QString sender;  ///< the user who wrote it; empty where none is known
  QString text;
  bool isAsking = false;  ///< an ask or an answer, which has a bar of its own
};

/// What one user said to another.
struct SaidLine {
  enum class Kind { eWords, eAsk, eAnswer };
  QDateTime time;  ///< local
  Kind kind = Kind::eWords;
  QString from;
  QString to;
  QString text;
  bool isOwn = false;
  bool isUnverified = false;
  QString ask;  ///< the identifier of the ask that it is, or answers; empty of words
};

/// One thing that somebody did to an object, as the station names it: "trimmed", "renamed".
struct DeedLine {
  QString did;
  QString clip;           ///< what the clip is called; empty for the whole object
  QString path;           ///< where the clip is now
  QString was;            ///< the name before a renaming
  QString to;             ///< the new name, or the new owner
  bool isToUser = false;  ///< the new owner is this window's user
};

/// Something that somebody did in the open project.
struct HappenedLine {
  Q_DECLARE_TR_FUNCTIONS(HappenedLine)

 public:
  long id = 0;  ///< the same for what is told again, with more known of it
  QDateTime when;
  QString by;  ///< empty where it is not known
  bool isOwn = false;
  QString what;  ///< "edit", "bin", "media"
  QString cookie;
  QString name;
  std::vector<DeedLine> deeds;  ///< the first ones
  int more = 0;                 ///< how many further
  bool isUnsaved = false;       ///< announced and not saved yet

  /// "trimmed Clip-002, removed Opening and 2 more".
  [[nodiscard]] QString deedsText() const;

  /// Whether it says more than that something was saved or changed.
  [[nodiscard]] bool isNamed() const;

 private:
  static QString deedText(const DeedLine& deed);
};

/// What happened, as the station of this user lists it.
HappenedLine happenedLine(const JsonValue& happening, const QString& user);

/// The answer to an ask of this user's, or that something is free that the user waits for.
struct AskAnswer {
  QString words;
  QString kind;    ///< "edit", "log", "room", "project"
  QString object;  ///< its cookie; a room's name
  QString name;
  QString project;       ///< the cookie of the one that it is in
  bool canOpen = false;  ///< it was given, or is free
  bool isFree = false;   ///< it is free, and nobody said so
};

/// The identity of this station.
struct StationIdentity {
  bool isReady = false;
  QString user;
  QString host;
  int machine = 0;
  int port = 0;
  bool networkMode = true;
  QString plugin;
};

/// What happened since it was last asked for, and counts of all that ever did.
struct News {
  StationIdentity station;
  std::vector<LogLine> lines;
  std::vector<NotificationLine> notifications;
  std::size_t forgottenLines = 0;  ///< how many lines a flood pushed out unseen
  unsigned long sent = 0;
  unsigned long received = 0;
  std::vector<SaidLine> said;
  std::vector<AskAnswer> answers;
  std::vector<HappenedLine> happened;
  QString trouble;  ///< what is wrong with share, network or unsaved changes; empty for nothing
};

/// What other stations did to one object since the project was opened.
struct RemoteChanges {
  unsigned count = 0;
  bool wasMade = false;  ///< one of them made it
  QString by;            ///< the user of the last one; empty where that is not known
  QDateTime at;          ///< when this station learned of the last one; local time
  QString did{};         ///< what it was, "trimmed Clip-002"; empty where that is not known
  QString doer{};        ///< who did that
  QString didPath{};     ///< where the clip is that it was done to; empty for the whole

  friend bool operator==(const RemoteChanges&, const RemoteChanges&) = default;
};

/// What of the station changed since it was last looked at.
struct Changes {
  bool all = false;       ///< another project, or something that no event tells
  bool projects = false;  ///< the lists of projects and rooms
  bool panel = false;
  bool users = false;
  std::set<std::string> edits;     ///< cookies of edits and logs
  std::set<std::string> families;  ///< "bin", "rack", "filter", "media", "room", "steps", "asks"
  std::map<std::string, RemoteChanges> remote;  ///< by cookie

  [[nodiscard]] bool isEmpty() const {
    return !all && !projects && !panel && !users && edits.empty() && families.empty();
  }
};

/// What was said, as the station lists it.
SaidLine saidLine(const JsonValue& said);

/// Takes the station's events and keeps, until they are fetched, what the window shows of them
/// itself (log lines, notifications, counts) and what has to be looked at anew. Bounded: of a flood
/// of lines the latest stay. Any thread.
class EventFeed : public iEventSink {
 public:
  static constexpr std::size_t kMostLines = 2000;

  void take(const StationEvent& event) override;

  /// Notes what a command may have changed, by the command's name.
  void noteCommand(const std::string& name);

  /// Notes that the lists of projects, rooms and users are due for another look; wakes nobody.
  void noteDue();

  /// Has `wake` called, on any thread, for the first thing that is noted after takeNews(): it must
  /// not wait, nor use the feed. Empty: nothing is called from now on.
  void wakeBy(std::function<void()> wake);

  /// From now on what is said is kept until it is fetched.
  void followSaid();

  News takeNews();
  Changes takeChanges();
  [[nodiscard]] bool hasChanges() const;

 private:
  void takeLine(LogLine::Kind kind, const QString& text);
  void takeChange(const JsonValue& event);
  void takeReady(const JsonValue& event);
  void takeNotification(const JsonValue& event);
  void takeTalk(const std::string& name, const JsonValue& event);
  void takeHappened(const JsonValue& event);
  static void noteRemote(RemoteChanges& changes, const std::string& how, const QString& by);
  void noteCommandLocked(const std::string& name);

  void wakeLocked();

  mutable std::mutex mutex_;
  std::function<void()> wake_;
  bool isAwake_ = false;  ///< something was noted since takeNews()
  bool followsSaid_ = false;
  News news_;
  Changes changes_;
};

}  // namespace korvel
