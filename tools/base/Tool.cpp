#include "tools/base/Tool.h"

#include <unistd.h>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string_view>
#include <utility>

#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "tools/base/ToolHost.h"

namespace korvel {

namespace {

/// Writes DEL and the controls U+0080 to U+009F (C2 80 to C2 9F) as JSON escapes. Terminals obey
/// them like escape sequences. Controls below the blank are escaped already.
std::string withoutControls(const std::string& json) {
  std::string text;
  for (std::size_t index = 0; index < json.size(); ++index) {
    const auto next = static_cast<unsigned char>(index + 1 < json.size() ? json[index + 1] : 0);
    const bool isPair = json[index] == '\xC2' && next >= 0x80 && next < 0xA0;
    if (json[index] != '\x7F' && !isPair) {
      text += json[index];
      continue;
    }
    char escape[8];
    std::snprintf(escape, sizeof escape, "\\u%04x", isPair ? next : 0x7Fu);
    text += escape;
    if (isPair) ++index;
  }
  return text;
}

}  // namespace

ToolStatus toolProblem(ToolStatus status, const std::string& message) {
  // Keeps the order of the lines where both streams go to one place.
  std::cout.flush();
  std::cerr << "kv-share: " << shownText(message) << '\n';
  return status;
}

bool readInput(const std::string& file, std::string& bytes) {
  std::ifstream opened;
  const bool isStandardInput = file.empty() || file == "-";
  if (!isStandardInput) opened.open(file, std::ios::binary);
  std::istream& input = isStandardInput ? std::cin : opened;
  if (!input) return false;
  bytes.assign(std::istreambuf_iterator<char>(input), {});
  return !input.bad();
}

void printJson(const JsonValue& value) {
  // A slow reader of the output must not count as a share that does not answer.
  shareRests();
  std::cout << withoutControls(writeJson(value)) << '\n';
}

void printForPeople(const JsonValue& value) {
  shareRests();
  std::cout << renderForPeople(value) << '\n';
}

Colours coloursOfOutput() {
  const char* const refused = std::getenv("NO_COLOR");
  const char* const terminal = std::getenv("TERM");
  const bool hasColours = terminal && std::string_view(terminal) != "dumb";
  // By its convention NO_COLOR counts only with a value.
  const bool isWanted = !refused || !*refused;
  return isWanted && hasColours && isatty(STDOUT_FILENO) ? Colours::eTerminal : Colours::eNone;
}

std::string coloured(const std::string& text, const char* colour, Colours colours) {
  if (colours == Colours::eNone || colour == kPlain) return text;
  return colour + text + kPlain;
}

void printTable(const JsonValue& rows, const char* (*colourOf)(const JsonValue& row)) {
  // Colours are added to finished lines: their codes would count as letters of a column.
  const Colours colours = coloursOfOutput();
  std::istringstream lines(renderForPeople(rows));
  shareRests();
  const char* colour = rows.elements().empty() ? kPlain : kBold;
  std::size_t next = 0;
  for (std::string line; std::getline(lines, line); ++next) {
    std::cout << coloured(line, colour, colours) << '\n';
    colour = next < rows.elements().size() ? colourOf(rows.elements()[next]) : kPlain;
  }
}

std::string countText(std::uint64_t count, const std::string& noun) {
  std::string plural = noun + "s";
  if (noun.ends_with('y')) plural = noun.substr(0, noun.size() - 1) + "ies";
  return std::to_string(count) + " " + (count == 1 ? noun : plural);
}

namespace {

constexpr const char* kVerdicts[] = {"pass", "warn", "fail"};
/// Room for the longest group, "other machine", and the longest check, "exclusive open".
constexpr std::size_t kGroupWidth = 15;
constexpr std::size_t kCheckWidth = 16;

Verdict verdictOf(const std::string& name) {
  const auto* const found = std::find(std::begin(kVerdicts), std::end(kVerdicts), name);
  // A verdict that cannot be read counts as a failure, never as a pass.
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
