#include "tools/base/Tool.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string_view>

#include "station/base/Rendering.h"
#include "station/base/Strings.h"
#include "tools/base/ToolHost.h"

namespace korvel {

namespace {

/// DEL, and the controls from U+0080 to U+009F (C2 80 to C2 9F), as JSON escapes; those below the
/// blank are escaped already.
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
  const bool isWanted = !refused || !*refused;
  return isWanted && hasColours && isatty(STDOUT_FILENO) ? Colours::eTerminal : Colours::eNone;
}

std::string coloured(const std::string& text, const char* colour, Colours colours) {
  if (colours == Colours::eNone || colour == kPlain) return text;
  return colour + text + kPlain;
}

void printTable(const JsonValue& rows, const char* (*colourOf)(const JsonValue& row)) {
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

}  // namespace korvel
