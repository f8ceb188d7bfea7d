#include "station/net/HeardList.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <deque>
#include <mutex>
#include <utility>

#include "station/base/HostThread.h"
#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "station/net/Interfaces.h"
#include "station/net/UdpBroadcaster.h"
#include "station/os/SharedFiles.h"

namespace korvel {

void HeardSenders::heard(Ipv4 address, std::uint16_t port, std::time_t now) {
  const Who who{address, port};
  auto found = senders_.find(who);
  if (found == senders_.end()) {
    // A stranger can invent senders without end.
    if (senders_.size() == kMostSenders) forgetOne();
    found = senders_.emplace(who, Known{{0, now, now}, once_.insert(once_.end(), who)}).first;
  } else {
    often_.splice(often_.end(), found->second.count == 1 ? once_ : often_, found->second.place);
  }
  ++found->second.count;
  found->second.last = now;
}

void HeardSenders::forEach(const std::function<void(const Who&, const Sender&)>& call) const {
  for (const auto& [who, sender] : senders_) call(who, sender);
}

void HeardSenders::forgetOne() {
  // Invented senders are heard once each, real stations again and again.
  Order& order = once_.empty() ? often_ : once_;
  senders_.erase(order.front());
  order.pop_front();
  ++forgotten_;
}

namespace {

/// More programs of one name than are ever started on one machine.
constexpr int kMostPrograms = 100;

/// The station's name as the beginning of a file name. Anything but letters, digits and "-" becomes
/// "_"; a hash of the name keeps two names apart that look alike then.
std::string fileNameFor(const std::string& station) {
  std::string name;
  for (const char letter : station) {
    const bool isPlain = (letter >= '0' && letter <= '9') || (letter >= 'A' && letter <= 'Z') ||
                         (letter >= 'a' && letter <= 'z') || letter == '-';
    name += isPlain ? letter : '_';
  }
  return name.substr(0, 100) + "-" + std::to_string(hash32(station));
}

/// Whether another program of this machine has the path; `claim` keeps it from others. A system
/// without such sockets claims nothing and refuses nothing.
bool isTaken(const std::string& path, Descriptor& claim) {
  Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  // A name in the abstract namespace (it begins with a zero byte) leaves no file behind: the kernel
  // frees it with the socket, however the program ends.
  const std::string name = "kv-heard-" + std::to_string(hash32(path)) + path.substr(0, 80);
  std::memcpy(address.sun_path + 1, name.data(), name.size());
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0) {
    return errno == EADDRINUSE;
  }
  claim = std::move(socket);
  return false;
}

}  // namespace

HeardListName::HeardListName(const std::string& folder, const std::string& station,
                             const std::string& ending) {
  const std::string plain = folder + "/" + fileNameFor(station);
  for (int number = 1; number <= kMostPrograms; ++number) {
    path_ = plain + (number == 1 ? "" : "-" + std::to_string(number)) + ending;
    station_ = station + (number == 1 ? "" : " (" + std::to_string(number) + ")");
    if (!isTaken(path_, claim_)) return;
  }
}

namespace {

constexpr auto kWritePause = std::chrono::seconds(2);

constexpr std::size_t kWritesBefore = HeardList::kSentEarlier / kWritePause.count();

/// How long an end waits for a folder that may hang.
constexpr auto kTimeToWriteLast = std::chrono::seconds(1);

JsonValue ownAddresses() {
  JsonValue addresses = JsonValue::array();
  for (const NetworkInterface& interface : readNetworkInterfaces()) {
    addresses.append(textOf(interface.address));
  }
  return addresses;
}

}  // namespace

/// What the list and its thread share. It lives until both are done: the thread may hang in the
/// folder for longer than the list lives.
class HeardList::Writer {
 public:
  explicit Writer(Keeper keeper)
      : keeper_(std::move(keeper)),
        name_(keeper_.folder, keeper_.station, kEnding),
        since_(std::time(nullptr)) {}

  void heard(Ipv4 address, std::uint16_t port) {
    const std::time_t now = std::time(nullptr);
    const std::lock_guard lock(mutex_);
    senders_.heard(address, port, now);
  }

