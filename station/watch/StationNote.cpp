#include "station/watch/StationNote.h"

#include <algorithm>
#include <tuple>

#include "station/base/Strings.h"
#include "station/os/FolderListing.h"
#include "station/os/SharedFiles.h"

namespace korvel {

namespace {

/// Raised when a reader of this version could not understand what is written.
constexpr long kFormat = 1;

JsonValue cookiesOf(const std::vector<Cookie>& cookies) {
  JsonValue list = JsonValue::array();
  for (const Cookie& cookie : cookies) list.append(utf8Text(cookie.asString()));
  return list;
}

std::vector<Cookie> cookiesIn(const JsonValue& list) {
  std::vector<Cookie> cookies;
  for (const JsonValue& each : list.elements()) {
    const Cookie cookie(each.asString().c_str(), false);
    if (!cookie.isNull()) cookies.push_back(cookie);
  }
  return cookies;
}

JsonValue textsOf(const std::vector<std::string>& texts) {
  JsonValue list = JsonValue::array();
  for (const std::string& text : texts) list.append(shownText(text));
  return list;
}

std::vector<std::string> textsIn(const JsonValue& list) {
  std::vector<std::string> texts;
  for (const JsonValue& each : list.elements()) texts.push_back(each.asString());
  return texts;
}

Error noNote(const std::string& id, const std::string& why) {
  return {ErrorCode::eBadContent,
          "The note " + inQuotes(id + std::string(kRecordEnding)) +
              " of a station cannot be read: " + why + ". Remove it if its station is gone.",
          {}};
}

FoundStation lookAt(const std::string& folder, const std::string& name) {
  FoundStation found;
  const auto content = readStamped(folder + "/" + name, kLargestNote);
  auto note =
      content ? parseNote(content->bytes, noteId(name)) : Result<StationNote>(content.error());
  if (note) {
    found.note = std::move(*note);
  } else {
    found.note.id = noteId(name);
    found.problem = note.error().message;
  }
  found.state = lookAtLock(wideText(noteLock(folder, found.note.id)));
  return found;
}

}  // namespace

const char* FoundStation::stateText() const {
  switch (state) {
    case LockState::eHeld:
      return "here";
    case LockState::eFree:
    case LockState::eLeftBehind:
      return "gone without goodbye";
    case LockState::eUnknown:
      break;
  }
  return "unknown";
}

std::string noteText(const StationNote& note) {
  return writeJsonIndented(JsonValue::object({{"format", kFormat},
                                              {"user", shownText(note.user)},
                                              {"host", shownText(note.host)},
                                              {"machine", note.machine},
                                              {"addresses", textsOf(note.addresses)},
                                              {"version", note.version},
                                              {"since", note.since},
                                              {"project", utf8Text(note.project.asString())},
                                              {"projectName", note.projectName},
                                              {"room", note.room},
                                              {"open", cookiesOf(note.open)},
                                              {"unsaved", cookiesOf(note.unsaved)},
                                              {"sent", note.sent},
                                              {"seal", note.seal},
                                              {"keys", textsOf(note.keys)},
                                              {"written", note.written}})) +
         "\n";
}

Result<StationNote> parseNote(const std::string& bytes, const std::string& id) {
  const auto json = parseJson(bytes);
  if (!json) return noNote(id, json.error().message);
  const JsonValue& note = *json;
  if (!note.isObject() || note["user"].asString().empty()) return noNote(id, "it names no user");
  if (note["format"].asLong() < kFormat) return noNote(id, "it is of an unknown format");
  StationNote read;
  read.id = id;
  read.user = note["user"].asString();
  read.host = note["host"].asString();
  read.machine = static_cast<int>(note["machine"].asLong());
  read.addresses = textsIn(note["addresses"]);
  read.version = note["version"].asString();
  read.since = note["since"].asString();
  read.project = Cookie(note["project"].asString().c_str(), false);
  read.projectName = note["projectName"].asString();
  read.room = note["room"].asString();
  read.open = cookiesIn(note["open"]);
  read.unsaved = cookiesIn(note["unsaved"]);
  read.sent = std::max(0L, note["sent"].asLong());
  read.seal = note["seal"].asString();
  read.keys = textsIn(note["keys"]);
  read.written = note["written"].asString();
  return read;
}

std::string notesFolder(const std::string& projectsDirectory) {
  return projectsDirectory + "/.stations";
}

bool isNoteFile(std::string_view name) {
  return name.size() > kRecordEnding.size() && name.front() != '.' && name.ends_with(kRecordEnding);
}

std::string noteId(std::string_view name) {
  return std::string(name.substr(0, name.size() - kRecordEnding.size()));
}

std::string noteLock(const std::string& folder, const std::string& id) {
  return folder + "/" + id + ".lock";
}

Result<std::vector<FoundStation>> listStations(const std::string& projectsDirectory) {
  const std::string folder = notesFolder(projectsDirectory);
  std::vector<FoundStation> stations;
  const auto listing = listStamped(folder, isNoteFile);
  if (!listing && listing.error().code == ErrorCode::eNotFound) return stations;
  if (!listing) return listing.error();
  for (const auto& [name, stamp] : listing->files) stations.push_back(lookAt(folder, name));
  std::ranges::sort(stations, {}, [](const FoundStation& each) {
    return std::tie(each.note.user, each.note.host, each.note.id);
  });
  return stations;
}

JsonValue shownStation(const FoundStation& station) {
  const StationNote& note = station.note;
  JsonValue shown = JsonValue::object({{"user", shownText(note.user)},
                                       {"host", shownText(note.host)},
                                       {"machine", note.machine},
                                       {"state", station.stateText()},
                                       {"project", shownText(note.projectName)},
                                       {"room", shownText(note.room)},
                                       {"open", cookiesOf(note.open)},
                                       {"unsaved", cookiesOf(note.unsaved)},
                                       {"since", shownText(note.since)},
                                       {"written", shownText(note.written)},
                                       {"sent", note.sent},
                                       {"addresses", textsOf(note.addresses)},
                                       {"version", shownText(note.version)},
                                       {"seal", shownText(note.seal)},
                                       {"keys", textsOf(note.keys)}});
  if (!station.problem.empty()) shown.set("problem", shownText(station.problem));
  return shown;
}

}  // namespace korvel
