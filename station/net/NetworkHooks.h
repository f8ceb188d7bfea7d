#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "station/net/Interfaces.h"
#include "station/wire/MessageTable.h"

namespace korvel {

/// Is told which senders a network service hears, and that it sends. Any thread; must not wait.
class iTrafficObserver {
 public:
  virtual ~iTrafficObserver() = default;

  /// A message came from this sender; once for each way by which it came.
  virtual void heard(Ipv4 address, std::uint16_t port) = 0;

  /// A message came from this sender that was not heard before, by whatever way.
  virtual void taken([[maybe_unused]] Ipv4 address, [[maybe_unused]] std::uint16_t port) {}

  /// A message left.
  virtual void sent() = 0;

  /// A message was sent; whether it left for all destinations.
  virtual void reached(bool everywhere) { static_cast<void>(everywhere); }
};

/// What becomes of a message before the plug-in sees it.
struct MessageGate {
  enum Action {
    eDeliver,
    eAwaitFile,  ///< held back until the file is there, for as long as the plug-in would wait
    eDrop,       ///< about an object that does not exist: holding it would only take memory
  };

  Action action = eDeliver;
  std::string file;  ///< to be awaited

  /// Decides for a message that would be delivered now. Host thread.
  using Judge = std::function<MessageGate(const ReceivedMessage& message)>;
};

/// What the station does with messages beside the plug-in. Host thread.
struct DeliveryHooks {
  MessageGate::Judge judge{};  ///< or none: every message is delivered at once

  /// The user of the station that sends from here; empty where that is not known. The port is 0 for
  /// another machine; that machine is then one source.
  std::function<std::string(Ipv4 address, std::uint16_t port)> userAt{};

  /// The users and hosts of the stations that seal as this sender, or, where nothing proves it (0),
  /// of those known to send from here.
  std::function<std::vector<std::string>(Ipv4 address, std::uint16_t port, std::uint64_t sender)>
      namesOf{};

  /// Is told of each message after it has left for one destination at least, as its text. In the
  /// thread that sent it.
  std::function<void(const std::string& wireText)> sent{};

  /// Is told of each message after the plug-in was handed it.
  std::function<void(const ReceivedMessage& message)> delivered{};
};

}  // namespace korvel
