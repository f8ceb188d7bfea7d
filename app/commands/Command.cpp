#include "app/commands/Command.h"

#include <algorithm>
#include <cassert>

#include "station/base/Strings.h"

namespace korvel {

namespace {

std::size_t wordCount(const std::string& name) {
  return static_cast<std::size_t>(std::count(name.begin(), name.end(), ' ')) + 1;
}

std::string joined(const std::vector<std::string>& words, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < std::min(count, words.size()); ++i) {
    if (i > 0) text += ' ';
    text += words[i];
  }
  return text;
}

}  // namespace

void CommandTable::add(Command command) {
  const std::string name = command.name;
  longestName_ = std::max(longestName_, wordCount(name));
  [[maybe_unused]] const bool isNew = commands_.emplace(name, std::move(command)).second;
  assert(isNew && "two commands of one name");
}

const Command* CommandTable::find(const std::vector<std::string>& words,
                                  std::size_t& nameWords) const {
  for (nameWords = std::min(words.size(), longestName_); nameWords > 0; --nameWords) {
    const auto found = commands_.find(joined(words, nameWords));
    if (found != commands_.end()) return &found->second;
  }
  return nullptr;
}

std::string CommandTable::nearest(const std::vector<std::string>& words) const {
  std::string nearest;
  std::size_t least = ~std::size_t{0};
  for (const auto& [name, command] : commands_) {
    const std::string typed = joined(words, wordCount(name));
    if (nearestName(typed, {name}).empty()) continue;
    const std::size_t distance = editDistance(typed, name);
    if (distance >= least) continue;
    least = distance;
    nearest = name;
  }
  return nearest;
}

}  // namespace korvel
