#include "station/edit/EditHistory.h"

#include <algorithm>
#include <ctime>
#include <optional>
#include <utility>

#include "station/base/Strings.h"
#include "station/edit/EditActions.h"
#include "station/edit/EditDifference.h"
#include "station/edit/Edits.h"
#include "station/keep/VersionFolder.h"
#include "station/os/FolderListing.h"
#include "station/os/SharedFiles.h"

namespace korvel {

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
  // A file of the same number that no station wrote has the stamp of the one it was made from.
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

/// Who put it in the place of the one that was read, when, and what differs.
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
  const auto found = VersionFolder(openEdits().pathFor(cookie)).find(version);
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
            other->problem + " " + beside + ".",
        edit.path()};
  }
  return {ErrorCode::eChanged,
          "The " + title + " was not saved: since you opened it, it " + whatHappened(*other) +
              ". \"edit save " + name +
              " --over\" saves yours all the same (the other stays in the history), " + beside +
              ", \"edit revert\" drops your changes.",
          edit.path()};
}

}  // namespace korvel
