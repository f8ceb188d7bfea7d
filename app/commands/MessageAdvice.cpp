#include "app/commands/MessageAdvice.h"

#include "station/project/ObjectNames.h"

namespace korvel {

std::string messageAdvice(const std::string& text) {
  if (text.starts_with('d')) {
    return "Your message begins with a small \"d\", as only messages between stations do: others "
           "do "
           "not see it. Begin it with a capital \"D\" or another word.";
  }
  if (travelsWhole(text)) return {};
  return "Your message holds a character that messages cannot carry, such as \"\u20AC\" or "
         "\"\u00AC\": others see it cut there. Write it without.";
}

}  // namespace korvel
