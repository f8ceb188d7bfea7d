#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "station/net/NetworkHooks.h"

namespace korvel {

/// Whom a program hears, kept for an administrator in a folder of his choice: one small file a
/// program, written anew every few seconds, in one step.
///
///     <folder>/<station>.heard.json
///     {"station":"ANNA at SUITE1","host":"SUITE1","port":27015,"addresses":["10.0.0.7"],
///      "sends_from":49152,"since":...,"written":...,"sent_earlier":...,
///      "strangers":0,
///      "heard":[{"address":"10.0.0.8","port":51234,"count":12,"first":...,"last":...}]}
///
/// "sent_earlier" is when it sent last as of 14 s before it was written, so that what was sent then
/// has come everywhere and stands in everybody's list; 0 for never. A sender is known by its
/// address and the port that it sends from, which it keeps for life; "strangers" counts those that
/// were forgotten because more were heard than any facility has. Times are seconds since 1970.
/// A second program of the same name on this machine has a file of its own, and " (2)" behind its
/// name. Any thread; a folder that hangs keeps nobody waiting.
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

  /// How many seconds before the list was written "sent_earlier" was true: more than clocks may
  /// differ and lists be late, or one that sends all the time would never be missed.
  static constexpr std::size_t kSentEarlier = 14;

  /// The ending of the files' names.
  static constexpr const char* kEnding = ".heard.json";

 private:
  class Writer;

  std::shared_ptr<Writer> writer_;
  std::thread thread_;
};

}  // namespace korvel
