#include "tools/base/Finding.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "station/base/Strings.h"

namespace korvel {

namespace {

constexpr const char* kVerdicts[] = {"pass", "warn", "fail"};
constexpr std::size_t kGroupWidth = 15;
constexpr std::size_t kCheckWidth = 16;

Verdict verdictOf(const std::string& name) {
  const auto* const found = std::find(std::begin(kVerdicts), std::end(kVerdicts), name);
  // What cannot be read is no pass.
  if (found == std::end(kVerdicts)) return Verdict::eFail;
  return static_cast<Verdict>(found - std::begin(kVerdicts));
}

std::string padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text;
}

}  // namespace

Finding pass(std::string text) { return {Verdict::ePass, {}, {}, std::move(text), {}}; }

Finding warn(std::string text, std::string fix) {
  return {Verdict::eWarn, {}, {}, std::move(text), std::move(fix)};
}

Finding fail(std::string text, std::string fix) {
  return {Verdict::eFail, {}, {}, std::move(text), std::move(fix)};
}

const char* verdictName(Verdict verdict) { return kVerdicts[static_cast<std::size_t>(verdict)]; }

Verdict worstOf(const Findings& findings) {
  Verdict worst = Verdict::ePass;
  for (const Finding& finding : findings) worst = std::max(worst, finding.verdict);
  return worst;
}

JsonValue objectOf(const Finding& finding) {
  JsonValue object = JsonValue::object({{"group", finding.group},
                                        {"check", finding.check},
                                        {"verdict", verdictName(finding.verdict)},
                                        {"text", shownText(finding.text)}});
  if (!finding.fix.empty()) object.set("fix", shownText(finding.fix));
  return object;
}

Finding findingOf(const JsonValue& object) {
  return {verdictOf(object["verdict"].asString()), object["group"].asString(),
          object["check"].asString(), object["text"].asString(), object["fix"].asString()};
}

std::string linesOf(const Finding& finding, Colours colours) {
  constexpr const char* kVerdictColours[] = {kGreen, kYellow, kRed};
  const char* const colour = kVerdictColours[static_cast<std::size_t>(finding.verdict)];
  const std::string head = coloured(verdictName(finding.verdict), colour, colours) + "  " +
                           padded(finding.group, kGroupWidth) + padded(finding.check, kCheckWidth);
  const std::string line = head + shownText(finding.text);
  if (finding.fix.empty()) return line;
  return line + "\n      fix: " + shownText(finding.fix);
}

void FindingCounts::add(const Finding& finding) {
  ++counts_[static_cast<std::size_t>(finding.verdict)];
}

std::string FindingCounts::text() const {
  const auto countOf = [this](Verdict verdict) {
    return counts_[static_cast<std::size_t>(verdict)];
  };
  std::string text = std::to_string(countOf(Verdict::ePass)) + " passed";
  if (countOf(Verdict::eWarn) > 0) text += ", " + countText(countOf(Verdict::eWarn), "warning");
  if (countOf(Verdict::eFail) > 0)
    text += ", " + std::to_string(countOf(Verdict::eFail)) + " failed";
  return text;
}

}  // namespace korvel
