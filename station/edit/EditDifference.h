#pragma once

#include <string>
#include <vector>

#include "station/edit/OtioDocument.h"

namespace korvel {

/// What became of one clip from one version of an edit to another.
struct ClipChange {
  enum class Kind { eTrimmed, eRenamed, eAdded, eRemoved };
  Kind kind = Kind::eTrimmed;
  std::string before;  ///< its path in the earlier version; empty for one that was added
  std::string after;   ///< its path in the later one; empty for one that was removed
  std::string words;   ///< the same for people
};

/// The clips that are not the same in both versions.
std::vector<ClipChange> clipChangesOf(const OtioDocument& before, const OtioDocument& after);

/// What became of one version of an edit in another, in words, one difference each: names, owner,
/// clips added, removed, trimmed and renamed; "other content changed" where only something else
/// differs. Empty where they hold the same. Who saved them and when does not count.
std::vector<std::string> differencesOf(const OtioDocument& before, const OtioDocument& after);

/// The same in one short line, with more than three differences of clips counted by kind.
std::string summaryOf(const std::vector<std::string>& differences);

}  // namespace korvel
