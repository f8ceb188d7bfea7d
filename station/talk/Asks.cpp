#include "station/talk/Asks.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <tuple>
#include <utility>

#include "host/base/Log.h"
#include "host/base/Text.h"
#include "host/net/iNetworkService.h"
#include "host/os/OS.h"
#include "host/project/ProjectSpacesManager.h"
#include "host/project/iProjectShare.h"
#include "station/base/Events.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/edit/EditActions.h"
#include "station/edit/Edits.h"
#include "station/edit/UnsavedEdits.h"
#include "station/project/Names.h"
#include "station/project/Projects.h"
#include "station/project/Rooms.h"
#include "station/talk/Conversation.h"
#include "station/watch/FolderWatch.h"
#include "station/watch/Presence.h"

namespace korvel {

namespace {

/// How often what this station waits for is looked at.
constexpr std::chrono::milliseconds kBetweenLooks(2000);

/// A note is written within a second, and looked at every five.
constexpr std::chrono::seconds kLongestUntilNoted(20);

/// Of settled asks so many are remembered, so that a late copy is not taken for a new one.
constexpr std::size_t kMostAnswered = 4096;

bool isDocument(const std::string& kind) {
  return kind == AskWords::kEdit || kind == AskWords::kLog;
}

/// A lock that cannot be looked at may be held.
bool isFreeNow(LockState state) {
  return state == LockState::eFree || state == LockState::eLeftBehind;
}

Error nothingHeld(const std::string& object) {
  return {ErrorCode::eNotFound,
          "There is no edit, room or private project called " + inQuotes(object) +
              " that another could give you.",
          {}};
}

Error holderUnknown(const NotedAsk& held) {
  return {ErrorCode::eHeld,
          "Another station holds " + titleOf(held) +
              ", and whose it is cannot be read. Try again in a moment.",
          {}};
}

Error askedOfSeveral(const std::string& object, const std::vector<NotedAsk>& found) {
  std::string several;
  for (const NotedAsk& each : found) {
    several += (several.empty() ? "" : ", ") + titleOf(each) +
               (each.kind == AskWords::kRoom ? std::string() : " (" + each.object + ")");
  }
  return {ErrorCode::eUsage,
          inQuotes(object) + " may be " + several + ". Name an edit or project by its cookie.",
          {}};
}

Result<void> checkText(const std::string& text) {
  if (text.size() <= AskWords::kLongestText) return {};
  return Error{ErrorCode::eUsage,
               "The text has " + std::to_string(text.size()) + " bytes; one beside an ask has " +
                   std::to_string(AskWords::kLongestText) +
                   " at most. Make it shorter, and write the rest as a message.",
               {}};
}

}  // namespace

Asks::Asks(const Parts& parts) : parts_(parts) { takeUpEarlier(); }

Asks::~Asks() = default;

/// What was asked before this station ended last and has no answer yet, and what was answered: the
/// asker may not have been there.
void Asks::takeUpEarlier() {
  const std::int64_t oldest = std::time(nullptr) - kLongestWait;
  for (const Said& said : parts_.conversation.all()) {
    if (said.ask.empty()) continue;
    std::erase_if(outgoing_, [&](const Outgoing& own) { return own.ask.id == said.ask; });
    if (said.kind == Said::Kind::eAnswer) settle(said.ask);
    if (!said.isOwn || said.when < oldest || !said.detail.isObject()) continue;
    if (said.kind == Said::Kind::eAsk) takeUpAsk(notedAsk(said.detail));
    if (said.kind == Said::Kind::eAnswer) keepAnswer({notedAnswer(said.detail), {}});
  }
  if (!outgoing_.empty()) watchSoon();
}

void Asks::takeUpAsk(NotedAsk ask) {
  if (!isSound(ask)) return;
  dropOwnFor(ask);
  if (outgoing_.size() < kMostOfOne) outgoing_.push_back({std::move(ask), ++lastNumber_});
}

/// Asked again for the same object, the user means the last ask.
void Asks::dropOwnFor(const NotedAsk& ask) {
  std::erase_if(outgoing_, [&](const Outgoing& own) {
    return own.ask.kind == ask.kind && own.ask.object == ask.object;
  });
}

void Asks::keepAnswer(Given answer) {
  answers_.push_back(std::move(answer));
  if (answers_.size() > kMostAnswers) answers_.erase(answers_.begin());
}

/// From now on nothing about this ask is news.
void Asks::settle(const std::string& id) {
  if (answered_.size() >= kMostAnswered) answered_.erase(answered_.begin());
  answered_.insert(id);
}

Result<JsonValue> Asks::ask(const std::string& object, const std::string& text) {
  if (auto sound = checkText(text); !sound) return sound.error();
  auto held = findHeld(object);
  if (!held) return held.error();
  dropOwnFor(*held);
  if (outgoing_.size() >= kMostOfOne) {
    return Error{ErrorCode::eRefused,
                 std::to_string(kMostOfOne) +
                     " of your asks wait already. Take one back first: \"asks\" shows them.",
                 {}};
  }
  NotedAsk ask = *held;
  ask.id = newAskId();
  ask.text = text;
  ask.when = std::time(nullptr);
  outgoing_.push_back({ask, ++lastNumber_});
  const std::string& user = settings().user;
  send(ask.to, AskWords::What::eAsk, ask);
  parts_.presence.showSoon();
  parts_.conversation.add({ask.when, Said::Kind::eAsk, user, ask.to,
                           wordsWithoutToken(user, AskWords::What::eAsk, ask), ask.id, jsonOf(ask),
                           true});
  watchSoon();
  JsonValue shown = shownAsk(ask, lastNumber_, user, true);
  shown.set("here", parts_.presence.lookFor(ask.to).has_value());
  return shown;
}

JsonValue Asks::list() const {
  std::vector<std::pair<long, JsonValue>> all;
  for (const Incoming& each : incoming_) {
    JsonValue shown = shownAsk(each.ask, each.number, each.from, false);
    if (each.isUnverified) shown.set("unverified", true);
    all.emplace_back(each.number, std::move(shown));
  }
  for (const Outgoing& each : outgoing_) {
    all.emplace_back(each.number, shownAsk(each.ask, each.number, settings().user, true));
  }
  std::ranges::sort(all, {}, &std::pair<long, JsonValue>::first);
  JsonValue list = JsonValue::array();
  for (auto& [number, shown] : all) list.append(std::move(shown));
  return list;
}

Result<JsonValue> Asks::answer(long number, Answer answer, const std::string& text) {
  if (auto sound = checkText(text); !sound) return sound.error();
  const auto own = std::ranges::find(outgoing_, number, &Outgoing::number);
  if (own != outgoing_.end() && answer == Answer::eKeep) return withdraw(own);
  const auto ask = std::ranges::find(incoming_, number, &Incoming::number);
  if (ask != incoming_.end()) return answerIncoming(ask, answer, text);
  return Error{ErrorCode::eNotFound,
               own == outgoing_.end()
                   ? "No ask has the number " + std::to_string(number) +
                         " now: it was answered or taken back, or there was none. \"asks\" shows "
                         "those that wait."
                   : "You cannot give yourself what another has. \"no\" takes your ask back.",
               {}};
}

Result<JsonValue> Asks::withdraw(std::vector<Outgoing>::iterator own) {
  NotedAsk ask = own->ask;
  outgoing_.erase(own);
  settle(ask.id);
  ask.text.clear();
  send(ask.to, AskWords::What::eWithdrawn, ask);
  parts_.presence.showSoon();
  parts_.conversation.add({0,
                           Said::Kind::eAnswer,
                           settings().user,
                           ask.to,
                           "You took your ask for " + titleOf(ask) + " back.",
                           ask.id,
                           {},
                           true});
  return JsonValue::object({{"own", true}});
}

Result<JsonValue> Asks::answerIncoming(std::vector<Incoming>::iterator ask, Answer answer,
                                       const std::string& text) {
  const bool isGiven = answer == Answer::eGive;
  Incoming done = *ask;
  if (isGiven) {
    if (auto given = handOver(done); !given) return given.error();
  }
  std::erase_if(incoming_, [&](const Incoming& each) { return each.number == done.number; });
  settle(done.ask.id);
  done.ask.text = text;
  const auto what = isGiven ? AskWords::What::eGiven : AskWords::What::eKept;
  const std::string& user = settings().user;
  const NotedAnswer noted{done.ask.id, done.from, isGiven, text};
  keepAnswer({noted, done.note});
  send(done.from, what, done.ask);
  parts_.presence.showSoon();
  parts_.conversation.add({0, Said::Kind::eAnswer, user, done.from,
                           wordsWithoutToken(user, what, done.ask), done.ask.id, jsonOf(noted),
                           true});
  return JsonValue::object({{"own", false}});
}

Result<void> Asks::handOver(const Incoming& ask) {
  if (isDocument(ask.ask.kind)) return giveEdit(ask);
  return ask.ask.kind == AskWords::kRoom ? leaveRoom(ask.ask) : leaveProject(ask.ask);
}

Result<void> Asks::giveEdit(const Incoming& ask) {
  const Cookie edit(ask.ask.object.c_str(), false);
  if (edit.isNull() || !parts_.edits.holds(edit)) {
    return Error{ErrorCode::eNotFound,
                 "The open project does not hold " + titleOf(ask.ask) +
                     ". Enter the project that does, and answer there.",
                 {}};
  }
  using EditActions::Recipient;
  // Freshly: who has just come is not known otherwise. Owners have the names of hosts. Of several
  // stations of one user the one whose note has the ask is meant.
  auto asker = parts_.presence.lookFor(ask.from);
  for (const FoundStation& each : parts_.presence.known()) {
    const bool hasAsked = !ask.note.empty() && each.note.id == ask.note && each.isAlive();
    if (asker && hasAsked && each.note.user == ask.from) asker = each.note;
  }
  const auto given = EditActions::give(edit, upperCased(asker ? asker->host : ask.from),
                                       asker ? Recipient::ePresent : Recipient::eKnownUser);
  if (given) return {};
  if (asker || given.error().code != ErrorCode::eNotFound) return given.error();
  return Error{
      ErrorCode::eNotFound,
      inQuotes(ask.from) +
          " is not here now and in no user list, so perhaps nobody could change it "
          "afterwards. The ask waits; \"edit give\" with \"--force\" gives it all the same.",
      {}};
}

Result<void> Asks::leaveRoom(const NotedAsk& ask) {
  const std::string room = roomOf(ask);
  const OpenProject* const open = parts_.projects.current();
  const bool isThere = open && open->cookie.asString().str() == ask.project;
  if (isThere && !room.empty() && parts_.rooms.current() == room) return parts_.rooms.goOut();
  return Error{ErrorCode::eNotFound,
               "You are not in the room " + inQuotes(ask.name) +
                   " now: it can be had without you. \"no\" settles the ask.",
               {}};
}

Result<void> Asks::leaveProject(const NotedAsk& ask) {
  const OpenProject* const open = parts_.projects.current();
  if (!open || open->cookie.asString().str() != ask.object) {
    return Error{
        ErrorCode::eNotFound, "The project " + inQuotes(ask.name) + " is not open here now.", {}};
  }
  if (auto settled = parts_.unsaved.prepareToLeave(Leaving::eSave); !settled) return settled;
  auto left = parts_.projects.leave();
  if (!left) parts_.unsaved.stay();
  return left;
}

Result<JsonValue> Asks::tellWhenFree(const std::string& object) {
  const auto held = findHeld(object);
  if (!held) return held.error();
  std::erase_if(awaited_, [&](const NotedAsk& each) {
    return each.kind == held->kind && each.object == held->object;
  });
  if (awaited_.size() >= kMostOfOne) {
    LogBoth("It is no longer awaited that %s is free: more than %d things are not.\n",
            titleOf(awaited_.front()), static_cast<int>(kMostOfOne));
    awaited_.erase(awaited_.begin());
  }
  awaited_.push_back(*held);
  watchSoon();
  return JsonValue::object({{"kind", held->kind}, {"name", held->name}, {"holder", held->to}});
}

// What others hold.

Result<NotedAsk> Asks::findHeld(const std::string& object) const {
  std::vector<NotedAsk> found;
  bool isKnown = false;
  findEdit(object, found, isKnown);
  findRoom(object, found, isKnown);
  findProject(object, found, isKnown);
  if (found.size() == 1) {
    if (found.front().to.empty()) return holderUnknown(found.front());
    found.front().to = userOf(found.front().to);
    return found.front();
  }
  if (!found.empty()) return askedOfSeveral(object, found);
  if (!isKnown) return nothingHeld(object);
  return Error{ErrorCode::eUsage,
               "Nobody else holds " + inQuotes(object) + ": you can have it without asking.",
               {}};
}

void Asks::findEdit(const std::string& object, std::vector<NotedAsk>& found, bool& isKnown) const {
  const OpenProject* const open = parts_.projects.current();
  if (!open) return;
  const auto cookie = parts_.projects.resolve(object, Edits::kKinds);
  if (!cookie) return;
  isKnown = true;
  const std::string owner = parts_.edits.ownerOf(*cookie);
  if (owner.empty() || EditActions::isAllowed(*cookie)) return;
  found.push_back({{},
                   owner,
                   Edits::kindText(*cookie),
                   cookie->asString().str(),
                   shortName(parts_.edits.nameOf(*cookie)),
                   open->cookie.asString().str(),
                   {},
                   0});
}

void Asks::findRoom(const std::string& object, std::vector<NotedAsk>& found, bool& isKnown) const {
  const OpenProject* const open = parts_.projects.current();
  if (!open || open->isPrivate) return;
  const auto rooms = parts_.rooms.list();
  if (!rooms) return;
  const auto room = std::ranges::find(*rooms, object, &RoomInfo::name);
  if (room == rooms->end()) return;
  isKnown = true;
  if (room->isHere || room->state != LockState::eHeld) return;
  found.push_back({{},
                   room->holder,
                   AskWords::kRoom,
                   hexText(object),
                   shortName(object),
                   open->cookie.asString().str(),
                   {},
                   0});
}

void Asks::findProject(const std::string& object, std::vector<NotedAsk>& found,
                       bool& isKnown) const {
  const auto projects = parts_.projects.list();
  if (!projects) return;
  for (const ProjectInfo& each : *projects) {
    const std::string cookie = each.cookie.asString().str();
    if (object != each.name && object != cookie) continue;
    isKnown = true;
    const OpenProject* const open = parts_.projects.current();
    const bool isOpen = open && open->cookie.asString().str() == cookie;
    if (isOpen || each.lock != LockState::eHeld) continue;
    found.push_back(
        {{}, each.lockOwner, AskWords::kProject, cookie, shortName(each.name), cookie, {}, 0});
  }
}

/// The user to whom words for a holder are sent: edits have owners of the names of hosts.
std::string Asks::userOf(const std::string& holder) const {
  for (const FoundStation& each : parts_.presence.known()) {
    const StationNote& note = each.note;
    if (note.user == holder || upperCased(note.host) == holder) return note.user;
  }
  return holder;
}

bool Asks::isMe(const std::string& name) const {
  const std::string upper = upperCased(name);
  return upper == upperCased(settings().user) || upper == upperCased(settings().host);
}

// What comes.

void Asks::noteDelivered(const ReceivedMessage& message) {
  if (!isForThisUser(message.fields)) return;
  auto read = readAskWords(message.fields.data);
  if (!read) return;
  const std::string& from = message.fields.source;
  if (from.empty() || from.size() > kLongestUserName) return;
  if (read->what == AskWords::What::eWithdrawn) {
    return dropIncoming(
        [&](const Incoming& each) { return each.ask.id == read->ask.id && each.from == from; });
  }
  if (read->what != AskWords::What::eAsk) {
    return takeAnswer(read->ask.id, read->what == AskWords::What::eGiven, from, read->ask.text,
                      message.isUnverified);
  }
  read->ask.to = settings().user;
  read->ask.project = message.fields.project;
  read->ask.when = std::time(nullptr);
  takeAsk({std::move(read->ask), 0, from, {}, message.isUnverified});
}

void Asks::noteStation(const StationNote& note) {
  if (note.user == settings().user && note.host == settings().host) return;
  withdrawMissing(note);
  for (const NotedAsk& each : note.asks) {
    if (isMe(each.to) && isSound(each)) takeAsk({each, 0, note.user, note.id, false});
  }
  for (const NotedAnswer& each : note.answers) {
    if (isMe(each.to)) takeAnswer(each.ask, each.isGiven, note.user, each.text, false);
  }
}

bool Asks::knows(const std::string& id) const {
  return answered_.contains(id) ||
         std::ranges::any_of(answers_, [&](const Given& each) { return each.answer.ask == id; }) ||
         std::ranges::any_of(incoming_, [&](const Incoming& each) { return each.ask.id == id; });
}

void Asks::takeAsk(Incoming ask) {
  const auto known = std::ranges::find_if(
      incoming_, [&](const Incoming& each) { return each.ask.id == ask.ask.id; });
  // Of the same ask alone: any station can write any identifier into its note.
  const bool isTheSame = known != incoming_.end() && known->from == ask.from &&
                         known->ask.kind == ask.ask.kind && known->ask.object == ask.ask.object;
  if (isTheSame && !ask.note.empty()) {
    // The note has the text whole, also what messages cannot carry.
    known->note = ask.note;
    known->ask.text = ask.ask.text;
  }
  for (Given& each : answers_) {
    const bool isOf = each.answer.ask == ask.ask.id && each.answer.to == ask.from;
    if (isOf && !ask.note.empty()) each.note = ask.note;
  }
  if (knows(ask.ask.id)) return;
  // Asked again for the same, he means the last.
  dropIncoming([&](const Incoming& each) {
    return each.from == ask.from && each.ask.kind == ask.ask.kind &&
           each.ask.object == ask.ask.object;
  });
  makeRoom();
  const auto waiting = std::ranges::count(incoming_, ask.from, &Incoming::from);
  if (static_cast<std::size_t>(waiting) >= kMostOfOne || incoming_.size() >= kMostIncoming) {
    const bool isNew = more_.size() < kMostIncoming && more_.insert(ask.from).second;
    if (isNew) {
      LogBoth("%s asks for very much: further asks are not shown until some are answered.\n",
              shownText(ask.from));
    }
    return;
  }
  more_.erase(ask.from);
  // People are asked for what they know it as, whatever the asker calls it.
  const Cookie edit(ask.ask.object.c_str(), false);
  if (isDocument(ask.ask.kind) && parts_.edits.holds(edit)) {
    ask.ask.name = shortName(parts_.edits.nameOf(edit));
  }
  ask.number = ++lastNumber_;
  const std::string words = wordsWithoutToken(ask.from, AskWords::What::eAsk, ask.ask);
  JsonValue shown = shownAsk(ask.ask, ask.number, ask.from, false);
  if (ask.isUnverified) shown.set("unverified", true);
  shown.set("words", shownText(words));
  const Said said{ask.ask.when, Said::Kind::eAsk, ask.from, settings().user, words, ask.ask.id, {},
                  false,        ask.isUnverified};
  incoming_.push_back(std::move(ask));
  events().talk("asked", shown.members());
  // A station that was restarted has it in its conversation already.
  const bool isKept = std::ranges::any_of(parts_.conversation.all(), [&](const Said& each) {
    return each.kind == Said::Kind::eAsk && each.ask == said.ask;
  });
  if (!isKept) parts_.conversation.add(said);
}

/// Of so many the oldest goes that no note has: anybody can send messages.
void Asks::makeRoom() {
  if (incoming_.size() < kMostIncoming) return;
  const auto now = std::chrono::steady_clock::now();
  const auto oldest = std::ranges::find_if(incoming_, [&](const Incoming& each) {
    return each.note.empty() && now - each.arrived > kLongestUntilNoted;
  });
  if (oldest != incoming_.end()) incoming_.erase(oldest);
}

void Asks::takeAnswer(const std::string& id, bool isGiven, const std::string& by,
                      const std::string& text, bool isUnverified) {
  const auto own =
      std::ranges::find_if(outgoing_, [&](const Outgoing& each) { return each.ask.id == id; });
  // Nobody else can answer for the colleague who was asked.
  if (own == outgoing_.end()) return;
  const auto isBy = [&by](const std::string& name) { return upperCased(name) == upperCased(by); };
  if (!isBy(own->ask.to) && !isBy(userOf(own->ask.to))) return;
  NotedAsk ask = own->ask;
  const long number = own->number;
  outgoing_.erase(own);
  settle(id);
  ask.to = settings().user;
  ask.text = text;
  const std::string words =
      wordsWithoutToken(by, isGiven ? AskWords::What::eGiven : AskWords::What::eKept, ask);
  JsonValue shown = shownAsk(ask, number, by, false);
  shown.set("answer", isGiven ? "give" : "no");
  if (isUnverified) shown.set("unverified", true);
  shown.set("words", shownText(words));
  parts_.presence.showSoon();
  events().talk("answered", shown.members());
  parts_.conversation.add(
      {0, Said::Kind::eAnswer, by, settings().user, words, id, {}, false, isUnverified});
}

template <typename IsWithdrawn>
void Asks::dropIncoming(const IsWithdrawn& isWithdrawn) {
  for (const Incoming& each : incoming_) {
    if (!isWithdrawn(each)) continue;
    settle(each.ask.id);
    JsonValue shown = shownAsk(each.ask, each.number, each.from, false);
    NotedAsk bare = each.ask;
    bare.text.clear();
    const std::string words = wordsWithoutToken(each.from, AskWords::What::eWithdrawn, bare);
    shown.set("words", shownText(words));
    events().talk("withdrawn", shown.members());
    parts_.conversation.add(
        {0, Said::Kind::eAnswer, each.from, settings().user, words, each.ask.id, {}, false});
  }
  std::erase_if(incoming_, isWithdrawn);
}

/// An ask that its asker's note had and has no more was taken back, or its answer has arrived. So
/// was one that never came into it: a message may tell of an ask that is taken back at once.
void Asks::withdrawMissing(const StationNote& note) {
  const auto isIn = [&note](const std::string& id) {
    return std::ranges::any_of(note.asks, [&](const NotedAsk& each) { return each.id == id; });
  };
  const std::size_t before = answers_.size();
  std::erase_if(answers_,
                [&](const Given& each) { return each.note == note.id && !isIn(each.answer.ask); });
  if (answers_.size() != before) parts_.presence.showSoon();
  const auto now = std::chrono::steady_clock::now();
  dropIncoming([&](const Incoming& each) {
    const bool isLate =
        each.note.empty() && each.from == note.user && now - each.arrived > kLongestUntilNoted;
    return (isLate || each.note == note.id) && !isIn(each.ask.id);
  });
}

void Asks::addTo(StationNote& note) const {
  for (const Outgoing& each : outgoing_) note.asks.push_back(each.ask);
  for (const Given& each : answers_) note.answers.push_back(each.answer);
}

void Asks::send(const std::string& to, AskWords::What what, NotedAsk ask) const {
  // The token counts the text's bytes as they travel.
  ask.text = carriedWords(ask.text);
  ask.name = carriedWords(ask.name);
  const std::string words = composeAskWords(settings().user, what, ask);
  iProjectShare* const share = iProjectShare::instance();
  const LightweightString<wchar_t> user = share ? share->getCurrentUser() : OS().currentUserName();
  const std::string text = composeUserMessage(utf8Text(get_project_cookie().asString()),
                                              utf8Text(user), to, wordsToSend(carriedWords(words)));
  OSPrivate().networkService().createUDPBroadcaster(stationPort())->broadcast(hostText(text));
}

// What this station waits for.

void Asks::watchSoon() {
  if (std::exchange(isWatching_, true)) return;
  parts_.host.postAfter(untilNextBeat(kBetweenLooks), [this, alive = std::weak_ptr<int>(alive_)] {
    if (!alive.expired()) look();
  });
}

void Asks::look() {
  isWatching_ = false;
  // A share that does not answer would hold up everything.
  const ShareAnswer answer = parts_.presence.answer();
  if (answer.isAwaited || !answer.result) return watchSoon();
  std::erase_if(awaited_, [this](const NotedAsk& each) {
    if (isGone(each)) LogBoth("Nobody waits for %s any more: it is gone.\n", titleOf(each));
    if (isFree(each)) tellFree(each);
    return isFree(each) || isGone(each);
  });
  dropNeedless();
  if (!awaited_.empty() || !outgoing_.empty()) watchSoon();
}

void Asks::tellFree(const NotedAsk& object) {
  events().talk("free", {{"kind", object.kind},
                         {"object", object.kind == AskWords::kRoom ? shownText(roomOf(object))
                                                                   : object.object},
                         {"name", shownText(object.name)},
                         {"words", "You can have " + titleOf(object) + " now."}});
}

/// Takes back what need not be asked for any more, since it came another way; an answer that is on
/// its way arrives first.
void Asks::dropNeedless() {
  const auto now = std::chrono::steady_clock::now();
  std::vector<NotedAsk> needless;
  for (Outgoing& each : outgoing_) {
    if (!isFree(each.ask)) {
      each.freeSince.reset();
    } else if (!each.freeSince) {
      each.freeSince = now;
    } else if (now - *each.freeSince > kLongestUntilNoted) {
      needless.push_back(each.ask);
    }
  }
  for (const NotedAsk& each : needless) {
    static_cast<void>(withdraw(
        std::ranges::find(outgoing_, each.id, [](const Outgoing& own) { return own.ask.id; })));
    tellFree(each);
  }
}

/// Whether it was deleted, as far as is known without asking.
bool Asks::isGone(const NotedAsk& object) const {
  const OpenProject* const open = parts_.projects.current();
  if (!open || open->cookie.asString().str() != object.project) return false;
  if (isDocument(object.kind)) return !parts_.edits.holds(Cookie(object.object.c_str(), false));
  if (object.kind != AskWords::kRoom) return false;
  const auto& rooms = parts_.rooms.known();
  return std::ranges::find(rooms, roomOf(object), &RoomInfo::name) == rooms.end();
}

bool Asks::isFree(const NotedAsk& object) const {
  if (object.kind == AskWords::kProject) {
    iProjectShare* const share = iProjectShare::instance();
    if (!share) return false;
    const Cookie project(object.object.c_str(), false);
    return isFreeNow(lookAtLock(share->getProjectLockFile(project)));
  }
  const OpenProject* const open = parts_.projects.current();
  if (!open || open->cookie.asString().str() != object.project) return false;
  if (isDocument(object.kind)) {
    const Cookie cookie(object.object.c_str(), false);
    return parts_.edits.summary(cookie) && EditActions::isAllowed(cookie);
  }
  const auto& rooms = parts_.rooms.known();
  const auto room = std::ranges::find(rooms, roomOf(object), &RoomInfo::name);
  return room != rooms.end() && isFreeNow(room->state);
}

}  // namespace korvel
