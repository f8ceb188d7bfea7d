#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/project/ProjectListener.h"
#include "station/base/HostThread.h"
#include "station/seal/Seals.h"
#include "station/watch/FolderWatch.h"
#include "station/watch/StationNote.h"

namespace korvel {

/// Finds lost messages by comparing what a station says that it sent with what came of it. A note
/// tells of messages some seconds after they were sent, so the number of those that are behind is
/// at times too low, and never too high. Host thread.
class MissedMessages {
 public:
  /// What is known of one station's lost messages.
  struct Loss {
    long count = 0;
    std::int64_t when = 0;  ///< seconds since 1970, of the last one
  };

  /// So many looks, two seconds apart, without a new message make up for a note's delay. What a
  /// station sent before this one began to listen is known then.
  static constexpr int kLooksAtRest = 5;

  /// Takes in one station's counts; how many of its messages are newly known to be lost.
  long look(const std::string& id, long sent, long taken);

  /// Forgets the stations whose id is not to be kept.
  template <typename IsKept>
  void keepOnly(IsKept isKept) {
    std::erase_if(stations_, [&](const auto& each) { return !isKept(each.first); });
  }

 private:
  struct Counts {
    long sent = -1;
    long taken = -1;
    int atRest = 0;
    std::optional<long> behind;  ///< sent less taken, with all losses that are known
    long suspected = 0;          ///< lost by the last look's counts
  };

  std::map<std::string, Counts> stations_;
};

/// What this station tells of itself to the others, and what they tell of themselves. Each change
/// of another is told as an event "presence": it came, changed or went. Host thread. One object a
/// process.
class Presence : public ProjectListener {
 public:
  Presence(HostThread& host, std::shared_ptr<const TrafficCounts> traffic,
           std::shared_ptr<const Seals> seals);
  Presence(const Presence&) = delete;
  Presence& operator=(const Presence&) = delete;
  ~Presence();

  /// What is put into this station's note, and who is told of each note that came or changed, of a
  /// station that is here. Before start().
  struct Talk {
    std::function<void(StationNote&)> addTo{};
    std::function<void(const StationNote&)> seen{};
    std::function<void()> changed{};  ///< after one came, changed or went
  };
  void talkBy(Talk talk) { talk_ = std::move(talk); }

  /// Shows the others soon what this station's note is to say now.
  void showSoon() { refresh(); }

  /// Shows this station to the others, and tells of one that has its user or host name.
  void start(const std::string& version);

  /// Says goodbye.
  void stop();

  /// The stations that are there, this one first; with `eAll` those, too, that are gone without
  /// goodbye. Asks the share.
  enum class Which { eHere, eAll };
  [[nodiscard]] Result<JsonValue> who(Which which) const;

  /// How the projects directory answered.
  [[nodiscard]] ShareAnswer answer() const { return watch_ ? watch_->answer() : ShareAnswer(); }

  /// The users at other stations who have an object open, as far as is known without asking; with
  /// whether they have unsaved changes in it.
  struct Opener {
    std::string user;
    bool isUnsaved = false;
  };
  [[nodiscard]] std::vector<Opener> openersOf(const Cookie& object) const;

  /// The user of the one station known to send from here; empty where there is none, or several
  /// cannot be told apart. The port tells those of this machine apart; it is 0 for another machine.
  [[nodiscard]] std::string userAt(Ipv4 address, std::uint16_t port) const;

  /// The users and hosts of the stations that seal as this sender, or, where that is 0, of those
  /// known to send from here.
  [[nodiscard]] std::vector<std::string> namesOf(Ipv4 address, std::uint16_t port,
                                                 std::uint64_t sender) const;

  /// This station, then the others that are there, then those gone without goodbye, each in the
  /// order of users, as far as is known without asking; none where it tells nothing of itself.
  [[nodiscard]] std::vector<FoundStation> known() const;

  /// The other stations that are alive, by what tells their notes apart.
  [[nodiscard]] const std::map<std::string, FoundStation>& alive() const { return others_; }

  /// What tells this station's note from those of the others.
  [[nodiscard]] const std::string& ownId() const { return own_.id; }

  /// The host names of the other stations, upper-case as owners are recorded, as far as is known
  /// without asking.
  [[nodiscard]] std::set<std::string> hosts() const;

  /// What a station of this user that is here says of itself; nothing where there is none. Asks the
  /// share.
  [[nodiscard]] std::optional<StationNote> lookFor(const std::string& user) const;

  /// How many others are alive, as far as is known without asking.
  [[nodiscard]] std::size_t others() const { return others_.size(); }

  /// What may be missing here since messages were lost, a sentence for each station; empty once
  /// what is lost shows in files.
  [[nodiscard]] std::string missing() const;

  /// Which other station that is here has this one's user or host name, and what to do about it;
  /// empty where none has.
  [[nodiscard]] std::string namesake() const;

  void handleProjectEntry() override { refresh(); }
  void handleProjectExit() override { refresh(); }

 private:
  [[nodiscard]] StationNote noteOfThis() const;
  void refresh();
  void postRefresh();
  [[nodiscard]] std::string namesakeText(const FoundStation& other) const;
  void removeOld(const std::vector<FoundStation>& stations) const;
  void take(const FoundFiles& files);
  void takeOne(const FoundFile& file);
  [[nodiscard]] bool sendsFrom(const StationNote& note, Ipv4 address, std::uint16_t port) const;
  [[nodiscard]] bool hasSamePlace(const FoundStation& other) const;
  [[nodiscard]] std::vector<std::string> ownEarlier(
      const std::vector<FoundStation>& stations) const;
  void lookForDead();
  void lookForMissed();
  void noteMissed(const FoundStation& station, long lost);
  void tell(const char* how, const FoundStation& station) const;

  HostThread& host_;
  std::shared_ptr<const TrafficCounts> traffic_;
  std::shared_ptr<const Seals> seals_;
  Talk talk_;
  StationNote own_;
  std::unique_ptr<StationFile> file_;
  std::unique_ptr<FolderWatch> watch_;
  std::map<std::string, FoundStation> others_;  ///< those alive, by id
  std::map<std::string, FoundStation> gone_;    ///< those gone without goodbye, by id
  MissedMessages missed_;
  std::map<std::string, MissedMessages::Loss> losses_;     ///< told and not made up for yet, by id
  std::map<std::string, long> untold_;                     ///< lost since that was told, by id
  std::shared_ptr<int> alive_ = std::make_shared<int>(0);  ///< what posted tasks hold weakly
  int refreshes_ = 0;
};

}  // namespace korvel
