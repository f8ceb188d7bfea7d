#include <cstring>
#include <iostream>
#include <optional>
#include <sstream>

#include "tools/base/CommandLine.h"
#include "tools/wire/MessageReport.h"

namespace korvel {

namespace {

struct Request {
  std::string file;
  bool isHex = false;
};

int digitOf(char letter) {
  if (letter >= '0' && letter <= '9') return letter - '0';
  if (letter >= 'a' && letter <= 'f') return letter - 'a' + 10;
  if (letter >= 'A' && letter <= 'F') return letter - 'A' + 10;
  return -1;
}

/// The bytes that hex digits stand for; blanks and colons between them do not count.
std::optional<std::string> bytesOfHex(const std::string& line) {
  std::string bytes;
  int high = -1;
  for (const char letter : line) {
    if (std::strchr(" \t\r:", letter)) continue;
    const int digit = digitOf(letter);
    if (digit < 0) return std::nullopt;
    if (high >= 0) bytes += static_cast<char>(high * 16 + digit);
    high = high >= 0 ? -1 : digit;
  }
  if (high >= 0) return std::nullopt;
  return bytes;
}

ToolStatus show(const std::string& datagram) {
  const JsonValue message = describeMessage(datagram);
  printJson(message);
  return message["valid"].asBool() ? eToolDone : eToolFinding;
}

std::string placeOf(const Request& request, int line) {
  return (request.file.empty() ? "standard input" : request.file) + " line " + std::to_string(line);
}

ToolStatus decodeHexLines(const Request& request, const std::string& input) {
  ToolStatus status = eToolDone;
  std::istringstream lines(input);
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    if (line.find_first_not_of(" \t\r") == line.npos) continue;
    const auto bytes = bytesOfHex(line);
    status = std::max(
        status, bytes ? show(*bytes)
                      : toolProblem(eToolUsage, placeOf(request, number) +
                                                    " is not pairs of hex digits; it is left out"));
  }
  return status;
}

ToolStatus decode(const Request& request) {
  std::string input;
  if (!readInput(request.file, input)) {
    return toolProblem(eToolUsage, request.file + " cannot be read (" + std::strerror(errno) + ")");
  }
  return request.isHex ? decodeHexLines(request, input) : show(input);
}

}  // namespace

void addDecodeCommand(CommandLine& line) {
  line.add<Request>(
      {"decode", "Show what datagrams say, one JSON object each",
       [](CommandOptions& options, Request& request) {
         options.flag("--hex", request.isHex, "The input is one datagram a line, in hex");
         options.optionalWord("FILE", request.file, "The input; standard input by default");
         options.footer(
             "Exit status: 0; 1 when a message is not valid; 2 for an input that cannot be read.");
       },
       decode});
}

}  // namespace korvel
