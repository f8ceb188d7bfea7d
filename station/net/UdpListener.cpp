#include "station/net/UdpListener.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <utility>

#include "station/base/Activity.h"
#include "station/base/Events.h"
#include "station/base/QuietThread.h"
#include "station/net/SendErrors.h"
#include "station/wire/MessageFields.h"

namespace korvel {

namespace {

/// What a queued delivery takes beside its bytes.
constexpr std::size_t kDeliveryOverhead = 160;
constexpr int kMillisecondsBetweenJoins = 1000;
constexpr int kMillisecondsAfterError = 200;

class HeldBytes : public iMemHolder {
 public:
  explicit HeldBytes(std::string bytes) : bytes_(std::move(bytes)) {}
  [[nodiscard]] const char* bytes() const override { return bytes_.data(); }
  [[nodiscard]] std::size_t size() const override { return bytes_.size(); }

 private:
  std::string bytes_;
};

}  // namespace

UdpListener::UdpListener(ListenerSocket socket, Dependencies surroundings,
                         iNetMessageReceiver* receiver)
    : socket_(std::move(socket)),
      surroundings_(std::move(surroundings)),
      outlet_(std::make_shared<DeliveryTarget>()),
      wake_(eventfd(0, EFD_CLOEXEC)) {
  outlet_->receiver = receiver;
  joinGroups();
  thread_ = threadWithoutSignals([this] { drain(); });
}

UdpListener::~UdpListener() {
  outlet_->isOpen = false;
  isEnding_ = true;
  eventfd_write(wake_, 1);
  thread_.join();
  close(wake_);
}

void UdpListener::deliver(const DeliveryTarget& outlet, std::string bytes) {
  if (!outlet.isOpen) return;
  const RemoteChangeScope scope;
  const ActivityScope activity(std::string("the message ") + messageTypeNameOf(bytes));
  events().received(bytes);
  outlet.receiver->receive(Kv::Ptr<iMemHolder>(new HeldBytes(std::move(bytes))), nullptr);
}

void UdpListener::drain() {
  while (!isEnding_) {
    // The system drops nothing while less than two datagrams wait.
    if (takeWhatIsThere() > 1 || losses_.isPending()) {
      const auto now = std::chrono::steady_clock::now();
      losses_.systemDropped(socket_.droppedBySystem(), now);
      losses_.tellIfOver(now);
    }
    waitForMore();
    joinGroups();
  }
  losses_.tell();
}

std::size_t UdpListener::takeWhatIsThere() {
  std::size_t taken = 0;
  int count = DatagramReader::kBatch;
  while (!isEnding_ && count == DatagramReader::kBatch) {
    count = reader_.read(socket_.descriptor());
    if (count > 0) taken += takeBatch(static_cast<std::size_t>(count));
  }
  tellBrokenRead(count < 0 ? -count : 0);
  return taken;
}

std::size_t UdpListener::takeBatch(std::size_t count) {
  const auto now = std::chrono::steady_clock::now();
  for (std::size_t index = 0; index < count; ++index) {
    if (reader_.wasCut(index)) {
      losses_.wasTooLarge(now);
    } else {
      take(reader_.at(index), now);
    }
  }
  losses_.systemDropped(reader_.droppedBySystem(), now);
  losses_.tellIfOver(now);
  return count;
}

void UdpListener::take(const Datagram& datagram, LossReport::Time now) {
  if (isOwn(datagram) || !surroundings_.accepted.accepts(datagram.source)) return;
  tellObserver(datagram);
  if (duplicates_.isDuplicate(datagram, now)) return;
  auto delivery = [outlet = outlet_, bytes = std::string(datagram.bytes)]() mutable {
    deliver(*outlet, std::move(bytes));
  };
  const std::size_t size = datagram.bytes.size() + kDeliveryOverhead;
  if (!surroundings_.hostThread.postDelivery(std::move(delivery), size)) losses_.queueRefused(now);
}

void UdpListener::tellObserver(const Datagram& datagram) {
  constexpr char kStart[] = {'d', kFieldSeparator};
  if (!surroundings_.observer || !datagram.bytes.starts_with({kStart, sizeof kStart})) return;
  surroundings_.observer->heard(datagram.source, datagram.port);
}

void UdpListener::joinGroups() {
  if (surroundings_.groups.empty()) return;
  socket_.join(surroundings_.interfaces->destinations(surroundings_.groups),
               *surroundings_.interfaces);
}

bool UdpListener::isOwn(const Datagram& datagram) {
  return datagram.port == surroundings_.ownSender->port() &&
         surroundings_.interfaces->isOwn(datagram.source);
}

int UdpListener::millisecondsToWait() const {
  if (toldError_ != 0 || wake_ < 0) return kMillisecondsAfterError;
  if (losses_.isPending()) return static_cast<int>(LossReport::kQuiet.count());
  return surroundings_.groups.empty() ? -1 : kMillisecondsBetweenJoins;
}

void UdpListener::tellBrokenRead(int error) {
  if (error == EAGAIN || error == EINTR) error = 0;
  if (error != 0 && error != toldError_) {
    tellNetworkProblem(std::string("messages cannot be received (") + std::strerror(error) +
                       "): check that the network is connected");
  }
  toldError_ = error;
}

void UdpListener::waitForMore() {
  pollfd waitFor[] = {{wake_, POLLIN, 0}, {socket_.descriptor(), POLLIN, 0}};
  // A socket that cannot be read stays readable: then only the end is waited for.
  poll(waitFor, toldError_ == 0 ? 2 : 1, millisecondsToWait());
}

}  // namespace korvel
