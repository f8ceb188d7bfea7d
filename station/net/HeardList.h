#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "station/net/Interfaces.h"
#include "station/net/NetworkHooks.h"
#include "station/os/Posix.h"

namespace korvel {

/// The senders that were heard, and how often. Bounded, so that a stranger who invents senders does
/// not fill the memory.
///
/// When one more than kMostSenders is heard, the one that is unheard for longest is forgotten and
/// counted: first among those that were heard once only, as invented ones are, then among all. One
/// thread at a time.
class HeardSenders {
 public:
  /// More than any facility has.
  static constexpr std::size_t kMostSenders = 2000;

  struct Sender {
    std::uint64_t count = 0;
    std::time_t first = 0;
    std::time_t last = 0;
  };
  using Who = std::pair<Ipv4, std::uint16_t>;

  void heard(Ipv4 address, std::uint16_t port, std::time_t now);

  /// Calls for each sender, in the order of their addresses and ports.
  void forEach(const std::function<void(const Who&, const Sender&)>& call) const;

  [[nodiscard]] std::size_t size() const { return senders_.size(); }

  /// How many senders were forgotten.
  [[nodiscard]] std::uint64_t forgotten() const { return forgotten_; }

 private:
  using Order = std::list<Who>;  ///< the one that is unheard for longest first

  struct Known : Sender {
    Order::iterator place;
  };

  void forgetOne();

  std::map<Who, Known> senders_;
  Order once_;   ///< heard once
  Order often_;  ///< heard more than once
  std::uint64_t forgotten_ = 0;
};

/// The name of a program's list of heard stations in its folder, and the name that people call the
/// program by there. Programs of one name on this machine are told apart: the first has the plain
/// name, the second has "-2" in the file's and " (2)" in its own. A name is free again when its
/// program has ended, however it ended. Touches no file.
class HeardListName {
 public:
  HeardListName(const std::string& folder, const std::string& station, const std::string& ending);

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] const std::string& station() const { return station_; }

 private:
  std::string path_;
  std::string station_;
  Descriptor claim_;  ///< a socket whose name no other program of this machine can have
};

/// The senders that a program hears, kept for an administrator in a folder of his choice: one small
/// file a program, written anew every few seconds, in one step.
///
///     <folder>/<station>.heard.json
///     {"station":"ANNA at SUITE1","host":"SUITE1","port":27015,"addresses":["10.0.0.7"],
///      "sends_from":49152,"since":...,"written":...,"sent_earlier":...,
///      "strangers":0,
///      "heard":[{"address":"10.0.0.8","port":51234,"count":12,"first":...,"last":...}]}
///
/// "sent_earlier" is when it sent last as of 14 s before the list was written: what was sent then
/// has arrived and stands in every list by now; 0 for never. A sender is known by its address and
/// the port that it sends from, which it keeps for life. "strangers" counts senders that were
/// forgotten because more were heard than any facility has. Times are seconds since 1970. A second
/// program of the same name on this machine has a file of its own, and " (2)" behind its name. Any
/// thread; a folder that hangs delays no caller.
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

  /// Writes the file now and then every two seconds. A folder in which nothing can be written is
  /// told once as a network problem.
  explicit HeardList(Keeper keeper);
  HeardList(const HeardList&) = delete;
  HeardList& operator=(const HeardList&) = delete;

  /// Writes a last time, unless the folder does not answer within a second: the write that hangs
  /// is then left to itself, and told.
  ~HeardList() override;

  void heard(Ipv4 address, std::uint16_t port) override;
  void sent() override;

  /// How many seconds before the list was written "sent_earlier" was true. It is more than clocks
  /// may differ and lists be late: otherwise a station that sends all the time would never be found
  /// missing.
  static constexpr std::size_t kSentEarlier = 14;

  /// The ending of the files' names.
  static constexpr const char* kEnding = ".heard.json";

 private:
  class Writer;

  std::shared_ptr<Writer> writer_;
  std::thread thread_;
};

}  // namespace korvel
