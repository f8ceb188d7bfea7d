#include "tests/fakes/Journal.h"

#include <algorithm>

#include "host/base/Text.h"

namespace korvel {

namespace {

std::string callText(const std::string& what, std::initializer_list<NotedArgument> arguments) {
  std::string text = what + "(";
  for (const NotedArgument& argument : arguments) {
    if (&argument != arguments.begin()) text += ", ";
    text += argument.text;
  }
  return text + ")";
}

}  // namespace

NotedArgument::NotedArgument(const LightweightString<wchar_t>& value) : text(toUTF8(value).str()) {}

void Journal::did(const std::string& what, std::initializer_list<NotedArgument> arguments) {
  note(callText(what, arguments));
}

void Journal::asked(const std::string& what, std::initializer_list<NotedArgument> arguments) {
  note("? " + callText(what, arguments));
}

std::vector<std::string> Journal::effects() const {
  std::vector<std::string> effects;
  std::copy_if(lines_.begin(), lines_.end(), std::back_inserter(effects),
               [](const std::string& line) { return line.rfind("? ", 0) != 0; });
  return effects;
}

int Journal::count(const std::string& line) const {
  return static_cast<int>(std::count(lines_.begin(), lines_.end(), line));
}

void Journal::note(const std::string& line) {
  lines_.push_back(line);
  if (onLine) onLine(line);
}

}  // namespace korvel
