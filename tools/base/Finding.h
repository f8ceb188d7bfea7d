#pragma once

#include <string>
#include <vector>

#include "station/base/Json.h"
#include "tools/base/Tool.h"

namespace korvel {

/// How a check came out, the worst last.
enum class Verdict { ePass, eWarn, eFail };

/// One line of kv-share doctor. A warning and a failure have a fix, in one line; a pass has none.
struct Finding {
  Verdict verdict = Verdict::ePass;
  std::string group;  ///< "share", "network", "station" or "other machine"
  std::string check;  ///< what was looked at: "free space"
  std::string text;
  std::string fix;
};

using Findings = std::vector<Finding>;

// What a check answers; the group and the name are filled in by who ran it.
Finding pass(std::string text);
Finding warn(std::string text, std::string fix);
Finding fail(std::string text, std::string fix);

/// "pass", "warn" or "fail".
const char* verdictName(Verdict verdict);

/// The worst of them; a pass for none.
Verdict worstOf(const Findings& findings);

/// A finding as an object: group, check, verdict, text, and fix where it has one; and back.
JsonValue objectOf(const Finding& finding);
Finding findingOf(const JsonValue& object);

/// A finding as lines of a terminal without a line end: control characters become "?".
std::string linesOf(const Finding& finding, Colours colours = Colours::eNone);

/// Counts findings by how they came out.
class FindingCounts {
 public:
  void add(const Finding& finding);

  /// "18 passed, 1 warning, 2 failed"; warnings and failures only where there are any.
  [[nodiscard]] std::string text() const;

 private:
  std::size_t counts_[3] = {};
};

}  // namespace korvel
