#pragma once

#include <string>
#include <vector>

#include "host/base/Cookie.h"
#include "host/edit/EditModification.h"
#include "station/base/Json.h"
#include "station/base/Result.h"
#include "station/edit/EditFile.h"
#include "station/edit/OtioDocument.h"

namespace korvel {

/// What became of one clip from one version of an edit to another.
struct ClipChange {
  enum class Kind { eTrimmed, eMoved, eRenamed, eAdded, eRemoved };
  Kind kind = Kind::eTrimmed;
  std::string before;  ///< its path in the earlier version; empty for one that was added
  std::string after;   ///< its path in the later one; empty for one that was removed
  std::string words;   ///< the same for people
  std::string clip;    ///< its name, in the earlier version where it was renamed; else its path
  std::string to{};    ///< its new name where it was renamed; else empty
};

/// The clips that are not the same in both versions.
std::vector<ClipChange> clipChangesOf(const OtioDocument& before, const OtioDocument& after);

/// What became of one version of an edit in another, in words, one difference each: names, owner,
/// clips added, removed, trimmed and renamed; "other content changed" where only something else
/// differs. Empty where they hold the same. Who saved them and when does not count.
std::vector<std::string> differencesOf(const OtioDocument& before, const OtioDocument& after);

/// One thing that somebody did to an edit or log.
struct Deed {
  /// "trimmed", "moved", "added", "removed" and "clip renamed" of clips; "renamed" and "given" of
  /// the whole; "saved", "changed", "made", "deleted" and "restored" where no more can be said.
  std::string did;
  std::string clip{};  ///< what the clip is called; empty for the whole
  std::string path{};  ///< where it is in the later version; empty for the whole, and for one gone
  std::string was{};   ///< the name before a renaming
  std::string to{};    ///< the new name, or the new owner

  bool operator==(const Deed&) const = default;
};

/// What was done between two versions of an edit, the whole first: as differencesOf(), with
/// "changed" where only other content differs, and nothing where they hold the same.
std::vector<Deed> deedsOf(const OtioDocument& before, const OtioDocument& after);

/// What a modification does to an edit that holds `before`.
Deed deedOf(const EditModification& modification, const OtioDocument& before);

/// "trimmed Clip-002", "renamed it to Quay", "saved it".
std::string deedText(const Deed& deed);

/// The same in one short line, with more than three differences of clips counted by kind.
std::string summaryOf(const std::vector<std::string>& differences);

// The kept versions of the open project's edits and logs, as users see them. Host thread.
namespace EditHistory {

/// All versions, the newest first: version, time, user, size, changes, and which one is the file as
/// it is now. One that cannot be read has a problem instead of changes.
Result<JsonValue> list(const Cookie& cookie);

/// What became of `from` in `to`, in words. An empty `to` is the object as it is shown, unsaved
/// changes included; an empty `from` is its file.
Result<JsonValue> compare(const Cookie& cookie, const std::string& from, const std::string& to);

/// The document of a version.
Result<OtioDocument> read(const Cookie& cookie, const std::string& version);

/// Takes up what another wrote into an object's file where that is settings alone (a new owner), so
/// that the object can be saved; false where other content differs.
bool takeChangedSettings(EditFile& edit);

/// What became of an object's file since it was read here.
struct OtherVersion {
  bool isGone = false;
  std::string problem;   ///< why the file is no edit any more; empty when it is
  std::string by;        ///< the user who saved it; empty where another program changed it
  std::string at;        ///< when, "2024-05-31T12:00:00Z"; empty like `by`
  bool isKnown = false;  ///< whether what was read here is still known, to tell what changed
  std::vector<std::string> changes;  ///< what changed in the file; else in what it differs from
                                     ///< the object as it is shown
};

/// Looks at the file of a loaded object of the open project; a failure where it is not loaded or
/// the share cannot be read.
Result<OtherVersion> otherVersion(const Cookie& cookie);

/// Why an object is not saved whose file another changed: who did, when, what differs, and what can
/// be done.
Error refusalOf(const EditFile& edit);

}  // namespace EditHistory

}  // namespace korvel
