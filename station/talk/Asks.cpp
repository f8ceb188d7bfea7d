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

/// The conversation takes no more than this of one colleague's asks and answers in a minute, so
/// that a flood of them pushes no words out of it.
constexpr int kMostSaidAMinute = 20;

}  // namespace

Asks::Asks(const Parts& parts)
    : parts_(parts), held_({parts.projects, parts.edits, parts.rooms, parts.presence}) {
  takeUpEarlier();
}

Asks::~Asks() = default;

/// What was asked before this station ended last and has no answer yet, and what was answered: the
/// asker may not have been there.
void Asks::takeUpEarlier() {
  const std::int64_t oldest = std::time(nullptr) - kLongestWait;
  for (const Said& said : parts_.conversation.all()) {
    if (said.ask.empty()) continue;
    std::erase_if(outgoing_, [&](const Outgoing& own) { return own.ask.id == said.ask; });
    if (said.kind == Said::Kind::eAnswer) settle(said.ask);
    if (said.kind == Said::Kind::eAnswer && !said.isOwn) heard_.add(said.ask + said.from);
    if (!said.isOwn || said.when < oldest || !said.detail.isObject()) continue;
    if (said.kind == Said::Kind::eAsk) takeUpAsk(notedAsk(said.detail));
    if (said.kind == Said::Kind::eAnswer) keepAnswer({notedAnswer(said.detail), {}});
  }
  if (!outgoing_.empty()) watchSoon();
}

void Asks::takeUpAsk(NotedAsk ask) {
  if (!isSound(ask)) return;
  lastId_ = std::max(lastId_, ask.id);
  dropOwnFor(ask);
  if (outgoing_.size() < kMostOfOne) outgoing_.push_back({std::move(ask), ++lastNumber_});
}

/// Asked again for the same object, the user means the last ask.
void Asks::dropOwnFor(const NotedAsk& ask) {
  const auto isSame = [&](const Outgoing& own) {
    return own.ask.kind == ask.kind && own.ask.object == ask.object;
  };
  for (const Outgoing& own : outgoing_) {
    if (isSame(own)) giveUp(own);
  }
  std::erase_if(outgoing_, isSame);
}

/// The answer may be on its way.
void Asks::giveUp(const Outgoing& own) {
  givenUp_.push_back(own);
  if (givenUp_.size() > kMostOfOne) givenUp_.erase(givenUp_.begin());
}

void Asks::keepAnswer(Given answer) {
  answers_.push_back(std::move(answer));
  if (answers_.size() > kMostAnswers) answers_.erase(answers_.begin());
}

void Asks::RecentIds::add(const std::string& id) {
  if (!ids_.insert(id).second) return;
  order_.push_back(id);
  if (order_.size() <= kMost) return;
  ids_.erase(order_.front());
  order_.pop_front();
}

/// From now on nothing about this ask is news.
void Asks::settle(const std::string& id) { answered_.add(id); }

void Asks::keep(const Said& said) {
  const std::int64_t oldest = std::time(nullptr) - 60;
  int before = 0;
  const auto& all = parts_.conversation.all();
  for (auto at = all.rbegin(); at != all.rend() && at->when >= oldest; ++at) {
    if (at->kind != Said::Kind::eWords && at->from == said.from) ++before;
  }
  if (before < kMostSaidAMinute) parts_.conversation.add(said);
}

Result<JsonValue> Asks::ask(const std::string& object, const std::string& text) {
  if (auto sound = checkAskText(text); !sound) return sound.error();
  auto held = held_.find(object);
  if (!held) return held.error();
  dropOwnFor(*held);
  if (outgoing_.size() >= kMostOfOne) {
    return Error{ErrorCode::eRefused,
                 std::to_string(kMostOfOne) +
                     " of your asks wait already. Take one back first: \"asks\" shows them.",
                 {}};
  }
  NotedAsk ask = *held;
  ask.id = lastId_ = newAskId(lastId_);
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
  for (const Awaited& each : awaited_) {
    JsonValue shown = shownAsk(each.object, each.number, settings().user, true);
    shown.set("awaited", true);
    all.emplace_back(each.number, std::move(shown));
  }
  std::ranges::sort(all, {}, &std::pair<long, JsonValue>::first);
  JsonValue list = JsonValue::array();
  for (auto& [number, shown] : all) list.append(std::move(shown));
  return list;
}

