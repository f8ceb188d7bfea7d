#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "station/base/HostThread.h"
#include "station/net/Interfaces.h"
#include "station/net/NetworkHooks.h"
#include "station/wire/MessageTable.h"

namespace korvel {

/// How many messages of one kind a station takes of one source: so many a second for long, and so
/// many at once. A rate of 0 is no limit.
struct SourceLimit {
  double perSecond = 0;
  double atOnce = 0;
};

/// The limits of one source.
struct SourceLimits {
  SourceLimit all{500, 20'000};
  SourceLimit words{20, 100};    ///< to this user or to all
  SourceLimit requests{0.2, 5};  ///< that this machine run a command
};

/// Datagrams on their way to the host thread, a lane for each source, served in turn: one source
/// that sends all the time delays the others by one message, and fills its own lane alone.
///
///     reader thread --add()--> lane of 10.0.0.7: 3 2 1
///                              lane of 10.0.0.9: 9 8 7 6 5 4 ...   --next()--> host thread
///
/// Within a lane the order stays. Words whose sender nothing proves, where others prove theirs,
/// share one small lane and one limit, however many sources they come from: addresses can be
/// invented. Messages beyond a source's limits or its lane's room are left out and counted. Any
/// thread.
class DeliveryLanes {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// The kinds of message that have limits of their own.
  enum class Kind {
    eOther,
    eWords,
    eUnprovenWords,  ///< of a sender who could have sealed them
    eRequest,
  };

  /// Where a datagram came from. A port of 0 stands for all ports of an address. Sealed messages
  /// have a lane of their own: a stranger who forges that address cannot fill it.
  struct Source {
    Ipv4 address{};
    std::uint16_t port = 0;
    bool isSealed = false;

    friend auto operator<=>(const Source&, const Source&) = default;
  };

  /// More sources than any facility has. What comes from more shares one lane; sealed and unsealed
  /// ones are counted apart, so that invented sources take no lane from those that are proven.
  static constexpr std::size_t kMaxLanes = 256;

  static constexpr std::size_t kMaxLaneBytes = 32u << 20;
  static constexpr std::size_t kMaxUnprovenBytes = 256u << 10;
  static constexpr std::size_t kMaxBytes = 256u << 20;

  /// A source is told of at most this often.
  static constexpr auto kBetweenTellings = std::chrono::minutes(1);

  /// Some of a source's messages were left out.
  struct Loss {
    Source source;
    std::uint64_t overLimit = 0;  ///< since the source sent more than its limits allow
    std::uint64_t noRoom = 0;     ///< since its lane was full
    std::uint64_t unproven = 0;   ///< words, since unproven ones come too often in all
    std::uint64_t unsealed = 0;   ///< since they bore no seal, or an old one, and must
    std::uint64_t forged = 0;     ///< since the seal they bore was not made with its key
  };

  explicit DeliveryLanes(SourceLimits limits) : limits_(limits) {}

  /// Puts a message behind those of its source; false where it was left out. `sender` is proven by
  /// the message's seal, and 0 where nothing proves it.
  bool add(const Source& source, Kind kind, std::string bytes, Time now, std::uint64_t sender = 0);

  /// Whether the source has used up what it may send; then its datagram is counted as left out.
  /// Costs less than all else that is done with a datagram, so that a flood leaves time for others.
  bool refuseBeyondLimit(const Source& source, Time now);

  /// Counts a datagram that is not taken because of its seal.
  void refuse(const Source& source, bool isForged, Time now);

  /// A message that waited, and whose it is.
  struct Item {
    Source source;
    std::string bytes;
    std::uint64_t sender = 0;
    Time arrived{};
  };

  /// Takes the next message: the oldest of the lane whose turn it is. Nothing when all are empty.
  std::optional<Item> next();

  /// The losses to be reported now: of sources that were not reported in the last minute and that
  /// have lost nothing for `quiet`, or have lost something for a minute.
  std::list<Loss> lossesToTell(Time now, std::chrono::milliseconds quiet);

  /// All losses that were not told yet.
  std::list<Loss> allLosses();

  /// Whether there are losses that were not told yet.
  [[nodiscard]] bool hasLosses() const;

 private:
  /// What a source may still send of one kind.
  class Allowance {
   public:
    bool take(const SourceLimit& limit, Time now);
    [[nodiscard]] bool isUsedUp(const SourceLimit& limit, Time now) const;

   private:
    [[nodiscard]] double leftAt(const SourceLimit& limit, Time now) const;

    double left_ = 0;
    Time since_;
    bool isUsed_ = false;
  };

  struct Waiting {
    Source source;
    std::string bytes;
    std::uint64_t sender;
    Time arrived;
  };

  struct Lane {
    std::deque<Waiting> waiting;
    std::size_t bytes = 0;
    Allowance all;
    Allowance words;
    Allowance requests;
    Loss loss;
    Time firstLoss;
    Time lastLoss;
    Time told;
    bool wasTold = false;
    Time lastUse;

    [[nodiscard]] bool hasLoss() const {
      return loss.overLimit + loss.noRoom + loss.unproven + loss.unsealed + loss.forged > 0;
    }
  };

  Lane& laneOf(Source source, Time now);
  void removeIdle(Time now);

  /// The count of losses that a message falls under; null where it is within all limits.
  std::uint64_t* beyondLimit(Lane& lane, Kind kind, Time now);
  static void noteLoss(Lane& lane, std::uint64_t& count, Time now);

  const SourceLimits limits_;
  mutable std::mutex mutex_;
  std::map<Source, Lane> lanes_;
  std::size_t sealedLanes_ = 0;
  Allowance unproven_;       ///< for the words of all unproven senders
  std::list<Source> turns_;  ///< the sources that have something waiting, the next one first
  std::size_t bytes_ = 0;
};

/// Looks for files on a thread of its own, each until it is there or kLongest is over. A share that
/// hangs holds up this thread alone. Any thread.
class FileLookout {
 public:
  using Found = std::function<void()>;

  FileLookout();
  FileLookout(const FileLookout&) = delete;
  FileLookout& operator=(const FileLookout&) = delete;

  /// Nothing is called afterwards. A look that hangs is left to itself.
  ~FileLookout();

  /// Has `found` called on the lookout's thread once something exists at `path`; never when nothing
  /// comes.
  void await(const std::string& path, Found found);

 private:
  class Looks;

  std::shared_ptr<Looks> looks_;
  std::thread thread_;
};

/// Messages about files that are not there yet: another station writes a file, announces it, and
/// the announcement is here first.
///
///     take() --the file is there--> deliver
///          --not yet--> held --it came, or kLongest is over--> deliver as waited for
///
/// The plug-in would make the host thread wait for each. Here they wait on another thread, so a
/// stranger who announces files that never come delays no other message. A later message about an
/// object with a held message is held behind it: the order of each object's messages stays.
///
/// Beyond kMaxOfSource or kMaxInAll messages nothing more is held: the plug-in looks for the file
/// once, at once. What the same source has held about the object goes before, so that its order
/// stays; what others have held waits on. Only a message whose own file is missing counts as
/// waited for. Host thread.
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
  void deliverHeld(const DeliveryLanes::Source& source, const std::string& object);
  Held takeOut(Queue& queue, const Queue::iterator& which);
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