  void sent() { lastSent_ = std::time(nullptr); }

  /// The thread's work.
  void writeAgainAndAgain() {
    for (;;) {
      write();
      std::unique_lock lock(mutex_);
      if (changes_.wait_for(lock, kWritePause, [this] { return isEnding_; })) break;
    }
    write();
    const std::lock_guard lock(mutex_);
    hasEnded_ = true;
    changes_.notify_all();
  }

  /// Asks the thread to end; whether it did so in time.
  bool end() {
    std::unique_lock lock(mutex_);
    isEnding_ = true;
    changes_.notify_all();
    isLeft_ = !changes_.wait_for(lock, kTimeToWriteLast, [this] { return hasEnded_; });
    return !isLeft_;
  }

  void tellHang() const {
    tellNetworkProblem("the list of heard stations was not written a last time: " + keeper_.folder +
                       " did not answer within " + std::to_string(kTimeToWriteLast.count()) + " s");
  }

 private:
  std::time_t sentEarlier() {
    lastSentBefore_.push_back(lastSent_);
    // What was sent just now may not be in every list yet: only an older time can prove a loss.
    if (lastSentBefore_.size() <= kWritesBefore) return 0;
    const std::time_t earlier = lastSentBefore_.front();
    lastSentBefore_.pop_front();
    return earlier;
  }

  /// The senders as a list; `forgotten` becomes how many more there were.
  JsonValue senders(std::uint64_t& forgotten) {
    JsonValue list = JsonValue::array();
    const std::lock_guard lock(mutex_);
    senders_.forEach([&list](const auto& who, const HeardSenders::Sender& sender) {
      list.append(JsonValue::object({{"address", textOf(who.first)},
                                     {"port", static_cast<int>(who.second)},
                                     {"count", sender.count},
                                     {"first", static_cast<long>(sender.first)},
                                     {"last", static_cast<long>(sender.last)}}));
    });
    forgotten = senders_.forgotten();
    return list;
  }

  std::string text() {
    std::uint64_t forgotten = 0;
    JsonValue heard = senders(forgotten);
    return writeJson(JsonValue::object({{"station", shownText(name_.station())},
                                        {"host", shownText(keeper_.host)},
                                        {"port", keeper_.port},
                                        {"addresses", ownAddresses()},
                                        {"sends_from", static_cast<int>(keeper_.sendsFrom)},
                                        {"since", static_cast<long>(since_)},
                                        {"written", static_cast<long>(std::time(nullptr))},
                                        {"sent_earlier", static_cast<long>(sentEarlier())},
                                        {"strangers", forgotten},
                                        {"heard", std::move(heard)}}));
  }

  void write() {
    const auto written = writeAtomically(name_.path(), text() + "\n");
    if (!written && !hasComplained_ && !isLeft_) {
      tellNetworkProblem("the list of heard stations cannot be kept in " + keeper_.folder + ": " +
                         written.error().message);
    }
    // One complaint until the folder works again, not one every two seconds.
    hasComplained_ = !written;
  }

  const Keeper keeper_;
  const HeardListName name_;
  const std::time_t since_;
  std::atomic<std::time_t> lastSent_{0};
  std::atomic<bool> isLeft_{false};         ///< the end gave up waiting for the thread
  std::deque<std::time_t> lastSentBefore_;  ///< at the last few writes; the thread's
  bool hasComplained_ = false;              ///< the thread's
  std::mutex mutex_;
  std::condition_variable changes_;
  HeardSenders senders_;
  bool isEnding_ = false;
  bool hasEnded_ = false;
};

HeardList::HeardList(Keeper keeper)
    : writer_(std::make_shared<Writer>(std::move(keeper))),
      thread_(threadWithoutSignals([writer = writer_] { writer->writeAgainAndAgain(); })) {}

HeardList::~HeardList() {
  if (writer_->end()) {
    thread_.join();
  } else {
    thread_.detach();
    writer_->tellHang();
  }
}

void HeardList::heard(Ipv4 address, std::uint16_t port) { writer_->heard(address, port); }

void HeardList::sent() { writer_->sent(); }

}  // namespace korvel