Result<JsonValue> Asks::answer(long number, Answer answer, const std::string& text) {
  if (auto sound = checkAskText(text); !sound) return sound.error();
  const auto own = std::ranges::find(outgoing_, number, &Outgoing::number);
  if (own != outgoing_.end() && answer == Answer::eKeep) return withdraw(own);
  const auto ask = std::ranges::find(incoming_, number, &Incoming::number);
  if (ask != incoming_.end()) return answerIncoming(ask, answer, text);
  const auto awaited = std::ranges::find(awaited_, number, &Awaited::number);
  if (awaited == awaited_.end() || answer == Answer::eGive) return whyNotAnswered(number);
  awaited_.erase(awaited);
  return JsonValue::object({{"own", true}, {"awaited", true}});
}

Error Asks::whyNotAnswered(long number) const {
  const bool isOwn = std::ranges::count(outgoing_, number, &Outgoing::number) > 0;
  const bool isAwaited = std::ranges::count(awaited_, number, &Awaited::number) > 0;
  if (isOwn || isAwaited) {
    return {ErrorCode::eNotFound,
            std::string("You cannot give yourself what another has. \"no\" ") +
                (isOwn ? "takes your ask back." : "ends your waiting for it."),
            {}};
  }
  return {ErrorCode::eNotFound,
          "No ask has the number " + std::to_string(number) +
              " now: it was answered or taken back, or there was none. \"asks\" shows those that "
              "wait.",
          {}};
}

Result<JsonValue> Asks::withdraw(std::vector<Outgoing>::iterator own) {
  NotedAsk ask = own->ask;
  giveUp(*own);
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
  return JsonValue::object({{"own", false},
                            {"answer", isGiven ? "give" : "no"},
                            {"kind", done.ask.kind},
                            {"name", shownText(done.ask.name)},
                            {"to", shownText(done.from)}});
}

Result<void> Asks::handOver(const Incoming& ask) {
  if (AskWords::isDocument(ask.ask.kind)) return giveEdit(ask);
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
  if (auto whole = parts_.unsaved.requireNothingLeft(edit); !whole) return whole;
  using EditActions::Recipient;
  // Freshly: who has just come or gone is not known otherwise. Owners have the names of hosts. Of
  // several stations of one user the one whose note has the ask is meant.
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
  auto held = held_.find(object);
  if (!held) return held.error();
  std::erase_if(awaited_, [&](const Awaited& each) {
    return each.object.kind == held->kind && each.object.object == held->object;
  });
  if (awaited_.size() >= kMostOfOne) {
    LogBoth("It is no longer awaited that %s is free: more than %d things are not.\n",
            titleOf(awaited_.front().object), static_cast<int>(kMostOfOne));
    awaited_.erase(awaited_.begin());
  }
  held->when = std::time(nullptr);
  awaited_.push_back({*held, ++lastNumber_});
  watchSoon();
  return JsonValue::object({{"kind", held->kind}, {"name", held->name}, {"holder", held->to}});
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
    const NotedAnswer answer{
        read->ask.id, {}, read->what == AskWords::What::eGiven, read->ask.text};
    if (takeAnswer(answer, from, message.isUnverified) || heard_.contains(answer.ask + from)) {
      return;
    }
    // To an ask that this station does not know any more: words all the same.
    heard_.add(answer.ask + from);
    return keep({0,
                 Said::Kind::eAnswer,
                 from,
                 settings().user,
                 read->words,
                 answer.ask,
                 {},
                 false,
                 message.isUnverified});
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
    if (isMe(each.to)) takeAnswer(each, note.user, false);
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
  if (knows(ask.ask.id) || replaced_.contains(ask.ask.id)) return;
  held_.nameAsHere(ask.ask);
  // Asked again for the same, he means the last.
  const auto same = std::ranges::find_if(incoming_, [&](const Incoming& each) {
    return each.from == ask.from && each.ask.kind == ask.ask.kind &&
           each.ask.object == ask.ask.object;
  });
  if (same != incoming_.end()) {
    // A message that was overtaken, or a note from before he asked again.
    if (ask.ask.id < same->ask.id) return replaced_.add(ask.ask.id);
    replaced_.add(same->ask.id);
    const bool isNews = same->ask.text != ask.ask.text;
    ask.number = isNews ? ++lastNumber_ : same->number;
    *same = std::move(ask);
    if (isNews) tellAsked(*same);
    return;
  }
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
  ask.number = ++lastNumber_;
  incoming_.push_back(std::move(ask));
  tellAsked(incoming_.back());
}

