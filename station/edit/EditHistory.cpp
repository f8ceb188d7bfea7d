#include "station/edit/EditHistory.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <utility>

#include "station/base/Strings.h"
#include "station/edit/EditActions.h"
#include "station/edit/EditFile.h"
#include "station/edit/Edits.h"
#include "station/edit/OtioDocument.h"
#include "station/edit/Timecode.h"
#include "station/keep/VersionFolder.h"
#include "station/os/FolderListing.h"
#include "station/os/SharedFiles.h"

namespace korvel {

namespace {

using Clips = std::vector<ClipInfo>;
using Words = std::vector<std::string>;

/// Above this many pairs clips are matched by their places alone: a table of 16 million pairs takes
/// 64 MB.
constexpr std::size_t kMostPairs = 16'000'000;

constexpr std::size_t kMostInSummary = 3;

bool isSameKind(const ClipInfo& a, const ClipInfo& b) {
  return a.schema == b.schema && a.name == b.name;
}

bool isSameRange(const ClipInfo& a, const ClipInfo& b) {
  constexpr double kTolerance = 1e-9;
  if (a.hasRange != b.hasRange) return false;
  return !a.hasRange || (std::abs(a.range.start - b.range.start) < kTolerance &&
                         std::abs(a.range.end - b.range.end) < kTolerance);
}

std::string title(const ClipInfo& clip) {
  std::string kind = clip.schema.substr(0, clip.schema.find('.'));
  if (!kind.empty() && kind[0] >= 'A' && kind[0] <= 'Z') kind[0] = static_cast<char>(kind[0] + 32);
  if (kind.empty()) kind = "item";
  return kind + " " + (clip.name.empty() ? "at " + clip.path : inQuotes(clip.name));
}

std::string calledAs(const ClipInfo& clip) { return clip.name.empty() ? clip.path : clip.name; }

std::string rangeText(const ClipInfo& clip) {
  if (!clip.hasRange) return "all";
  const Timecode timecode(clip.rate);
  return timecode.textAt(clip.range.start) + "-" + timecode.textAt(clip.range.end);
}

/// Walks both lists and says what became of each clip of the first.
class ClipComparison {
 public:
  ClipComparison(const Clips& before, const Clips& after) : before_(before), after_(after) {}

  std::vector<ClipChange> changes() {
    const std::size_t shorter = std::min(before_.size(), after_.size());
    // Most versions differ in a few clips: the common beginning and end need no table.
    while (first_ < shorter && isSameKind(before_[first_], after_[first_])) {
      compare(before_[first_], after_[first_]);
      ++first_;
    }
    while (behind_ < shorter - first_ && isSameKind(fromEnd(before_), fromEnd(after_))) {
      compare(fromEnd(before_), fromEnd(after_));
      ++behind_;
    }
    compareMiddle();
    return std::move(changes_);
  }

 private:
  using Kind = ClipChange::Kind;

  [[nodiscard]] const ClipInfo& fromEnd(const Clips& clips) const {
    return clips[clips.size() - 1 - behind_];
  }

  void compare(const ClipInfo& before, const ClipInfo& after) {
    if (isSameRange(before, after)) return;
    changes_.push_back(
        {Kind::eTrimmed, before.path, after.path,
         title(after) + " trimmed to " + rangeText(after) + ", was " + rangeText(before),
         calledAs(after)});
  }

  void removed(const ClipInfo& clip) { removed_.push_back(&clip); }
  void added(const ClipInfo& clip) { added_.push_back(&clip); }

  void compareMiddle() {
    const std::size_t rows = before_.size() - first_ - behind_;
    const std::size_t columns = after_.size() - first_ - behind_;
    if (rows * columns > kMostPairs) {
      for (std::size_t i = 0; i < rows; ++i) removed(before_[first_ + i]);
      for (std::size_t i = 0; i < columns; ++i) added(after_[first_ + i]);
    } else {
      walk(rows, columns, longestCommon(rows, columns));
    }
    tellTheRest();
  }

