#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QStringList>
#include <QTimer>
#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/window/Dialogs.h"
#include "app/window/EventFeed.h"
#include "app/window/HistoryPane.h"
#include "app/window/Snapshot.h"
#include "app/window/Timeline.h"
#include "app/window/iStationWindow.h"
#include "station/base/Json.h"
#include "station/base/Result.h"

namespace korvel {

/// How a command ended.
struct CommandOutcome {
  QString line;
  QString command;  ///< its name; empty for a line that names none
  bool succeeded = false;
  QString text;      ///< the answer as the console shows it, or why it was refused
  JsonValue result;  ///< the answer as scripts get it
  ErrorCode code = ErrorCode::eSystem;  ///< why it was refused; only where it was
};

/// An edit or log of the open project with changes that are not saved.
struct UnsavedEdit {
  QString cookie;
  QString name;
};

/// What another saved in the place of an edit that is open here, as a refused save tells it.
struct OtherSave {
  QString by;       ///< the user who saved it; empty for another program
  QDateTime at;     ///< local
  QString problem;  ///< why it cannot be read now; empty when it can
  QStringList changes;
  bool isGone = false;   ///< the file was deleted
  bool isKnown = false;  ///< `changes` are what it changed; else how it differs from the edit here
};

/// The window's way to the host thread: actions go there as tasks, answers come back as signals.
/// Never waits. Lives on the window's thread.
class HostLink : public QObject {
  Q_OBJECT

 public:
  /// How long the host thread may be silent before the user is told what it does.
  static constexpr int kPatienceMs = 300;

  /// How long after a snapshot, or a look at the lists of the share, which took `cost`, the next is
  /// due; milliseconds.
  static qint64 pauseAfter(qint64 cost);
  static qint64 pauseBetweenLists(qint64 cost);

  HostLink(iStationWindow::Dependencies surroundings, EventFeed& feed);
  ~HostLink() override;

  /// Told how a command ended, after finished(); on the window's thread.
  using Ended = std::function<void(const CommandOutcome& outcome)>;

  /// Runs a line as the console would; finished() follows.
  void run(const QString& line, const Ended& then = {});

  /// Runs lines one after another, and stops at the first that fails; `then` is told once, how the
  /// last one ended that was run.
  void runAll(const QStringList& lines, const Ended& then);

  /// Asks the station for its edits with unsaved changes.
  void askUnsaved(const std::function<void(const std::vector<UnsavedEdit>& unsaved)>& then);

  /// Asks what another did to an edit's file since it was opened here; nothing where that cannot be
  /// told.
  void askOtherSave(const QString& cookie,
                    const std::function<void(const std::optional<OtherSave>& other)>& then);

  /// Asks who has these objects open at other stations: "open at BEN, unsaved" by cookie.
  void askOpeners(const QStringList& cookies,
                  const std::function<void(const QHash<QString, QString>& openers)>& then);

  /// Asks whether there is reason to doubt a line before it is run, such as a name that another has
  /// already: what the user is to be asked; empty for nothing.
  void askDoubt(const QString& line, const std::function<void(const QString& doubt)>& then);

  /// Asks who deleted an object; an empty name where that is not known.
  void askDeleter(const QString& cookie, const std::function<void(const QString& user)>& then);

  /// Has the open project's trash listed; trashReady() follows.
  void askTrash();

  /// Has an edit's timeline drawn up; timelineReady() follows.
  void askTimeline(const QString& cookie);

  /// Has a version of it drawn up instead, with what became of it since; timelineReady() follows.
  void askVersion(const QString& cookie, const QString& version);

  /// Has an edit's versions listed; versionsReady() follows.
  void askVersions(const QString& cookie);

  /// Asks whether the local user may modify these edits and logs; mayReady() follows.
  void askMay(const QStringList& cookies);

  /// Asks whether the names that the station was started with keep messages away: what to do about
  /// it, empty for nothing.
  void askAdviceOnNames(const std::function<void(const QString& advice)>& then);

  /// Asks for all that was said before; what is said afterwards is news.
  void askConversation(const std::function<void(const std::vector<SaidLine>& said)>& then);

  /// Asks for what happened in the open project, the latest first, and for the first number of its
  /// happenings; what happens afterwards is news.
  using Happened = std::function<void(const std::vector<HappenedLine>& happened, long first)>;
  void askHappened(const Happened& then);

  /// Puts tools back onto the desktop as soon as there is one, before the first snapshot.
  void putBackOnceReady(const KeptTools& tools) { toPutBack_ = tools; }

  /// Has the next snapshot read everything anew.
  void lookAgain();

  [[nodiscard]] const CommandTable& commands() const { return with_.commands; }
  void askForEnd() { with_.askForEnd(); }
  [[nodiscard]] const Options& options() const { return with_.options; }

 Q_SIGNALS:
  void finished(const CommandOutcome& outcome);
  void snapshotReady(const SnapshotPtr& snapshot);
  void newsReady(const News& news);
  void timelineReady(const TimelinePtr& timeline);
  void versionsReady(const VersionsPtr& versions);
  void trashReady(const TrashPtr& trash);
  void mayReady(const QHash<QString, bool>& answers);

  /// The host thread does not answer and has been at `what` for this long; with an empty text it
  /// answers again.
  void busyChanged(const QString& what, int seconds);

 private:
  void tick();
  void hurry();
  void rest();
  void askSnapshot();
  void lookAtBeats();
  void askSigns();
  void look(bool isOfBeat);
  void tellBusy();

  /// Has the host thread do something; `post` for the user, who waits for what comes of it.
  void post(const std::string& activity, std::function<void()> task);
  void postQuietly(const std::string& activity, std::function<void()> task);
  void takeSnapshot(const SnapshotPtr& snapshot, qint64 cost);
  CommandOutcome outcomeOf(const QString& line);

  iStationWindow::Dependencies with_;
  EventFeed& feed_;
  SnapshotMaker maker_;  ///< the host thread's
  QTimer timer_;
  QElapsedTimer sinceNews_;  ///< or since a wish of the user's
  QElapsedTimer sinceSnapshot_;
  QElapsedTimer sinceSign_;   ///< since the host thread was last asked for a sign of life
  QElapsedTimer sinceLists_;  ///< since lists that no event tells of were looked at
  KeptTools toPutBack_;
  bool isSnapshotAsked_ = false;
  std::atomic<bool> isResting_ = false;  ///< the host thread is to look by itself
  bool isSignAsked_ = false;
  bool isBusy_ = false;
  bool isReady_ = false;
  qint64 snapshotPauseMs_ = 0;
  std::atomic<qint64> listsPauseMs_ = 0;
};

}  // namespace korvel