void Asks::tellAsked(const Incoming& ask) {
  const std::string words = wordsWithoutToken(ask.from, AskWords::What::eAsk, ask.ask);
  JsonValue shown = shownAsk(ask.ask, ask.number, ask.from, false);
  if (ask.isUnverified) shown.set("unverified", true);
  shown.set("words", shownText(words));
  const Said said{ask.ask.when, Said::Kind::eAsk, ask.from, settings().user, words, ask.ask.id, {},
                  false,        ask.isUnverified};
  events().talk("asked", shown.members());
  // A station that was restarted has it in its conversation already.
  const bool isKept = std::ranges::any_of(parts_.conversation.all(), [&](const Said& each) {
    return each.kind == Said::Kind::eAsk && each.ask == said.ask;
  });
  if (!isKept) keep(said);
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

/// Whether it was an answer to an ask of this station's, also to one that the user took back or
/// made again while the answer was on its way. Nobody else can answer for the colleague who was
/// asked.
bool Asks::takeAnswer(const NotedAnswer& answer, const std::string& by, bool isUnverified) {
  std::optional<Outgoing> own = takeOut(outgoing_, answer.ask, by);
  if (!own) own = takeOut(givenUp_, answer.ask, by);
  if (!own) return false;
  settle(answer.ask);
  heard_.add(answer.ask + by);
  if (answer.isGiven) dropOwnFor(own->ask);  // a newer ask for what is given now
  NotedAsk ask = own->ask;
  ask.to = settings().user;
  ask.text = answer.text;
  const auto what = answer.isGiven ? AskWords::What::eGiven : AskWords::What::eKept;
  const std::string words = wordsWithoutToken(by, what, ask);
  JsonValue shown = shownAsk(ask, own->number, by, false);
  shown.set("answer", answer.isGiven ? "give" : "no");
  if (isUnverified) shown.set("unverified", true);
  shown.set("words", shownText(words));
  parts_.presence.showSoon();
  events().talk("answered", shown.members());
  parts_.conversation.add(
      {0, Said::Kind::eAnswer, by, settings().user, words, answer.ask, {}, false, isUnverified});
  return true;
}

std::optional<Asks::Outgoing> Asks::takeOut(std::vector<Outgoing>& asks, const std::string& id,
                                            const std::string& by) const {
  const auto isBy = [&by](const std::string& name) { return upperCased(name) == upperCased(by); };
  const auto own = std::ranges::find_if(asks, [&](const Outgoing& each) {
    return each.ask.id == id && (isBy(each.ask.to) || isBy(held_.userOf(each.ask.to)));
  });
  if (own == asks.end()) return std::nullopt;
  Outgoing taken = std::move(*own);
  asks.erase(own);
  return taken;
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
    keep({0, Said::Kind::eAnswer, each.from, settings().user, words, each.ask.id, {}, false});
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
  const auto isLate = [&](const Incoming& each) {
    return each.note.empty() && each.from == note.user && now - each.arrived > kLongestUntilNoted &&
           !isIn(each.ask.id);
  };
  // Others may have sent it in his name, in the place of what he asks for.
  if (std::ranges::any_of(incoming_, isLate)) replaced_ = {};
  dropIncoming([&](const Incoming& each) {
    return isLate(each) || (each.note == note.id && !isIn(each.ask.id));
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
  std::erase_if(awaited_, [this](const Awaited& each) {
    const bool isLost = held_.isGone(each.object);
    if (isLost) tellGone(each.object);
    const bool canBeHad = !isLost && held_.isFree(each.object);
    if (canBeHad) tellFree(each.object);
    return isLost || canBeHad;
  });
  dropNeedless();
  if (!awaited_.empty() || !outgoing_.empty()) watchSoon();
}

void Asks::tellGone(const NotedAsk& object) {
  LogBoth("Nobody waits for %s any more: it is gone.\n", titleOf(object));
}

void Asks::tellFree(const NotedAsk& object) {
  events().talk("free", {{"kind", object.kind},
                         {"object", object.kind == AskWords::kRoom ? shownText(roomOf(object))
                                                                   : object.object},
                         {"name", shownText(object.name)},
                         {"project", object.project},
                         {"words", "You can have " + titleOf(object) + " now."}});
}

/// Takes back what need not be asked for any more, since it is gone or came another way; an answer
/// that is on its way arrives first.
void Asks::dropNeedless() {
  const auto now = std::chrono::steady_clock::now();
  std::vector<NotedAsk> needless;
  for (Outgoing& each : outgoing_) {
    if (held_.isGone(each.ask)) {
      needless.push_back(each.ask);
    } else if (!held_.isFree(each.ask)) {
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
    held_.isGone(each) ? tellGone(each) : tellFree(each);
  }
}

}  // namespace korvel
