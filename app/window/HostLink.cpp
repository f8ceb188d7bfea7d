#include "app/window/HostLink.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "app/commands/Command.h"
#include "app/window/ActionTable.h"
#include "app/window/Texts.h"
#include "app/window/Timeline.h"
#include "station/Trash.h"
#include "station/base/HostThread.h"
#include "station/base/Json.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/edit/EditActions.h"
#include "station/edit/EditHistory.h"
#include "station/edit/Edits.h"
#include "station/talk/Conversation.h"
#include "station/ui/Desktop.h"
#include "station/watch/FolderWatch.h"
#include "station/watch/Happenings.h"
#include "station/watch/Presence.h"

namespace korvel {

namespace {

constexpr int kTickMs = 100;

/// How long nothing must have happened for the window to wait for the host thread instead, which
/// looks when it wakes anyway. Where no look comes for so long, the window asks whether it hangs.
constexpr qint64 kIdleAfterMs = 1000;
constexpr int kLongestSilenceMs = 2000;

/// Snapshots take at most a fifth of the host thread's time, and lists of the share a twentieth:
/// after each, there is a pause of so many times its duration.
constexpr int kPauseFactor = 4;
constexpr int kListsPauseFactor = 20;
constexpr qint64 kListsPauseMs = 4000;

/// A look that took long was held up by the share, which is back now: what happened meanwhile must
/// not wait for a multiple of that.
constexpr qint64 kLongestPauseMs = 2000;
constexpr qint64 kLongestListsPauseMs = 15'000;

VersionRow versionRow(const JsonValue& line) {
  VersionRow row;
  row.version = readableText(line["version"].asString());
  row.time =
      QDateTime::fromString(readableText(line["time"].asString()), Qt::ISODate).toLocalTime();
  row.user = readableText(line["user"].asString());
  row.size = line["size"].asLong();
  row.changes = readableText(line["changes"].asString());
  row.problem = readableText(line["problem"].asString());
  row.isNow = line["now"].asBool();
  return row;
}

TrashRow trashRow(const JsonValue& line) {
  const auto text = [&line](const char* key) { return readableText(line[key].asString()); };
  return {text("cookie") + QLatin1Char('.') + text("deletion"),
          text("name"),
          text("kind"),
          text("owner"),
          QDateTime::fromString(text("deleted"), Qt::ISODate).toLocalTime(),
          text("by"),
          line["size"].asLong(),
          text("problem")};
}

OtherSave otherSave(const EditHistory::OtherVersion& found) {
  OtherSave other;
  other.isKnown = found.isKnown;
  for (const std::string& each : found.changes) other.changes.append(readableText(each));
  other.isGone = found.isGone;
  other.problem = readableText(found.problem);
  other.by = readableText(shownText(found.by));
  other.at = QDateTime::fromString(readableText(found.at), Qt::ISODate).toLocalTime();
  return other;
}

VersionsPtr versionsOf(const QString& cookie) {
  auto versions = std::make_shared<EditVersions>();
  versions->cookie = cookie;
  const auto list = EditHistory::list(Cookie(cookie.toStdString().c_str(), false));
  if (!list) {
    versions->problem = shownError(list.error());
  } else {
    for (const JsonValue& line : list->elements()) versions->rows.push_back(versionRow(line));
  }
  return versions;
}

}  // namespace

HostLink::HostLink(iStationWindow::Dependencies surroundings, EventFeed& feed)
    : with_(std::move(surroundings)), feed_(feed), maker_(with_.station) {
  connect(&timer_, &QTimer::timeout, this, &HostLink::tick);
  sinceSnapshot_.start();
  sinceLists_.start();
  sinceSign_.start();
  listsPauseMs_ = kListsPauseMs;
  sinceNews_.start();
  timer_.start(kTickMs);
  lookAtBeats();
  feed_.wakeBy([this] { QMetaObject::invokeMethod(this, &HostLink::hurry, Qt::QueuedConnection); });
}

HostLink::~HostLink() { feed_.wakeBy({}); }

/// Something happened: looks at it a tick from now, and goes on looking for a while.
void HostLink::hurry() {
  sinceNews_.restart();
  isResting_ = false;
  if (timer_.interval() != kTickMs) timer_.start(kTickMs);
}

/// Leaves the next look to the host thread where nothing happens and nothing is awaited.
void HostLink::rest() {
  const bool isIdle = isReady_ && sinceNews_.elapsed() > kIdleAfterMs && !isSnapshotAsked_ &&
                      !isSignAsked_ && !isBusy_ && !feed_.hasChanges();
  isResting_ = isIdle;
  if (isIdle) {
    timer_.start(static_cast<int>(listsPauseMs_) + kLongestSilenceMs);
  } else if (timer_.interval() != kTickMs) {
    timer_.start(kTickMs);
  }
}

void HostLink::post(const std::string& activity, std::function<void()> task) {
  hurry();
  postQuietly(activity, std::move(task));
}

void HostLink::postQuietly(const std::string& activity, std::function<void()> task) {
  with_.station.hostThread().post([activity, task = std::move(task)] {
    const ActivityScope scope(activity);
    task();
  });
}

// Polls instead of being called for each event: a flood of messages then costs the window no more
// than one update a tick.
void HostLink::tick() {
  const News news = feed_.takeNews();
  isReady_ = news.station.isReady;
  Q_EMIT newsReady(news);
  // Locks and projects change on the share without any message, so their lists are read from time
  // to time.
  if (isReady_ && sinceLists_.elapsed() > listsPauseMs_ && !isBusy_) {
    sinceLists_.restart();
    feed_.noteDue();
  }
  askSnapshot();
  askSigns();
  tellBusy();
  rest();
}

void HostLink::askSnapshot() {
  const bool isDue = sinceSnapshot_.elapsed() >= snapshotPauseMs_ && feed_.hasChanges();
  if (!isReady_ || isSnapshotAsked_ || !isDue) return;
  // One at a time: a slow share must not fill the host thread's queue.
  isSnapshotAsked_ = true;
  postQuietly("a look at the project", [this, tools = std::exchange(toPutBack_, {})] {
    putBack(tools, with_.station.desktop());
    look(false);
  });
}

/// On the host thread, at a beat, when it wakes for other things, too: looks by itself while the
/// window rests.
void HostLink::lookAtBeats() {
  const auto delay = untilNextBeat(std::chrono::milliseconds(listsPauseMs_));
  with_.station.hostThread().postAfter(delay, [this] {
    if (isResting_) {
      const ActivityScope scope("a look at the project");
      feed_.noteDue();
      look(true);
    }
    lookAtBeats();
  });
}

/// On the host thread.
void HostLink::look(bool isOfBeat) {
  QElapsedTimer cost;
  cost.start();
  const Changes changes = feed_.takeChanges();
  const SnapshotPtr snapshot = maker_.make(changes);
  const qint64 took = cost.elapsed();
  const bool hadLists = changes.all || changes.projects;
  // Qt runs this on the window's thread: widgets may be used there only.
  QMetaObject::invokeMethod(this, [this, snapshot, took, hadLists, isOfBeat] {
    if (hadLists) sinceLists_.restart();
    if (hadLists) listsPauseMs_ = pauseBetweenLists(took);
    if (!isOfBeat) isSnapshotAsked_ = false;
    takeSnapshot(snapshot, took);
  });
}

qint64 HostLink::pauseAfter(qint64 cost) { return std::min(kPauseFactor * cost, kLongestPauseMs); }

qint64 HostLink::pauseBetweenLists(qint64 cost) {
  return std::clamp(kListsPauseFactor * cost, kListsPauseMs, kLongestListsPauseMs);
}

void HostLink::takeSnapshot(const SnapshotPtr& snapshot, qint64 cost) {
  snapshotPauseMs_ = pauseAfter(cost);
  sinceSnapshot_.restart();
  Q_EMIT snapshotReady(snapshot);
  rest();
}

// An empty task that comes back late shows that the host thread is busy or hangs.
void HostLink::askSigns() {
  if (isSignAsked_) return;
  isSignAsked_ = true;
  sinceSign_.restart();
  with_.station.hostThread().post([this] {
    QMetaObject::invokeMethod(this, [this] {
      isSignAsked_ = false;
      rest();
    });
  });
}

void HostLink::tellBusy() {
  const bool isSilent = isSignAsked_ && sinceSign_.elapsed() > kPatienceMs;
  if (!isSilent) {
    if (std::exchange(isBusy_, false)) Q_EMIT busyChanged({}, 0);
    return;
  }
  isBusy_ = true;
  const Activity activity = currentActivity();
  const QString what =
      activity.what.empty() ? tr("its other work") : inWindowWords(readableText(activity.what));
  Q_EMIT busyChanged(what, static_cast<int>(sinceSign_.elapsed() / 1000));
}

CommandOutcome HostLink::outcomeOf(const QString& line) {
  const CommandCall call = readCall(with_.commands, line.toStdString());
  CommandOutcome outcome;
  outcome.line = line;
  if (call.command) outcome.command = readableText(call.command->name);
  if (call.problem || !call.command) {
    outcome.text = call.problem ? shownError(*call.problem) : QString();
    outcome.code = ErrorCode::eUsage;
    return outcome;
  }
  const auto result = runCall(with_.station, call);
  // Not every command causes an event, so its name tells what to read again.
  feed_.noteCommand(call.command->name);
  outcome.succeeded = static_cast<bool>(result);
  outcome.result = result ? *result : JsonValue();
  if (!result) outcome.code = result.error().code;
  outcome.text = result ? readableText(renderForPeople(withShortCookies(*result)))
                        : shownError(result.error());
  return outcome;
}

void HostLink::run(const QString& line, const Ended& then) {
  const auto tell = [this, then](const CommandOutcome& outcome) {
    Q_EMIT finished(outcome);
    if (then) then(outcome);
  };
  const CommandCall call = readCall(with_.commands, line.toStdString());
  // Commands of the console's thread wait for events. There is no such thread for the window.
  if (call.command && !call.problem && call.command->place == Command::Place::eConsoleThread &&
      call.command->name != "help" && call.command->name != "quit") {
    CommandOutcome refused;
    refused.line = line;
    refused.command = readableText(call.command->name);
    refused.code = ErrorCode::eRefused;
    refused.text = tr("\"%1\" is for scripts: the window would stand still.").arg(refused.command);
    return tell(refused);
  }
  post("the command \"" + line.toStdString() + "\"", [this, line, tell] {
    const CommandOutcome outcome = outcomeOf(line);
    QMetaObject::invokeMethod(this, [outcome, tell] { tell(outcome); });
  });
}

void HostLink::runAll(const QStringList& lines, const Ended& then) {
  if (lines.isEmpty()) return;
  run(lines.front(), [this, rest = lines.mid(1), then](const CommandOutcome& outcome) {
    // Stops at the first failure: later lines may depend on earlier ones, as leaving depends on
    // saving.
    outcome.succeeded && !rest.isEmpty() ? runAll(rest, then) : then(outcome);
  });
}

// Asked anew, not taken from the snapshot, which may be some commands old.
void HostLink::askUnsaved(const std::function<void(const std::vector<UnsavedEdit>&)>& then) {
  post("looking for what is not saved", [this, then] {
    std::vector<UnsavedEdit> unsaved;
    for (const NamedObject& edit : with_.station.edits().unsaved()) {
      unsaved.push_back(
          {readableText(edit.cookie.asString().str()), readableText(shownText(edit.name))});
    }
    QMetaObject::invokeMethod(this, [then, unsaved] { then(unsaved); });
  });
}

void HostLink::askOtherSave(const QString& cookie,
                            const std::function<void(const std::optional<OtherSave>&)>& then) {
  post("looking at what another saved", [this, cookie, then] {
    const auto found = EditHistory::otherVersion(Cookie(cookie.toStdString().c_str(), false));
    const auto other = found ? std::optional(otherSave(*found)) : std::nullopt;
    QMetaObject::invokeMethod(this, [then, other] { then(other); });
  });
}

void HostLink::askOpeners(const QStringList& cookies,
                          const std::function<void(const QHash<QString, QString>&)>& then) {
  post("looking who has something open", [this, cookies, then] {
    QHash<QString, QString> openers;
    for (const QString& cookie : cookies) {
      const Cookie object(cookie.toStdString().c_str(), false);
      QStringList users;
      for (const auto& each : with_.station.presence().openersOf(object)) {
        const QString user = oneLine(readableText(shownText(each.user)));
        users << (each.isUnsaved ? tr("%1 with unsaved changes").arg(user) : user);
      }
      if (!users.isEmpty()) openers[cookie] = listed(users);
    }
    QMetaObject::invokeMethod(this, [then, openers] { then(openers); });
  });
}

void HostLink::askDoubt(const QString& line, const std::function<void(const QString&)>& then) {
  post("looking for namesakes", [this, line, then] {
    const CommandCall call = readCall(with_.commands, line.toStdString());
    QString doubt;
    if (call.command && !call.problem && call.command->doubt) {
      doubt = readableText(call.command->doubt(with_.station, call.arguments));
    }
    QMetaObject::invokeMethod(this, [then, doubt] { then(doubt); });
  });
}

void HostLink::askDeleter(const QString& cookie, const std::function<void(const QString&)>& then) {
  post("looking who deleted an edit", [this, cookie, then] {
    QString user;
    const auto trash = with_.station.trash().list();
    for (const JsonValue& each : trash ? trash->elements() : std::vector<JsonValue>()) {
      if (readableText(each["cookie"].asString()) != cookie) continue;
      user = readableText(each["by"].asString());
      break;
    }
    QMetaObject::invokeMethod(this, [then, user] { then(user); });
  });
}

void HostLink::askTrash() {
  post("listing the trash", [this] {
    auto content = std::make_shared<TrashContent>();
    const auto list = with_.station.trash().list();
    if (!list) content->problem = shownError(list.error());
    for (const JsonValue& each : list ? list->elements() : std::vector<JsonValue>()) {
      content->rows.push_back(trashRow(each));
    }
    QMetaObject::invokeMethod(this, [this, content] { Q_EMIT trashReady(content); });
  });
}

void HostLink::askTimeline(const QString& cookie) {
  post("reading an edit's file", [this, cookie] {
    const TimelinePtr timeline = makeTimeline(with_.station, cookie);
    QMetaObject::invokeMethod(this, [this, timeline] { Q_EMIT timelineReady(timeline); });
  });
}

void HostLink::askVersion(const QString& cookie, const QString& version) {
  post("reading a version of an edit", [this, cookie, version] {
    const TimelinePtr timeline = makeTimelineOf(with_.station, cookie, version);
    QMetaObject::invokeMethod(this, [this, timeline] { Q_EMIT timelineReady(timeline); });
  });
}

void HostLink::askVersions(const QString& cookie) {
  post("listing the versions of an edit", [this, cookie] {
    const VersionsPtr versions = versionsOf(cookie);
    QMetaObject::invokeMethod(this, [this, versions] { Q_EMIT versionsReady(versions); });
  });
}

void HostLink::askMay(const QStringList& cookies) {
  post("asking the rules who may change what", [this, cookies] {
    QHash<QString, bool> answers;
    for (const QString& cookie : cookies) {
      answers[cookie] = EditActions::isAllowed(Cookie(cookie.toStdString().c_str(), false));
    }
    QMetaObject::invokeMethod(this, [this, answers] { Q_EMIT mayReady(answers); });
  });
}

void HostLink::askAdviceOnNames(const std::function<void(const QString&)>& then) {
  post("a look at the list of users", [this, then] {
    const QString advice = readableText(Station::adviceOnNames());
    QMetaObject::invokeMethod(this, [then, advice] { then(advice); });
  });
}

void HostLink::askConversation(const std::function<void(const std::vector<SaidLine>&)>& then) {
  post("reading what was said", [this, then] {
    std::vector<SaidLine> said;
    const JsonValue list = with_.station.conversation().listed({});
    for (const JsonValue& each : list.elements()) said.push_back(saidLine(each));
    feed_.followSaid();
    QMetaObject::invokeMethod(this, [then, said] { then(said); });
  });
}

void HostLink::askHappened(const Happened& then) {
  post("reading what happened", [this, then] {
    std::vector<HappenedLine> happened;
    const Happenings& happenings = with_.station.happenings();
    const JsonValue list = happenings.list({});
    const QString user = readableText(shownText(settings().user));
    for (const JsonValue& each : list.elements()) happened.push_back(happenedLine(each, user));
    const long first = happenings.firstId();
    QMetaObject::invokeMethod(this, [then, happened, first] { then(happened, first); });
  });
}

void HostLink::lookAgain() { feed_.noteCommand("project enter"); }

}  // namespace korvel
