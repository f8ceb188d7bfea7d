#include "station/net/LossReport.h"

#include <string>
#include <utility>

#include "station/net/SendErrors.h"

namespace korvel {

namespace {

void tellLoss(std::uint64_t& count, const std::string& why) {
  if (count == 0) return;
  const std::uint64_t lost = std::exchange(count, 0);
  tellNetworkProblem(std::to_string(lost) + (lost == 1 ? " datagram" : " datagrams") + why, lost);
}

constexpr const char* kReadAgain =
    "; what they announced shows when the project is left and entered again";

}  // namespace

void LossReport::queueRefused(Time now) {
  note(now);
  ++queue_;
}

void LossReport::wasTooLarge(Time now) {
  note(now);
  ++tooLarge_;
}

void LossReport::systemDropped(std::uint32_t total, Time now) {
  const std::uint32_t more = total - systemTotal_;
  // A count carried by a datagram may be older than the one asked for last.
  if (more == 0 || more > 0x7FFFFFFF) return;
  note(now);
  system_ += more;
  systemTotal_ = total;
}

void LossReport::tellIfOver(Time now) {
  if (!isPending()) return;
  if (now - last_ >= kQuiet || now - first_ >= kLongest) tell();
}

void LossReport::tell() {
  tellLoss(queue_, std::string(" dropped by this station's full queue") + kReadAgain);
  tellLoss(system_, std::string(" dropped by the system, whose buffer was full") + kReadAgain);
  tellLoss(tooLarge_, " dropped, larger than a datagram can be");
}

void LossReport::note(Time now) {
  if (!isPending()) first_ = now;
  last_ = now;
}

}  // namespace korvel
