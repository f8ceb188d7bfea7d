#include "station/net/HeardList.h"

#include <chrono>

#include "station/base/QuietThread.h"
#include "station/base/Strings.h"
#include "station/net/Interfaces.h"
#include "station/net/Problems.h"
#include "station/os/SharedFiles.h"

namespace {

constexpr auto kPause = std::chrono::seconds(5);

/// As many pauses as a message has to come everywhere.
constexpr std::size_t kWritesBefore = 3;

/// More senders than any facility has: strangers that invent addresses do not fill the memory.
constexpr std::size_t kMostSenders = 10'000;

/// The station's name as a file name: what is no letter or digit becomes "_", and a number told
/// from the name keeps two apart.
std::string fileNameFor(const std::string& station) {
  std::string name;
  for (const char letter : station) {
    const bool isPlain = (letter >= '0' && letter <= '9') || (letter >= 'A' && letter <= 'Z') ||
                         (letter >= 'a' && letter <= 'z') || letter == '-';
    name += isPlain ? letter : '_';
  }
  std::uint32_t hash = 2166136261U;
  for (const char letter : station) hash = (hash ^ static_cast<unsigned char>(letter)) * 16777619U;
  return name.substr(0, 100) + "-" + std::to_string(hash) + HeardList::kEnding;
}

JsonValue ownAddresses() {
  JsonValue addresses = JsonValue::array();
  for (const NetworkInterface& interface : readNetworkInterfaces()) {
    addresses.append(textOf(interface.address));
  }
  return addresses;
}

}  // namespace

HeardList::HeardList(Keeper keeper)
    : keeper_(std::move(keeper)),
      path_(keeper_.folder + "/" + fileNameFor(keeper_.station)),
      since_(std::time(nullptr)),
      thread_(threadWithoutSignals([this] { writeAgainAndAgain(); })) {}

HeardList::~HeardList() {
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
  }
  ends_.notify_all();
  thread_.join();
}

void HeardList::heard(Ipv4 address, std::uint16_t port) {
  const std::time_t now = std::time(nullptr);
  const std::lock_guard lock(mutex_);
  if (senders_.size() >= kMostSenders && senders_.count({address, port}) == 0) return;
  Sender& sender = senders_[{address, port}];
  if (sender.count++ == 0) sender.first = now;
  sender.last = now;
}

std::time_t HeardList::sentEarlier() {
  lastSentBefore_.push_back(lastSent_);
  if (lastSentBefore_.size() <= kWritesBefore) return 0;
  const std::time_t earlier = lastSentBefore_.front();
  lastSentBefore_.pop_front();
  return earlier;
}

std::string HeardList::text() {
  JsonValue list = JsonValue::array();
  {
    const std::lock_guard lock(mutex_);
    for (const auto& [who, sender] : senders_) {
      list.append(JsonValue::object({{"address", textOf(who.first)},
                                     {"port", static_cast<int>(who.second)},
                                     {"count", sender.count},
                                     {"first", static_cast<long>(sender.first)},
                                     {"last", static_cast<long>(sender.last)}}));
    }
  }
  return writeJson(JsonValue::object({{"station", shownText(keeper_.station)},
                                      {"host", shownText(keeper_.host)},
                                      {"port", keeper_.port},
                                      {"addresses", ownAddresses()},
                                      {"sends_from", static_cast<int>(keeper_.sendsFrom)},
                                      {"since", static_cast<long>(since_)},
                                      {"written", static_cast<long>(std::time(nullptr))},
                                      {"sent_earlier", static_cast<long>(sentEarlier())},
                                      {"heard", std::move(list)}}));
}

void HeardList::write() {
  const auto written = writeAtomically(path_, text() + "\n");
  if (!written && !hasComplained_) {
    tellNetworkProblem("the list of heard stations cannot be kept in " + keeper_.folder + ": " +
                       written.error().message);
  }
  hasComplained_ = !written;
}

void HeardList::writeAgainAndAgain() {
  for (;;) {
    write();
    std::unique_lock lock(mutex_);
    if (ends_.wait_for(lock, kPause, [this] { return isEnding_; })) break;
  }
  write();
}
