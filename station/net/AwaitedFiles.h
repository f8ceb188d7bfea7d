#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "station/base/HostThread.h"
#include "station/net/DeliveryLanes.h"
#include "station/net/FileLookout.h"
#include "station/net/MessageGate.h"
#include "station/wire/Delivery.h"

namespace korvel {

/// Messages about files that are not there yet: another station writes a file, announces it, and
/// the announcement is here first.
///
///     take() --the file is there--> deliver
///          --not yet--> held --it came, or kLongest is over--> deliver as waited for
///
/// The plug-in would make the host thread wait for each. Here they wait beside it, so that a
/// stranger who announces files that never come delays nobody. A later message about an object that
/// one is held of is held behind it: the order of each object's messages stays. Beyond kMaxOfSource
/// or kMaxInAll messages nothing more is held: the plug-in looks for the file once, at once. Host
/// thread.
class AwaitedFiles : public std::enable_shared_from_this<AwaitedFiles> {
 public:
  /// As long as the plug-in waits for a file.
  static constexpr auto kLongest = std::chrono::milliseconds(1000);
  static constexpr std::size_t kMaxOfSource = 64;
  static constexpr std::size_t kMaxInAll = 256;

  enum class Waited { eNo, eYes };
  using Deliver = std::function<void(const ReceivedMessage&, Waited)>;

  AwaitedFiles(HostThread& hostThread, MessageGate::Judge judge, Deliver deliver);
  AwaitedFiles(const AwaitedFiles&) = delete;
  AwaitedFiles& operator=(const AwaitedFiles&) = delete;

  /// Delivers a message now or later, or drops it.
  void take(const DeliveryLanes::Source& source, ReceivedMessage message);

  /// How many messages are held.
  [[nodiscard]] std::size_t held() const { return held_; }

 private:
  using Clock = std::chrono::steady_clock;

  struct Held {
    DeliveryLanes::Source source;
    ReceivedMessage message;
    Clock::time_point until;
    bool isAwaited = false;
  };
  using Queue = std::deque<Held>;

  bool hasRoom(const DeliveryLanes::Source& source) const;
  void hold(const DeliveryLanes::Source& source, ReceivedMessage message, const std::string& file);
  void await(const std::string& object, const std::string& file);
  void goOn(const std::string& object);
  Held takeFirst(Queue& queue);
  std::function<void()> later(const std::string& object);

  HostThread& hostThread_;
  const MessageGate::Judge judge_;
  const Deliver deliver_;
  FileLookout lookout_;
  std::map<std::string, Queue> queues_;  ///< by the object's cookie
  std::map<DeliveryLanes::Source, std::size_t> counts_;
  std::size_t held_ = 0;
};

}  // namespace korvel
