#include "app/commands/MessageAdvice.h"

#include <algorithm>
#include <functional>
#include <string_view>

#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/os/SharedFiles.h"
#include "station/project/Names.h"
#include "station/wire/MessageTable.h"

namespace korvel {

namespace {

/// Whether somebody marked as present in the projects directory is so; true where that cannot be
/// told, so that nothing is claimed.
bool isMarked(const std::function<bool(const std::string& user)>& isSo) {
  const auto files = listFresh(settings().projectsDirectory);
  if (!files) return true;
  return std::ranges::any_of(*files, [&isSo](const std::string& file) {
    return file.ends_with(kMarkerEnding) &&
           isSo(file.substr(0, file.size() - kMarkerEnding.size()));
  });
}

}  // namespace

bool isAtWork(const std::string& user) {
  return isMarked([wanted = upperCased(user)](const std::string& marked) {
    return upperCased(marked) == wanted;
  });
}

std::string recipientAdvice(const std::string& user) {
  if (user == kEverybody) return {};
  // Names that differ in capitals alone are different users.
  const bool isOwn = upperCased(user) == upperCased(settings().user);
  const auto isOther = [&user](const std::string& marked) {
    return marked == upperCased(user) && marked != settings().user;
  };
  if (isOwn && !isMarked(isOther)) {
    return "You write to yourself: a station shows none of its own messages as received.";
  }
  if (!isAtWork(user)) {
    return "Nobody of the name " + inQuotes(user) +
           " is at work in the projects directory now: nobody sees your message.";
  }
  const std::string address = upperCased(user);
  if (!isMarked([&address](const std::string& marked) { return marked == address; })) {
    return "Your message went to " + inQuotes(address) +
           ", and the user at work here has the name in other letters: it is not shown there. Have "
           "that station started with --user " +
           inQuotes(address) + ".";
  }
  if (isAscii(user)) return {};
  return "The name " + inQuotes(user) +
         " holds letters that are not ASCII: its station shows your message as a notification "
         "alone, and one of an earlier version not at all.";
}

std::string messageAdvice(const std::string& text) {
  std::string advice;
  if (text.starts_with('d')) {
    advice =
        "Your message begins with a small \"d\", as only messages between stations do: others see "
        "it as a notification alone, and stations of earlier versions not at all. Begin it with a "
        "capital \"D\" or another word.";
  }
  if (travelsWhole(text)) return advice;
  return advice + (advice.empty() ? "" : " ") +
         "Your message holds a character that messages cannot carry, such as \"\u20AC\" or "
         "\"\u00AC\": others see it cut there. Write it without.";
}

}  // namespace korvel
