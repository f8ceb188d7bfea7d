#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "tests/bench/peer/Board.h"

namespace korvel {

/// What a peer was started with: PROGRAM BOARD NUMBER PORT FOLDER [KIND].
struct PeerArguments {
  std::string board;       ///< the file of the shared page
  std::size_t number = 0;  ///< 0 sends, the others receive
  int port = 0;
  std::string folder;  ///< one that the measurement's processes share
  std::string kind{};  ///< of peer, where a program is several; see kDeafSender

  /// Whether this peer listens: all do, but for a sender of the kind that does not.
  [[nodiscard]] bool listens() const { return number > 0 || kind != kDeafSender; }

  static constexpr const char* kDeafSender = "deaf-sender";
  static constexpr const char* kOneThread = "one-thread";  ///< bare sockets without a queue
  static constexpr const char* kLongEdit = "long-edit";    ///< a station with kBenchLongEdit open
};

PeerArguments readPeerArguments(int argc, const char* const* argv);

/// One way in which messages get from process to process. Whatever receives tells the board.
class iTransport {
 public:
  virtual ~iTransport() = default;

  /// Sends one message; it has left when this returns.
  virtual void send(std::uint32_t number) = 0;

  /// Runs work on the thread that sends, and returns when it is done.
  virtual void onSendingThread(const std::function<void()>& work) { work(); }
};

/// Obeys the commands on standard input until it ends:
///
///     send COUNT NANOSECONDS    so many messages, one every so often; answered by "sent"
///
/// Says "ready" first.
void obey(Board& board, iTransport& transport);

}  // namespace korvel
