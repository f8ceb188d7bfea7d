#include "station/net/SendErrors.h"

#include "host/base/Log.h"
#include "station/base/Events.h"

namespace korvel {

void tellNetworkProblem(const std::string& problem, std::uint64_t dropped) {
  Log("Network: %s\n", problem);
  events().network(problem, dropped);
}

void SendErrors::failed(const std::string& destination, const std::string& problem) {
  std::uint64_t dropped = 1;
  {
    const std::lock_guard lock(mutex_);
    State& state = states_[destination];
    areThere_ = true;
    ++state.untold;
    if (state.told == problem) return;
    state.told = problem;
    dropped = state.untold;
    state.untold = 0;
  }
  tellNetworkProblem(problem, dropped);
}

void SendErrors::succeeded(const std::string& destination) {
  std::uint64_t lost = 0;
  {
    const std::lock_guard lock(mutex_);
    const auto found = states_.find(destination);
    if (found == states_.end()) return;
    lost = found->second.untold;
    states_.erase(found);
    areThere_ = !states_.empty();
  }
  tellNetworkProblem("sending to " + destination + " works again; " + std::to_string(lost) +
                         " more messages did not reach it meanwhile",
                     lost);
}

}  // namespace korvel