  /// For each pair of ends, how many clips both have in common in the same order.
  [[nodiscard]] std::vector<std::uint32_t> longestCommon(std::size_t rows,
                                                         std::size_t columns) const {
    std::vector<std::uint32_t> table((rows + 1) * (columns + 1), 0);
    for (std::size_t row = rows; row-- > 0;) {
      for (std::size_t column = columns; column-- > 0;) {
        const std::size_t here = row * (columns + 1) + column;
        const bool isSame = isSameKind(before_[first_ + row], after_[first_ + column]);
        table[here] = isSame ? table[here + columns + 2] + 1
                             : std::max(table[here + 1], table[here + columns + 1]);
      }
    }
    return table;
  }

  void walk(std::size_t rows, std::size_t columns, const std::vector<std::uint32_t>& table) {
    std::size_t row = 0;
    std::size_t column = 0;
    while (row < rows || column < columns) {
      const std::size_t here = row * (columns + 1) + column;
      const bool isInside = row < rows && column < columns;
      if (isInside && isSameKind(before_[first_ + row], after_[first_ + column])) {
        compare(before_[first_ + row++], after_[first_ + column++]);
      } else if (column >= columns || (isInside && table[here + columns + 1] >= table[here + 1])) {
        removed(before_[first_ + row++]);
      } else {
        added(after_[first_ + column++]);
      }
    }
  }

  using Places = std::map<std::string, const ClipInfo*>;

  /// Where each clip that was removed is now, of those that are the same in another place; taken
  /// from those that were added. A gap has no name to know it by.
  std::map<const ClipInfo*, const ClipInfo*> takeMoved(Places& newAt) const {
    std::multimap<std::string, const ClipInfo*> named;
    for (const ClipInfo* clip : added_) named.emplace(clip->name, clip);
    std::map<const ClipInfo*, const ClipInfo*> moved;
    for (const ClipInfo* clip : removed_) {
      if (clip->name.empty()) continue;
      auto [at, end] = named.equal_range(clip->name);
      while (at != end && !(isSameKind(*at->second, *clip) && isSameRange(*at->second, *clip)))
        ++at;
      if (at == end) continue;
      newAt.erase(at->second->path);
      moved[clip] = at->second;
      named.erase(at);
    }
    return moved;
  }

  /// A clip that was removed and one that was added in the same place with the same range is the
  /// same clip under another name; one of the same name and range elsewhere is the same clip.
  void tellTheRest() {
    Places newAt;
    for (const ClipInfo* clip : added_) newAt[clip->path] = clip;
    const auto moved = takeMoved(newAt);
    for (const ClipInfo* clip : removed_) {
      if (const auto place = moved.find(clip); place != moved.end()) {
        changes_.push_back({Kind::eMoved, clip->path, place->second->path, title(*clip) + " moved",
                            calledAs(*clip)});
        continue;
      }
      const auto there = newAt.find(clip->path);
      const bool isRenamed = there != newAt.end() && there->second->schema == clip->schema &&
                             clip->hasRange && isSameRange(*clip, *there->second);
      if (isRenamed) {
        changes_.push_back({Kind::eRenamed, clip->path, clip->path,
                            title(*clip) + " renamed to " + inQuotes(there->second->name),
                            calledAs(*clip), there->second->name});
        newAt.erase(there);
      } else {
        changes_.push_back(
            {Kind::eRemoved, clip->path, {}, title(*clip) + " removed", calledAs(*clip)});
      }
    }
    for (const ClipInfo* clip : added_) {
      if (!newAt.contains(clip->path)) continue;
      changes_.push_back({Kind::eAdded, {}, clip->path, title(*clip) + " added", calledAs(*clip)});
    }
  }

