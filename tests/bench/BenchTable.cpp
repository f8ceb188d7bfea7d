#include "tests/bench/BenchTable.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "tests/bench/Figures.h"

namespace korvel {

namespace {

/// A unit's multiples, the largest first.
struct Multiple {
  double value;
  const char* name;
};

constexpr std::array kTimes{Multiple{1, "s"}, Multiple{1e-3, "ms"}, Multiple{1e-6, "us"},
                            Multiple{1e-9, "ns"}};
constexpr std::array kRates{Multiple{1e6, "M/s"}, Multiple{1e3, "k/s"}, Multiple{1, "/s"}};
constexpr std::array kBytes{Multiple{1 << 20, "MiB"}, Multiple{1 << 10, "KiB"}, Multiple{1, "B"}};
constexpr std::size_t kSizesOfASeries = 3;

template <typename... Arguments>
std::string formatted(const char* format, Arguments... arguments) {
  std::array<char, 256> text{};
  std::snprintf(text.data(), text.size(), format, arguments...);
  return text.data();
}

template <std::size_t N>
std::string inUnits(double value, const std::array<Multiple, N>& multiples) {
  const auto* fitting = std::find_if(multiples.begin(), multiples.end(),
                                     [&](const Multiple& each) { return value >= each.value; });
  if (fitting == multiples.end()) --fitting;
  return formatted("%.1f %s", value / fitting->value, fitting->name);
}

std::string valueText(double value, Unit unit) {
  if (value <= 0) return "-";
  switch (unit) {
    case Unit::ePerSecond:
      return inUnits(value, kRates);
    case Unit::eBytes:
      return inUnits(value, kBytes);
    default:
      return inUnits(value, kTimes);
  }
}

std::string boundText(const Bound& bound) {
  switch (bound.kind) {
    case Bound::Kind::eNone:
      return "-";
    case Bound::Kind::eTimeAtMost:
      return "<= " + formatted("%.0f ms", bound.value * 1e3);
    default:
      return formatted("%s %.2f", bound.kind == Bound::Kind::eAtMost ? "<=" : ">=", bound.value);
  }
}

std::string verdict(const Figure& figure) {
  if (figure.bound.kind == Bound::Kind::eNone) return "";
  return figure.isKept() ? "kept" : "MISSED";
}

std::string line(const Figure& figure) {
  const auto ratio = figure.ratio();
  std::string text = formatted("%-46s %9s %11s %11s %6s %8s  %s", figure.what.c_str(),
                               figure.size > 0 ? formatted("%.0f", figure.size).c_str() : "-",
                               valueText(figure.ours, figure.unit).c_str(),
                               valueText(figure.floor, figure.unit).c_str(),
                               ratio ? formatted("%.2f", *ratio).c_str() : "-",
                               boundText(figure.bound).c_str(), verdict(figure).c_str());
  if (!figure.note.empty()) text += "  " + figure.note;
  text.erase(text.find_last_not_of(' ') + 1);
  return text + "\n";
}

}  // namespace

std::optional<double> Figure::ratio() const {
  if (floor <= 0) return std::nullopt;
  return ours / floor;
}

bool Figure::isKept() const {
  if (bound.kind == Bound::Kind::eNone) return true;
  if (ours <= 0) return false;
  if (bound.kind == Bound::Kind::eTimeAtMost) return ours <= bound.value;
  const auto measured = ratio();
  if (!measured) return false;
  return bound.kind == Bound::Kind::eAtMost ? *measured <= bound.value : *measured >= bound.value;
}

void BenchTable::leaveOut(const std::string& what, const std::string& why) {
  const std::string line = "not run: " + what + ": " + why + "\n";
  if (std::find(leftOut_.begin(), leftOut_.end(), line) == leftOut_.end()) leftOut_.push_back(line);
}

std::string BenchTable::text() const {
  std::string text = formatted("%-46s %9s %11s %11s %6s %8s\n", "what", "size", "figure", "floor",
                               "ratio", "bound");
  for (const Figure& figure : figures_) text += line(figure);
  for (const std::string& each : leftOut_) text += each;
  return text + growthText();
}

std::string BenchTable::growthText() const {
  std::vector<std::pair<std::string, std::vector<const Figure*>>> series;
  for (const Figure& figure : figures_) {
    if (figure.size <= 0) continue;
    auto known = std::find_if(series.begin(), series.end(),
                              [&](const auto& each) { return each.first == figure.what; });
    if (known == series.end()) known = series.insert(known, {figure.what, {}});
    known->second.push_back(&figure);
  }
  std::string text;
  for (const auto& [what, figures] : series) {
    if (figures.size() < kSizesOfASeries) continue;
    std::vector<std::pair<double, double>> ours;
    std::vector<std::pair<double, double>> floors;
    for (const Figure* each : figures) {
      ours.emplace_back(each->size, each->ours);
      floors.emplace_back(each->size, each->floor);
    }
    const bool hasFloor = figures.front()->floor > 0;
    text += formatted("%-46s %11.2f %11s\n", what.c_str(), fittedExponent(ours),
                      hasFloor ? formatted("%.2f", fittedExponent(floors)).c_str() : "-");
  }
  if (text.empty()) return text;
  return formatted("\n%-46s %11s %11s\n", "grows with the size to the power of", "figure",
                   "floor") +
         text;
}

int BenchTable::missed() const {
  return static_cast<int>(
      std::count_if(figures_.begin(), figures_.end(), [](const auto& f) { return !f.isKept(); }));
}

}  // namespace korvel
