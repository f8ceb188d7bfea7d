#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace korvel {

/// What a figure may be: a multiple of its floor, or a time.
struct Bound {
  enum class Kind { eNone, eAtMost, eAtLeast, eTimeAtMost };

  Kind kind = Kind::eNone;
  double value = 0;  ///< a ratio, or seconds

  static Bound none() { return {}; }
  static Bound atMost(double ratio) { return {Kind::eAtMost, ratio}; }
  static Bound atLeast(double ratio) { return {Kind::eAtLeast, ratio}; }
  static Bound timeAtMost(double seconds) { return {Kind::eTimeAtMost, seconds}; }
};

/// The unit that a figure is kept in; printing picks the fitting multiple.
enum class Unit { eSeconds, ePerSecond, eBytes };

/// One figure beside its floor, both measured in the same run.
struct Figure {
  std::string what;
  double size = 0;  ///< what the figure may grow with; 0 where it has none
  Unit unit = Unit::eSeconds;
  double ours = 0;
  double floor = 0;  ///< 0 where nothing is the floor
  Bound bound;
  std::string note;  ///< what else a reader must know; may be empty

  /// ours / floor; nothing without a floor.
  [[nodiscard]] std::optional<double> ratio() const;

  /// Whether the bound is kept; true without one, false with one and no floor to compare with.
  [[nodiscard]] bool isKept() const;
};

/// Collects figures and prints them.
///
///     what                      size      figure       floor  ratio    bound
///     take and release: tmpfs     10     48.1 us     44.6 us   1.08  <= 1.30  kept
///
/// Figures of the same name form a series over their sizes; a second table shows with which power
/// of the size each series of at least three sizes, and its floor, grows.
class BenchTable {
 public:
  void add(Figure figure) { figures_.push_back(std::move(figure)); }

  /// Notes a measurement that was not made, and why.
  void leaveOut(const std::string& what, const std::string& why);

  [[nodiscard]] std::string text() const;

  /// How many bounds are missed.
  [[nodiscard]] int missed() const;

 private:
  [[nodiscard]] std::string growthText() const;

  std::vector<Figure> figures_;
  std::vector<std::string> leftOut_;
};

}  // namespace korvel
