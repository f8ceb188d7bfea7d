#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include "host/base/Log.h"
#include "host/base/Text.h"
#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "station/containers/Containers.h"
#include "station/edit/EditSummary.h"
#include "station/edit/Timecode.h"
#include "station/keep/RecoveryFolder.h"
#include "station/keep/TrashFolder.h"
#include "station/keep/VersionFolder.h"
#include "station/os/FolderListing.h"
#include "station/os/Posix.h"
#include "station/os/ReadCache.h"
#include "station/os/SharedFiles.h"
#include "station/project/Names.h"
#include "station/project/ProjectFolder.h"
#include "station/project/Records.h"
#include "station/seal/Seals.h"
#include "station/talk/Asks.h"
#include "station/talk/Conversation.h"
#include "station/watch/StationNote.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/fuzz/Parsers.h"

namespace korvel {

namespace {

/// What was read is written so that it reads back the same, on one line and on many.
void checkJsonText(std::string_view bytes) {
  const auto value = parseJson(bytes);
  if (!value) return;
  for (const std::string& text : {writeJson(*value), writeJsonIndented(*value)}) {
    const auto again = parseJson(text);
    mustBeEqual("JSON", again && *again == *value ? "same" : text, "same");
  }
}

/// A bin and a filter of any bytes are shown as records or left out; the files stay.
void checkRecord(std::string_view bytes) {
  static Bins bins;
  static Filters filters;
  OpenProject project;
  project.cookie = Cookie("P0001", false);
  project.folder = std::filesystem::path(placed("P0001/G0001.json", bytes)).parent_path();
  placed("P0001/F0001.json", bytes);
  for (ContainerPart* const part : std::initializer_list<ContainerPart*>{&bins, &filters}) {
    part->enter(project, {"G0001.json", "F0001.json"});
    mustBeEqual("state", parseJson(writeJson(part->state())) ? "JSON" : "none", "JSON");
    part->leave();
  }
  mustBeEqual("file", *readListed(project.folder + "/G0001.json"), bytes);
}

/// A project's record has a name that can be shown, or is refused with a sentence that can.
void checkProject(std::string_view bytes) {
  placed("P0002/project.json", bytes);
  const auto record = readProjectRecord(Cookie("P0002", false));
  if (!record) mustBeShowable("refusal", record.error().message);
}

/// A station's note is written so that it reads back the same, and is shown without control
/// characters.
void checkNote(std::string_view bytes) {
  const auto note = parseNote(std::string(bytes), "fuzz");
  if (!note) return;
  const auto again = parseNote(noteText(*note), "fuzz");
  mustBeEqual("note", again ? "read" : again.error().message, "read");
  mustBeEqual("note", noteText(*again), noteText(*note));
  const JsonValue shown = shownStation({*note, LockState::eHeld, {}});
  for (const auto& [key, value] : shown.members()) mustBeShowable(key.c_str(), value.asString());
}

/// A key is found by the identifier that it has, and one at most is used.
void checkKeyRing(std::string_view bytes) {
  const auto ring = KeyRing::parse(std::string(bytes), "keys");
  if (!ring) return mustBeShowable("refusal", ring.error().message);
  std::size_t used = 0;
  for (const SealKey& key : ring->keys()) {
    const std::string id(key.id.begin(), key.id.end());
    mustBeEqual("key", ring->find(id) ? ring->find(id)->idText() : "none", key.idText());
    used += key.isUsed ? 1 : 0;
  }
  mustBeEqual("used", used > 1 ? "several" : "one at most", "one at most");
}

/// Without the key nobody makes a seal that is taken where one is required, and what is taken
/// elsewhere is the text alone. With it everybody takes apart what was put together.
void checkSeal(std::string_view bytes) {
  static const KeyRing ring = [] {
    KeyRing made;
    static_cast<void>(made.add());
    return made;
  }();
  static Seals strict(SealPolicy::eRequire, ring, 1);
  static Seals open(SealPolicy::eAccept, ring, 1);
  const std::int64_t now = millisecondsNow();
  mustBeEqual("stranger", strict.judge(bytes, now).isTaken() ? "taken" : "dropped", "dropped");
  const Seals::Judged judged = open.judge(bytes, now);
  mustBeEqual("text", judged.text, bytes.substr(0, judged.text.size()));
  const std::string_view text = takeSealApart(bytes).text;
  Seal seal;
  seal.key = ring.used()->id;
  const std::string datagram = sealed(text, seal, *ring.used());
  mustBeEqual("sealed text", takeSealApart(datagram).text, text);
  mustBeEqual("seal", isSealedWith(datagram, *ring.used()) ? "whole" : "broken", "whole");
}

/// A room's name comes back from its file name, and a file name from the room's name.
void checkRoomName(std::string_view bytes) {
  const std::string text(bytes);
  mustBeEqual("escaped", unescapedFromFile(escapedForFile(text)), text);
  if (const auto file = roomFileName(text)) mustBeEqual("room", roomNameOf(*file), text);
  const std::string room = roomNameOf(text);
  if (!room.empty()) mustBeEqual("file name", *roomFileName(room), text);
}

/// Makes an empty file of each line that can be a file's name, in a new folder.
std::string folderOfNames(const std::string& name, std::string_view lines) {
  const std::string folder = placed(name, {});
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
  std::istringstream names{std::string(lines)};
  for (std::string each; std::getline(names, each);) {
    if (each.find('/') == each.npos) std::ofstream(folder + "/" + each);
  }
  return folder;
}

/// Of any names in a trash those of deletions are listed, and their times can be told.
void checkTrash(std::string_view bytes) {
  folderOfNames("P0003/.trash", bytes);
  const TrashFolder trash(placed("P0003/-", {}).substr(0, placed("P0003/-", {}).size() - 2));
  const auto all = trash.list();
  mustBeEqual("trash", all ? "listed" : all.error().message, "listed");
  for (const Trashed& each : *all) {
    mustBeEqual("file", std::filesystem::exists(each.path) ? "there" : "gone", "there");
    mustBeEqual("time", each.deletedAt(0) >= 0 ? "" : each.at, "");
    static_cast<void>(trash.whoDeleted(each.object));
  }
}

/// An ask says the same when it is written again.
void checkAskWords(std::string_view bytes) {
  const auto read = readAskWords(bytes);
  if (!read) return;
  const auto again = readAskWords(composeAskWords("BEN", read->what, read->ask));
  mustBeEqual("ask", again ? again->ask.id + again->ask.object : "none",
              read->ask.id + read->ask.object);
  mustBeEqual("text", again->ask.text, read->ask.text);
}

/// Behind the line that says whose it is a file may hold anything; what is said afterwards is kept.
void checkConversation(std::string_view bytes) {
  const std::string folder = folderOf(placed("talk/-", {}));
  std::filesystem::remove_all(folder);
  Conversation(folder, "ANNA", "/p").add({1, Said::Kind::eWords, "BEN", "ANNA", "first"});
  for (const auto& each : std::filesystem::directory_iterator(folder)) {
    std::ofstream(each.path(), std::ios::binary | std::ios::app) << bytes;
  }
  Conversation(folder, "ANNA", "/p").add({1, Said::Kind::eWords, "BEN", "ANNA", "last"});
  const Conversation after(folder, "ANNA", "/p");
  mustBeEqual("last", after.all().empty() ? "nothing" : after.all().back().text, "last");
}

/// What a person types for a time is a time or is refused in words.
void checkTimecode(std::string_view bytes) {
  for (const double rate : {0.0, 24.0, 30000.0 / 1001, 60000.0 / 1001, 48000.0}) {
    const auto read = Timecode(rate).read(bytes, 1.0);
    mustBeEqual("time", read || !read.error().message.empty() ? "told" : "silent", "told");
    if (read) mustBeShowable("time", Timecode(rate).textAt(*read));
  }
}

/// Of any names in a history those of versions are listed, each found by what it is called.
void checkHistory(std::string_view bytes) {
  const std::string project = placed("P0004/E0001.otio", {});
  folderOfNames("P0004/.history/E0001", bytes);
  const VersionFolder versions(project);
  const auto all = versions.list();
  mustBeEqual("history", all ? "listed" : all.error().message, "listed");
  std::set<std::string> called;
  for (const Version& each : *all) called.insert(VersionFolder::textOf(each, *all));
  for (const std::string& text : called) {
    const auto found = versions.find(text);
    if (found) mustBeEqual("version", VersionFolder::textOf(*found, *all), text);
  }
  versions.thin({1, 1});
}

/// What was not saved is read whole, or with its problem.
void checkRecovery(std::string_view bytes) {
  const UnsavedState state = RecoveryFolder::read(placed("recovery/E0001.json", bytes));
  mustBeEqual("object", state.problem.empty() || state.object == "E0001" ? "" : state.object, "");
}

/// A cache of any content behind a correct sum gives texts of itself alone.
void checkCache(std::string_view bytes) {
  static const std::string folder =
      placed("cache/-", {}).substr(0, placed("cache/-", {}).size() - 2);
  static const std::hash<std::string_view> sumOf;
  const auto number = [](std::uint64_t value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
  };
  const std::string body = number(4) + "/fzz" + std::string(bytes);
  char name[17];
  std::snprintf(name, sizeof name, "%016zx", sumOf("/fzz"));
  const std::string path =
      placed(std::string("cache/") + name,
             "korvel cache 4\n" + number(0x01020304) + number(sumOf(body)) + body);
  ReadCache cache(folder, "/fzz");
  for (const char* const each : {"", "a", "E0001.otio"}) {
    const std::string_view* const text = cache.find(each, FileStamp{});
    if (text) static_cast<void>(keptSummary(*text));
  }
}

/// A summary is kept so that it comes back.
void checkSummary(std::string_view bytes) {
  const auto summary = keptSummary(bytes);
  if (!summary) return;
  mustBeEqual("summary", keptSummary(keptText(*summary)) == summary ? "same" : "other", "same");
}

/// Any format, its first line, with any arguments makes a line in which no argument has a control
/// character left.
void checkLogFormat(std::string_view bytes) {
  std::string format(bytes.substr(0, bytes.find('\n')));
  const std::string text(bytes.substr(std::min(bytes.size(), format.size() + 1)));
  const long number = static_cast<long>(text.size());
  std::erase_if(format, [](unsigned char byte) { return byte < 0x20 || byte >= 0x7F; });
  const std::string line =
      formatLogLine(format.c_str(), {text, number, 0.5 * static_cast<double>(number), text});
  for (const unsigned char byte : line) {
    if (byte < 0x20 || byte == 0x7F) mustBeEqual("log", line, "no control character");
  }
}

/// Bytes survive the way to wide text and back, and what is shown of them is UTF-8.
void checkText(std::string_view bytes) {
  mustBeEqual("bytes", utf8Text(wideText(bytes)), bytes);
  mustBeShowable("shown", shownText(bytes));
  mustBeEqual("shown", isUtf8(shownText(bytes)) && isUtf8(loggedText(bytes)) ? "" : bytes, "");
  mustBeEqual("hex", bytesOfHex(hexText(bytes)).value_or("none"), bytes);
  static_cast<void>(upperCased(bytes));
}

}  // namespace

void addStationParsers(Parsers& parsers) {
  parsers.insert({{"Json", checkJsonText},
                  {"Record", checkRecord},
                  {"Project", checkProject},
                  {"StationNote", checkNote},
                  {"KeyRing", checkKeyRing},
                  {"Seal", checkSeal},
                  {"RoomName", checkRoomName},
                  {"Trash", checkTrash},
                  {"History", checkHistory},
                  {"Recovery", checkRecovery},
                  {"Cache", checkCache},
                  {"Summary", checkSummary},
                  {"LogFormat", checkLogFormat},
                  {"AskWords", checkAskWords},
                  {"Conversation", checkConversation},
                  {"Timecode", checkTimecode},
                  {"Text", checkText}});
}

}  // namespace korvel
