#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "station/base/Json.h"
#include "station/net/iTrafficObserver.h"

/// Whom a program hears, kept for an administrator in a folder of his choice: one small file a
/// program, written anew every few seconds, in one step.
///
///     <folder>/<station>.heard.json
///     {"station":"ANNA at SUITE1","host":"SUITE1","port":27015,"addresses":["10.0.0.7"],
///      "sends_from":49152,"since":...,"written":...,"sent_earlier":...,
///      "heard":[{"address":"10.0.0.8","port":51234,"count":12,"first":...,"last":...}]}
///
/// "sent_earlier" is when it sent last as of 15 s before it was written, so that what was sent then
/// has come everywhere and stands in everybody's list; 0 for never. A sender is known by its
/// address and the port that it sends from, which it keeps for life. Times are seconds since 1970.
/// Any thread; a folder that hangs keeps a thread of this object's own waiting, and its end.
class HeardList : public iTrafficObserver {
 public:
  /// Who keeps the list.
  struct Keeper {
    std::string folder;           ///< must exist
    std::string station;          ///< what people call it: "ANNA at SUITE1"
    std::string host;             ///< its host name
    int port = 0;                 ///< where it listens
    std::uint16_t sendsFrom = 0;  ///< the port of its sender; 0 where it never sends
  };

  /// Writes the file now and then every five seconds. A folder in which nothing can be written is
  /// told once as a network problem.
  explicit HeardList(Keeper keeper);
  HeardList(const HeardList&) = delete;
  HeardList& operator=(const HeardList&) = delete;

  /// Writes a last time.
  ~HeardList() override;

  void heard(Ipv4 address, std::uint16_t port) override;
  void sent() override { lastSent_ = std::time(nullptr); }

  /// The ending of the files' names.
  static constexpr const char* kEnding = ".heard.json";

 private:
  struct Sender {
    std::uint64_t count = 0;
    std::time_t first = 0;
    std::time_t last = 0;
  };

  std::time_t sentEarlier();
  [[nodiscard]] std::string text();
  void write();
  void writeAgainAndAgain();

  const Keeper keeper_;
  const std::string path_;
  const std::time_t since_;
  std::atomic<std::time_t> lastSent_{0};
  std::deque<std::time_t> lastSentBefore_;  ///< at the last few writes; the writing thread's
  std::mutex mutex_;
  std::condition_variable ends_;
  std::map<std::pair<Ipv4, std::uint16_t>, Sender> senders_;
  bool isEnding_ = false;
  bool hasComplained_ = false;
  std::thread thread_;
};