  const Clips& before_;
  const Clips& after_;
  std::size_t first_ = 0;   ///< how many clips both begin with
  std::size_t behind_ = 0;  ///< how many both end with
  std::vector<const ClipInfo*> removed_;
  std::vector<const ClipInfo*> added_;
  std::vector<ClipChange> changes_;
};

/// Compares two versions without their stamps, which differ between any two saves.
bool holdSame(OtioDocument before, OtioDocument after) {
  before.setStamp({});
  after.setStamp({});
  return before.json() == after.json();
}

std::string ownerText(const OtioDocument& document) {
  const std::string owner = document.setting(EditFile::kOwnerKey);
  return owner.empty() ? "nobody" : shownText(owner);
}

}  // namespace

std::vector<ClipChange> clipChangesOf(const OtioDocument& before, const OtioDocument& after) {
  const Clips old = listClips(before.json());
  const Clips now = listClips(after.json());
  return ClipComparison(old, now).changes();
}

std::vector<std::string> differencesOf(const OtioDocument& before, const OtioDocument& after) {
  Words words;
  if (before.name() != after.name()) {
    words.push_back("renamed to " + inQuotes(after.name()) + ", was " + inQuotes(before.name()));
  }
  if (ownerText(before) != ownerText(after)) {
    words.push_back("owner " + ownerText(after) + ", was " + ownerText(before));
  }
  for (ClipChange& each : clipChangesOf(before, after)) words.push_back(std::move(each.words));
  if (words.empty() && !holdSame(before, after)) words.emplace_back("other content changed");
  return words;
}

namespace {

const char* didText(ClipChange::Kind kind) {
  switch (kind) {
    case ClipChange::Kind::eTrimmed:
      return "trimmed";
    case ClipChange::Kind::eMoved:
      return "moved";
    case ClipChange::Kind::eRenamed:
      return "clip renamed";
    case ClipChange::Kind::eAdded:
      return "added";
    case ClipChange::Kind::eRemoved:
      break;
  }
  return "removed";
}

}  // namespace

std::vector<Deed> deedsOf(const OtioDocument& before, const OtioDocument& after) {
  std::vector<Deed> deeds;
  if (before.name() != after.name()) {
    deeds.push_back({"renamed", {}, {}, before.name(), after.name()});
  }
  const std::string owner = after.setting(EditFile::kOwnerKey);
  if (owner != before.setting(EditFile::kOwnerKey)) deeds.push_back({"given", {}, {}, {}, owner});
  for (const ClipChange& each : clipChangesOf(before, after)) {
    const bool isRenamed = each.kind == ClipChange::Kind::eRenamed;
    deeds.push_back({didText(each.kind), each.clip, each.after,
                     isRenamed ? each.clip : std::string(), each.to});
  }
  if (deeds.empty() && !holdSame(before, after)) deeds.push_back({"changed"});
  return deeds;
}

Deed deedOf(const EditModification& modification, const OtioDocument& before) {
  if (modification.type_ == eModRename) {
    return {"renamed", {}, {}, before.name(), modification.value_.str()};
  }
  if (modification.type_ != eModTrim) return {"changed"};
  const std::string path = modification.subject_.str();
  const auto clip = clipAt(before.json(), path);
  return {"trimmed", clip ? calledAs(*clip) : path, path};
}

std::string deedText(const Deed& deed) {
  const std::string clip = shownText(deed.clip);
  if (deed.did == "renamed") return "renamed it to " + shownText(deed.to);
  if (deed.did == "clip renamed") return "renamed " + clip + " to " + shownText(deed.to);
  if (deed.did == "given") return "gave it to " + (deed.to.empty() ? "nobody" : shownText(deed.to));
  if (deed.did == "restored") return "brought it back";
  return deed.did + " " + (clip.empty() ? "it" : clip);
}

std::string summaryOf(const std::vector<std::string>& differences) {
  if (differences.empty()) return "nothing differs";
  std::string text;
  if (differences.size() <= kMostInSummary) {
    for (const std::string& each : differences) text += (text.empty() ? "" : "; ") + each;
    return text;
  }
  std::map<std::string, int> counts;
  for (const std::string& each : differences) {
    const char* kind = "other change";
    if (each.ends_with(" added")) kind = "added";
    if (each.ends_with(" removed")) kind = "removed";
    if (each.ends_with(" moved")) kind = "moved";
    if (each.find(" trimmed to ") != std::string::npos) kind = "trimmed";
    if (each.find("renamed to ") != std::string::npos) kind = "renamed";
    ++counts[kind];
  }
  for (const auto& [kind, count] : counts) {
    text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + kind;
  }
  return text;
}

namespace {

Result<OtioDocument> documentOf(const std::string& path) {
  const auto bytes = readListed(path);
  if (!bytes) return bytes.error();
  auto document = OtioDocument::parse(*bytes);
  if (document) return document;
  return Error{ErrorCode::eBadContent,
               path + " cannot be read and is left as it is: " + document.error().message, path};
}

/// One version in the list; `before` is the one that it replaced, where that is known.
JsonValue rowOf(const Version& version, const std::string& text,
                const Result<OtioDocument>& document, const std::optional<OtioDocument>& before) {
  JsonValue row = JsonValue::object({{"version", text},
                                     {"time", utcText(version.modified)},
                                     {"user", ""},
                                     {"size", static_cast<unsigned long>(version.size)},
                                     {"now", false},
                                     {"changes", ""},
                                     {"problem", ""}});
  if (!document) {
    row.set("problem", document.error().message);
    return row;
  }
  const SaveStamp stamp = document->stamp();
  // A file that another program made of a save bears that save's stamp.
  row.set("user", shownText(stamp.by));
  if (!stamp.at.empty()) row.set("time", shownText(stamp.at));
  if (before) row.set("changes", summaryOf(differencesOf(*before, *document)));
  return row;
}

/// The versions on the disk, and the file itself where no version is kept of it yet.
Result<std::vector<Version>> versionsOf(const Cookie& cookie, std::string& markNow) {
  const std::string path = openEdits().pathFor(cookie);
  auto versions = VersionFolder(path).list();
  if (!versions) return versions;
  const auto bytes = readFresh(path);
  if (!bytes) return versions;
  markNow = VersionFolder::markOf(std::hash<std::string_view>()(*bytes));
  if (std::ranges::find(*versions, markNow, &Version::mark) != versions->end()) return versions;
  const auto document = OtioDocument::parse(*bytes);
  const auto identity = stampOfFile(path);
  if (!document || !identity) return versions;
  constexpr std::int64_t kNanoseconds = 1'000'000'000;
  versions->push_back(
      {path, document->stamp().number, markNow, identity->modified / kNanoseconds, bytes->size()});
  return versions;
}

Result<void> requireKnown(const Cookie& cookie) {
  if (openEdits().holds(cookie)) return {};
  return Error{
      ErrorCode::eNotFound, "The open project has no edit " + cookie.asString().str() + ".", {}};
}

/// The object as it is shown, unsaved changes included.
Result<OtioDocument> shownDocument(const Cookie& cookie) {
  const auto edit = openEdits().hold(cookie);
  if (!edit) return edit.error();
  OtioDocument document = (*edit)->document();
  openEdits().release(*edit);
  return document;
}

/// What the edit's file held when it was read here, if that version is kept.
std::optional<OtioDocument> baseOf(const EditFile& edit) {
  const auto versions = VersionFolder(edit.path()).list();
  if (!versions) return {};
  for (const Version& each : *versions) {
    // By content: a number alone may belong to two versions, saved at the same time.
    if (each.mark != edit.saved().mark()) continue;
    auto document = documentOf(each.path);
    if (document) return std::move(*document);
  }
  return {};
}

Result<EditHistory::OtherVersion> otherVersionOf(const EditFile& edit) {
  EditHistory::OtherVersion found;
  const auto bytes = readFresh(edit.path());
  found.isGone = !bytes && bytes.error().code == ErrorCode::eNotFound;
  if (found.isGone) return found;
  if (!bytes) return bytes.error();
  const auto other = OtioDocument::parse(*bytes);
  if (!other) {
    found.problem = other.error().message;
    return found;
  }
  const SaveStamp stamp = other->stamp();
  if (!stamp.by.empty() && !(stamp == edit.document().stamp())) {
    found.by = stamp.by;
    found.at = stamp.at;
  }
  const auto base = baseOf(edit);
  found.isKnown = base.has_value();
  found.changes = differencesOf(base ? *base : edit.document(), *other);
  return found;
}

/// Which user saved it after it was read here, when, and what differs.
std::string whatHappened(const EditHistory::OtherVersion& other) {
  const std::string who =
      other.by.empty() ? "was changed by another program"
                       : "was saved by " + shownText(other.by) + " (" + shownText(other.at) + ")";
  return who + "; " + (other.isKnown ? "it changed: " : "from yours it differs in: ") +
         summaryOf(other.changes);
}

}  // namespace

Result<JsonValue> EditHistory::list(const Cookie& cookie) {
  if (auto known = requireKnown(cookie); !known) return known.error();
  std::string markNow;
  const auto versions = versionsOf(cookie, markNow);
  if (!versions) return versions.error();
  std::vector<JsonValue> rows;
  std::optional<OtioDocument> before;
  for (const Version& version : *versions) {
    auto document = documentOf(version.path);
    rows.push_back(rowOf(version, VersionFolder::textOf(version, *versions), document, before));
    rows.back().set("now", version.mark == markNow);
    if (document) before = std::move(*document);
  }
  JsonValue all = JsonValue::array();
  std::for_each(rows.rbegin(), rows.rend(), [&](JsonValue& row) { all.append(std::move(row)); });
  return all;
}

Result<OtioDocument> EditHistory::read(const Cookie& cookie, const std::string& version) {
  if (auto known = requireKnown(cookie); !known) return known.error();
  std::string markNow;
  const auto versions = versionsOf(cookie, markNow);
  if (!versions) return versions.error();
  const auto found = VersionFolder::find(version, *versions);
  if (!found) return found.error();
  return documentOf(found->path);
}

Result<JsonValue> EditHistory::compare(const Cookie& cookie, const std::string& from,
                                       const std::string& to) {
  if (auto known = requireKnown(cookie); !known) return known.error();
  const auto before = from.empty() ? documentOf(openEdits().pathFor(cookie)) : read(cookie, from);
  if (!before) return before.error();
  const auto after = to.empty() ? shownDocument(cookie) : read(cookie, to);
  if (!after) return after.error();
  JsonValue all = JsonValue::array();
  for (const std::string& each : differencesOf(*before, *after)) all.append(each);
  return all;
}

bool EditHistory::takeChangedSettings(EditFile& edit) {
  const auto bytes = readFresh(edit.path());
  if (!bytes) return false;
  const auto other = OtioDocument::parse(*bytes);
  const auto base = baseOf(edit);
  // Without the version that was read it cannot be told whether content changed, so it counts as
  // changed.
  if (!other || !base || !base->hasContentOf(*other)) return false;
  edit.takeSettings(*other, *bytes);
  return true;
}

Result<EditHistory::OtherVersion> EditHistory::otherVersion(const Cookie& cookie) {
  const EditFile* const edit = openEdits().loaded(cookie);
  if (edit) return otherVersionOf(*edit);
  return Error{ErrorCode::eNotFound, "The edit " + cookie.asString().str() + " is not loaded.", {}};
}

Error EditHistory::refusalOf(const EditFile& edit) {
  const std::string title = EditActions::titleOf(edit.getCookie());
  const std::string name = inQuotes(openEdits().nameOf(edit.getCookie()));
  const std::string beside = "\"edit save-copy\" saves yours beside it";
  const std::string over =
      "\"edit save " + name + " --over\" saves yours all the same (the other stays in the history)";
  const auto other = otherVersionOf(edit);
  if (!other) return other.error();
  if (other->isGone) {
    return {ErrorCode::eChanged,
            "The " + title + " was not saved: its file is gone since you opened it. \"edit save " +
                name + " --over\" makes it again, " + beside + ".",
            edit.path()};
  }
  if (!other->problem.empty()) {
    return {
        ErrorCode::eChanged,
        "The " + title +
            " was not saved: its file was changed since you opened it, and cannot be read now: " +
            other->problem + ". " + over + ", " + beside + ".",
        edit.path()};
  }
  return {ErrorCode::eChanged,
          "The " + title + " was not saved: since you opened it, it " + whatHappened(*other) +
              ". " + over + ", " + beside + ", \"edit revert\" drops your changes.",
          edit.path()};
}

}  // namespace korvel
