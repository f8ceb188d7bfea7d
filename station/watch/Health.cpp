#include "station/watch/Health.h"

#include <algorithm>

#include "station/base/Events.h"
#include "station/edit/UnsavedEdits.h"
#include "station/watch/FolderWatch.h"

namespace korvel {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kJudgement(2000);

/// An answer that takes longer than this makes working with the share slow.
constexpr milliseconds kSlow(1000);

/// A question without an answer for so long is not answered.
constexpr seconds kSilent(6);

/// So many changes without a message are no coincidence. A single one may be another program's.
constexpr std::size_t kCutOff = 3;

const char* levelText(HealthLevel level) {
  switch (level) {
    case HealthLevel::eGood:
      return "good";
    case HealthLevel::eSlow:
      return "slow";
    case HealthLevel::eBad:
      break;
  }
  return "bad";
}

void add(std::string& why, const std::string& sentence) {
  if (!why.empty()) why += ' ';
  why += sentence;
}

std::string secondsText(std::chrono::steady_clock::duration time) {
  return std::to_string(std::chrono::duration_cast<seconds>(time).count()) + " s";
}

void judgeShare(const HealthFacts& facts, HealthState& state) {
  const auto waited = facts.share.isAwaited ? facts.now - facts.share.asked : milliseconds(0);
  if (waited > kSilent) {
    state.share = HealthLevel::eBad;
    add(state.why, "The share has not answered for " + secondsText(waited) + ".");
  } else if (!facts.share.result) {
    state.share = HealthLevel::eBad;
    add(state.why, facts.share.result.error().message);
  } else if (waited > kSlow || facts.share.took > kSlow) {
    state.share = HealthLevel::eSlow;
    add(state.why, "The share answers slowly.");
  }
}

void judgeNetwork(const HealthFacts& facts, HealthState& state) {
  if (facts.hasSendFailed) {
    state.network = HealthLevel::eBad;
    add(state.why,
        "The last message could not be sent everywhere. See whether the network is connected.");
  }
  // Without other stations the changes are other programs', which send no messages.
  if (facts.others == 0 || facts.unannounced < kCutOff) return;
  state.network = HealthLevel::eBad;
  add(state.why, "You seem to be cut off: " + std::to_string(facts.unannounced) +
                     " changes were found in the folder and none was announced. See whether a "
                     "firewall or another port keeps messages away (\"kv-share doctor\").");
}

void judgeNames(const HealthFacts& facts, HealthState& state) {
  if (facts.namesake.empty()) return;
  state.network = std::max(state.network, HealthLevel::eSlow);
  add(state.why, facts.namesake);
}

void judgeMissing(const HealthFacts& facts, HealthState& state) {
  if (facts.missing.empty()) return;
  state.network = std::max(state.network, HealthLevel::eSlow);
  state.upToDate = std::max(state.upToDate, HealthLevel::eSlow);
  add(state.why, facts.missing);
}

}  // namespace

// As long as the share answers, what it holds is shown, even when messages are lost: then the
// folder watch finds it, seconds later.
HealthState judgeHealth(const HealthFacts& facts) {
  HealthState state;
  judgeShare(facts, state);
  judgeNetwork(facts, state);
  state.upToDate = state.share;
  if (state.network == HealthLevel::eBad) {
    state.upToDate = std::max(state.upToDate, HealthLevel::eSlow);
  }
  judgeMissing(facts, state);
  judgeNames(facts, state);
  if (!facts.unkept.empty()) {
    state.unsaved = HealthLevel::eBad;
    add(state.why, "Unsaved changes are not being kept on this machine: " + facts.unkept);
  }
  return state;
}

JsonValue shownHealth(const HealthState& state) {
  return JsonValue::object({{"share", levelText(state.share)},
                            {"network", levelText(state.network)},
                            {"up_to_date", levelText(state.upToDate)},
                            {"unsaved", levelText(state.unsaved)},
                            {"why", state.why}});
}

Health::Health(HostThread& host, const CatchUp& catchUp, const Presence& presence,
               const UnsavedEdits& unsaved, std::shared_ptr<const TrafficCounts> traffic)
    : host_(host),
      catchUp_(catchUp),
      presence_(presence),
      unsaved_(unsaved),
      traffic_(std::move(traffic)) {
  postJudgement();
}

Health::~Health() = default;

HealthState Health::now() const {
  HealthFacts facts;
  const auto project = catchUp_.answer();
  facts.share = project ? *project : presence_.answer();
  facts.now = std::chrono::steady_clock::now();
  facts.hasSendFailed = traffic_->hasFailed();
  facts.others = presence_.others();
  facts.missing = presence_.missing();
  facts.namesake = presence_.namesake();
  // The count starts anew with each project, so it may be below the one noted.
  facts.unannounced = catchUp_.found() - std::min(foundThen_, catchUp_.found());
  facts.unkept = unsaved_.problem();
  return judgeHealth(facts);
}

bool Health::isShareSilent() const {
  const auto isSilent = [](const ShareAnswer& answer) {
    return answer.isAwaited && std::chrono::steady_clock::now() - answer.asked > kSlow;
  };
  const auto project = catchUp_.answer();
  return isSilent(presence_.answer()) || (project && isSilent(*project));
}

void Health::postJudgement() {
  host_.postAfter(untilNextBeat(kJudgement), [this, alive = std::weak_ptr<int>(alive_)] {
    // The task cannot be taken back, and may run after this object is gone.
    if (alive.expired()) return;
    noteMessages();
    const HealthState state = now();
    if (!(state == told_)) events().health(shownHealth(state));
    told_ = state;
    postJudgement();
  });
}

void Health::noteMessages() {
  const long heard = traffic_->heardCount();
  if (heard != heard_ || catchUp_.found() < foundThen_) foundThen_ = catchUp_.found();
  heard_ = heard;
}

}  // namespace korvel
