#include "app/window/EventFeed.h"

#include <utility>

#include "app/window/Texts.h"
#include "station/talk/Asks.h"

namespace korvel {

namespace {

/// Takes the place of what was known before, unlike a null text.
const QString kNotNamed = QStringLiteral("");

/// Lets the oldest of a flood go that nobody has fetched.
template <typename Line>
void bound(std::vector<Line>& lines) {
  if (lines.size() < 2 * EventFeed::kMostLines) return;
  lines.erase(lines.begin(), lines.begin() + EventFeed::kMostLines);
}

constexpr const char* kAssertion = "assertion failed";

/// The text of an event under a key. For bytes that are no text, such as a message cut within a
/// letter, their readable part.
QString eventText(const JsonValue& event, const std::string& key) {
  if (const JsonValue* text = event.find(key)) return readableText(text->asString());
  const std::string digits = event[key + "_hex"].asString();
  return readableText(QByteArray::fromHex(QByteArray::fromStdString(digits)).toStdString());
}

/// Another's words, marked where something that messages cannot carry has ended them.
QString shownWords(const QString& words, bool isCut) {
  return isCut ? WindowText::tr("%1 (cut here)").arg(words) : words;
}

/// The sender of a notification, marked if unverified.
QString senderText(const JsonValue& event) {
  const QString sender = eventText(event, "source");
  return event["unverified"].asBool() ? WindowText::tr("%1 (unverified)").arg(sender) : sender;
}

/// "EditSaved  E09a1…  to BEN  \"data\""
QString messageText(const JsonValue& event) {
  QStringList texts{readableText(event["type_name"].asString())};
  const auto add = [&texts](const QString& form, const std::string& value) {
    if (!value.empty()) texts << form.arg(readableText(value));
  };
  add(QStringLiteral("%1"), event["cookie"].asString());
  add(WindowText::tr("from %1", "the sender of a message"), event["source"].asString());
  add(WindowText::tr("to %1", "the recipient of a message"), event["target"].asString());
  add(QStringLiteral("\"%1\""), event["data"].asString());
  add(QStringLiteral("%1"), event["modification"].asString());
  return texts.join(QStringLiteral("  "));
}

}  // namespace

void EventFeed::take(const StationEvent& event) {
  // Events come on any thread and must not wait for the window: they are only noted here.
  const std::lock_guard lock(mutex_);
  wakeLocked();
  const JsonValue& value = event.value;
  if (event.name == "sent") {
    ++news_.sent;
    takeLine(LogLine::Kind::eSent, messageText(value));
  } else if (event.name == "received") {
    ++news_.received;
    takeLine(LogLine::Kind::eReceived, messageText(value));
    // A message may come from a user who is not in the list yet.
    changes_.users = true;
  } else if (event.name == "changed") {
    takeChange(value);
  } else if (event.name == "log") {
    const QString text = eventText(value, "text");
    takeLine(text.startsWith(QLatin1String(kAssertion)) ? LogLine::Kind::eAssertion
                                                        : LogLine::Kind::eText,
             text);
  } else if (event.name == "notification") {
    takeNotification(value);
  } else if (event.name == "network") {
    takeLine(LogLine::Kind::eNetwork, eventText(value, "problem"));
  } else if (event.name == "command") {
    takeLine(LogLine::Kind::eCommand,
             WindowText::tr("Another station had this one run: %1").arg(eventText(value, "name")));
  } else if (event.name == "panel") {
    changes_.panel = true;
  } else if (event.name == "reply") {
    noteCommandLocked(value["command"].asString());
  } else if (event.name == "presence") {
    changes_.users = true;
  } else if (event.name == "health") {
    news_.trouble = eventText(value, "why");
    // The share went or came back: what is listed of it is no longer true.
    changes_.projects = changes_.users = true;
  } else if (event.name == "steps") {
    changes_.families.insert("steps");
  } else if (event.name == "happened") {
    takeHappened(value);
  } else if (event.name == "ready") {
    takeReady(value);
  } else {
    takeTalk(event.name, value);
  }
}

SaidLine saidLine(const JsonValue& said) {
  const std::string& kind = said["kind"].asString();
  return {QDateTime::fromSecsSinceEpoch(said["when"].asLong()),
          kind == "ask"      ? SaidLine::Kind::eAsk
          : kind == "answer" ? SaidLine::Kind::eAnswer
                             : SaidLine::Kind::eWords,
          eventText(said, "from"),
          eventText(said, "to"),
          shownWords(eventText(said, "text"), said["cut"].asBool()),
          said["own"].asBool(),
          said["unverified"].asBool(),
          eventText(said, "ask")};
}

HappenedLine happenedLine(const JsonValue& happening, const QString& user) {
  HappenedLine line;
  line.id = happening["id"].asLong();
  line.when = QDateTime::fromSecsSinceEpoch(happening["when"].asLong());
  line.by = eventText(happening, "by");
  line.isOwn = happening["own"].asBool();
  line.what = eventText(happening, "what");
  line.cookie = eventText(happening, "cookie");
  line.name = eventText(happening, "name");
  for (const JsonValue& each : happening["deeds"].elements()) {
    const auto text = [&each](const char* key) { return readableText(each[key].asString()); };
    line.deeds.push_back({text("did"), text("clip"), text("path"), text("was"), text("to")});
    line.deeds.back().isToUser = text("to") == user;
  }
  line.more = static_cast<int>(happening["more"].asLong());
  line.isUnsaved = happening["unsaved"].asBool();
  return line;
}

QString HappenedLine::deedText(const DeedLine& deed) {
  const QString& did = deed.did;
  const QString clip = oneLine(deed.clip);
  const QString to = oneLine(deed.to);
  const auto is = [&did](const char* word) { return did == QLatin1String(word); };
  if (is("trimmed")) return tr("trimmed %1").arg(clip);
  if (is("moved")) return tr("moved %1").arg(clip);
  if (is("added")) return clip.isEmpty() ? tr("added it") : tr("added %1").arg(clip);
  if (is("removed")) return clip.isEmpty() ? tr("took it out") : tr("removed %1").arg(clip);
  if (is("clip renamed")) return tr("renamed %1 to %2").arg(clip, to);
  if (is("renamed")) return tr("renamed it to %1").arg(to);
  if (is("given") && deed.isToUser) return tr("gave it to you");
  if (is("given")) return to.isEmpty() ? tr("gave it to nobody") : tr("gave it to %1").arg(to);
  if (is("saved")) return tr("saved it");
  if (is("made")) return tr("made it");
  if (is("deleted")) return tr("deleted it");
  return is("restored") ? tr("brought it back") : tr("changed it");
}

QString HappenedLine::deedsText() const {
  QStringList texts;
  for (const DeedLine& each : deeds) texts.append(deedText(each));
  const QString text = texts.join(QStringLiteral(", "));
  return more == 0 ? text : tr("%1 and %n more", nullptr, more).arg(text);
}

bool HappenedLine::isNamed() const {
  if (deeds.empty()) return false;
  const QString& did = deeds.front().did;
  return did != QLatin1String("saved") && did != QLatin1String("changed");
}

void EventFeed::takeHappened(const JsonValue& event) {
  const HappenedLine line = happenedLine(event, news_.station.user);
  bound(news_.happened);
  news_.happened.push_back(line);
  if (line.isOwn) return;
  RemoteChanges& changes = changes_.remote[line.cookie.toStdString()];
  // Who saves what was told of before has done that, and nothing else.
  if (!line.isNamed() && changes.doer == line.by && !changes.did.isEmpty()) return;
  changes.did = line.isNamed() ? line.deedsText() : kNotNamed;
  changes.doer = line.by;
  changes.didPath = line.deeds.empty() ? QString() : line.deeds.front().path;
  if (line.what == QLatin1String("edit") || line.what == QLatin1String("log")) {
    changes_.edits.insert(line.cookie.toStdString());
  }
}

void EventFeed::takeTalk(const std::string& name, const JsonValue& event) {
  const bool isAnswer = name == "answered" || name == "free";
  if (isAnswer || name == "asked" || name == "withdrawn") changes_.families.insert("asks");
  if (name == "said" && followsSaid_) news_.said.push_back(saidLine(event));
  bound(news_.said);
  if (!isAnswer) return;
  const bool isFree = name == "free";
  const bool canOpen = isFree || event["answer"].asString() == "give";
  bound(news_.answers);
  news_.answers.push_back({eventText(event, "words"), eventText(event, "kind"),
                           eventText(event, "object"), eventText(event, "name"),
                           eventText(event, "project"), canOpen, isFree});
}

void EventFeed::wakeBy(std::function<void()> wake) {
  const std::lock_guard lock(mutex_);
  wake_ = std::move(wake);
  isAwake_ = false;
}

void EventFeed::wakeLocked() {
  if (!std::exchange(isAwake_, true) && wake_) wake_();
}

void EventFeed::followSaid() {
  const std::lock_guard lock(mutex_);
  followsSaid_ = true;
}

// What our stations read at the end of an ask is nothing for people.
void EventFeed::takeNotification(const JsonValue& event) {
  const QString text = eventText(event, "text");
  const auto asking = readAskWords(text.toStdString());
  const QString words = asking ? readableText(asking->words) : text;
  bound(news_.notifications);
  news_.notifications.push_back({QDateTime::currentDateTime(), senderText(event),
                                 shownWords(words, event["cut"].asBool()), asking.has_value()});
}

void EventFeed::takeLine(LogLine::Kind kind, const QString& text) {
  // Removes half at once: a line at a time would move all others for each new line.
  if (news_.lines.size() >= 2 * kMostLines) {
    news_.lines.erase(news_.lines.begin(), news_.lines.begin() + kMostLines);
    news_.forgottenLines += kMostLines;
  }
  news_.lines.push_back({kind, QTime::currentTime(), text});
}

void EventFeed::takeChange(const JsonValue& event) {
  const std::string& what = event["what"].asString();
  const std::string& cookie = event["cookie"].asString();
  if (what == "edit" || what == "log" || what == "permissions") {
    changes_.edits.insert(cookie);
  } else {
    changes_.families.insert(what);
    if (what == "room") changes_.projects = true;
  }
  // Only what others did is news for the user: what a message told, or was found in the folder.
  const QString by = eventText(event, "by");
  const bool isOwn = event["origin"].asString() == "local" || by == news_.station.user;
  if (!isOwn && !cookie.empty()) noteRemote(changes_.remote[cookie], event["how"].asString(), by);
}

void EventFeed::noteRemote(RemoteChanges& changes, const std::string& how, const QString& by) {
  ++changes.count;
  changes.wasMade = changes.wasMade || how == "created";
  changes.by = by;
  changes.at = QDateTime::currentDateTime();
  // What it was is told right before or after it; of another user's it was something else.
  if (changes.doer != by) {
    changes.did = kNotNamed;
    changes.doer = by;
  }
}

void EventFeed::takeReady(const JsonValue& event) {
  StationIdentity& station = news_.station;
  station.isReady = true;
  station.user = eventText(event, "user");
  station.host = eventText(event, "host");
  station.machine = static_cast<int>(event["machine"].asLong());
  station.port = static_cast<int>(event["port"].asLong());
  station.networkMode = event["network_mode"].asBool();
  station.plugin =
      eventText(event, "plugin") + QLatin1Char(' ') + eventText(event, "plugin_version");
  changes_.all = true;
}

void EventFeed::noteCommand(const std::string& name) {
  const std::lock_guard lock(mutex_);
  wakeLocked();
  noteCommandLocked(name);
}

void EventFeed::noteCommandLocked(const std::string& name) {
  const std::string family = name.substr(0, name.find(' '));
  const bool isLook = name.ends_with(" list") || name.ends_with(" show") || name.ends_with(" may");
  // These commands change nothing. Lists of projects and rooms are read again all the same: they
  // depend on other stations.
  if (isLook && family != "project" && family != "room") return;
  if (family == "panel" || family == "say") {
    changes_.panel = true;
  } else if (family == "project") {
    changes_.projects = true;
    changes_.all = changes_.all || !isLook;
  } else if (family == "room") {
    changes_.projects = true;
  } else if (family == "user") {
    changes_.users = true;
  } else if (family == "edit" || family == "log") {
    changes_.families.insert("edit");
  } else {
    changes_.families.insert(family);
  }
}

void EventFeed::noteDue() {
  const std::lock_guard lock(mutex_);
  changes_.projects = true;
  changes_.users = true;
}

News EventFeed::takeNews() {
  const std::lock_guard lock(mutex_);
  isAwake_ = false;
  News news{news_.station,
            std::exchange(news_.lines, {}),
            std::exchange(news_.notifications, {}),
            std::exchange(news_.forgottenLines, 0),
            news_.sent,
            news_.received,
            std::exchange(news_.said, {}),
            std::exchange(news_.answers, {}),
            std::exchange(news_.happened, {}),
            news_.trouble};
  return news;
}

Changes EventFeed::takeChanges() {
  const std::lock_guard lock(mutex_);
  return std::exchange(changes_, {});
}

bool EventFeed::hasChanges() const {
  const std::lock_guard lock(mutex_);
  return !changes_.isEmpty();
}

}  // namespace korvel
