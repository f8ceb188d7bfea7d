#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/lab/Space.h"

namespace korvel {

/// How a line treats each UDP datagram, in percent.
struct LineFaults {
  int lost = 0;
  int doubled = 0;
  int late = 0;  ///< kept back until three more have passed, or the line rests for 50 ms
  unsigned seed = 1;
};

/// What a line did.
struct LineCounts {
  unsigned passed = 0;
  unsigned lost = 0;
  unsigned doubled = 0;
  unsigned late = 0;
};

/// Carries frames between two interfaces, in both directions, on a thread of its own, and maltreats
/// the datagrams among them as a bad network does; what is no datagram passes as it is.
///
///     machine --interface a--> | lose, double, keep back | --interface b--> switch
class FaultyLine {
 public:
  FaultyLine(const Space& space, const std::string& a, const std::string& b,
             const LineFaults& faults);
  FaultyLine(const FaultyLine&) = delete;
  FaultyLine& operator=(const FaultyLine&) = delete;
  ~FaultyLine();

  [[nodiscard]] LineCounts counts() const;

 private:
  using Frame = std::vector<char>;

  static constexpr int kOvertaking = 3;

  struct Late {
    int to = -1;
    Frame frame;
    int passing = kOvertaking;  ///< datagrams that have yet to overtake it
  };

  void carry();
  void take(int from, int to);
  void treat(Frame frame, int to);
  void pass(const Frame& frame, int to);
  void release(int passed);
  bool happens(int percent);

  LineFaults faults_;
  std::array<int, 2> ends_{-1, -1};
  int wake_;
  std::mt19937 random_;
  std::deque<Late> late_;
  std::atomic<unsigned> passed_{0};
  std::atomic<unsigned> lost_{0};
  std::atomic<unsigned> doubled_{0};
  std::atomic<unsigned> lateCount_{0};
  std::thread thread_;
};

}  // namespace korvel
