#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <list>
#include <map>
#include <utility>

#include "station/net/Ipv4.h"

namespace korvel {

/// Who was heard, and how often; bounded, so that a stranger who invents senders fills no memory.
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

}  // namespace korvel
