#include "station/watch/StationNote.h"

#include <uuid/uuid.h>
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <tuple>
#include <utility>

#include "host/base/Log.h"
#include "host/os/OS.h"
#include "host/os/iFileManager.h"
#include "station/base/HostThread.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/os/FolderListing.h"
#include "station/os/SharedFiles.h"
#include "station/project/ProjectFolder.h"

namespace korvel {

void TrafficCounts::taken(Ipv4 address, std::uint16_t port) {
  const std::lock_guard lock(mutex_);
  const auto sender = std::pair(port, address);
  if (taken_.size() < kMostSenders || taken_.contains(sender)) ++taken_[sender];
}

// A machine's own messages to itself may come from its loopback address, which no note names.
long TrafficCounts::takenFrom(const std::vector<std::string>& addresses, std::uint16_t port) const {
  const std::lock_guard lock(mutex_);
  long count = 0;
  for (auto at = taken_.lower_bound({port, Ipv4{}}); at != taken_.end() && at->first.first == port;
       ++at) {
    const std::string address = textOf(at->first.second);
    const bool isTheirs = std::ranges::find(addresses, address) != addresses.end();
    if (isTheirs || address.starts_with("127.")) count += at->second;
  }
  return count;
}

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

JsonValue jsonOf(const NotedAsk& ask) {
  return JsonValue::object({{"id", ask.id},
                            {"to", shownText(ask.to)},
                            {"kind", ask.kind},
                            {"object", ask.object},
                            {"name", shownText(ask.name)},
                            {"project", ask.project},
                            {"text", shownText(ask.text)},
                            {"when", ask.when}});
}

JsonValue jsonOf(const NotedAnswer& answer) {
  return JsonValue::object({{"ask", answer.ask},
                            {"to", shownText(answer.to)},
                            {"given", answer.isGiven},
                            {"text", shownText(answer.text)}});
}

NotedAnswer notedAnswer(const JsonValue& json) {
  return {json["ask"].asString(), json["to"].asString(), json["given"].asBool(),
          json["text"].asString()};
}

NotedAsk notedAsk(const JsonValue& json) {
  return {json["id"].asString(),     json["to"].asString(),   json["kind"].asString(),
          json["object"].asString(), json["name"].asString(), json["project"].asString(),
          json["text"].asString(),   json["when"].asLong()};
}

namespace {

template <typename Each>
JsonValue listOf(const std::vector<Each>& all) {
  JsonValue list = JsonValue::array();
  for (const Each& each : all) list.append(jsonOf(each));
  return list;
}

}  // namespace

std::string noteText(const StationNote& note) {
  return writeJsonIndented(JsonValue::object({{"format", kFormat},
                                              {"user", shownText(note.user)},
                                              {"host", shownText(note.host)},
                                              {"machine", note.machine},
                                              {"addresses", textsOf(note.addresses)},
                                              {"port", static_cast<int>(note.port)},
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
                                              {"asks", listOf(note.asks)},
                                              {"answers", listOf(note.answers)},
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
  // As a station's own are bounded: such a name would come back in answers, and make them too long.
  if (std::max(read.user.size(), read.host.size()) > kLongestUserName) {
    return noNote(id, "a name in it is longer than names are");
  }
  read.machine = static_cast<int>(note["machine"].asLong());
  read.addresses = textsIn(note["addresses"]);
  const long port = note["port"].asLong();
  read.port = port > 0 && port <= 0xFFFF ? static_cast<std::uint16_t>(port) : std::uint16_t{0};
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
  for (const JsonValue& each : note["asks"].elements()) read.asks.push_back(notedAsk(each));
  for (const JsonValue& each : note["answers"].elements()) {
    read.answers.push_back(notedAnswer(each));
  }
  read.written = note["written"].asString();
  return read;
}

std::string fittingNoteText(StationNote note) {
  std::string text = noteText(note);
  const auto halve = [](auto& all) { all.resize(all.size() / 2); };
  while (text.size() > kLargestNote) {
    if (!note.open.empty()) {
      halve(note.open);
    } else if (!note.unsaved.empty()) {
      halve(note.unsaved);
    } else if (!note.answers.empty()) {
      note.answers.erase(note.answers.begin());
    } else if (!note.asks.empty()) {
      note.asks.erase(note.asks.begin());
    } else {
      break;
    }
    text = noteText(note);
  }
  return text;
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

void leaveOutReturned(std::vector<FoundStation>& stations) {
  if (std::ranges::none_of(stations, &FoundStation::isGone)) return;
  const std::vector<FoundStation> all = stations;
  std::erase_if(stations, [&all](const FoundStation& one) {
    return one.isGone() && std::ranges::any_of(all, [&one](const FoundStation& each) {
             const bool isSame = each.note.user == one.note.user && each.note.host == one.note.host;
             return isSame &&
                    (each.isAlive() || (each.isGone() && each.note.since > one.note.since));
           });
  });
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

namespace {

constexpr std::chrono::seconds kPause(1);
constexpr std::chrono::seconds kTimeToEnd(1);

}  // namespace

/// What the thread works with. It lives longer than the StationFile when the share holds the thread
/// up.
class StationFile::Writer {
 public:
  Writer(std::shared_ptr<SeenDirectory> directory, std::string folder, StationNote note)
      : directory_(std::move(directory)),
        folder_(std::move(folder)),
        wanted_(std::move(note)),
        id_(wanted_.id) {
    directory_->addProof(nameOf(folder_) + "/" + id_ + ".json");
  }

  void run() {
    std::unique_lock lock(mutex_);
    while (!isEnding_) {
      const StationNote note = wanted_;
      isChanged_ = false;
      lock.unlock();
      const bool isWritten = write(note);
      lock.lock();
      // At most one write a second: a user who works changes the note all the time.
      changes_.wait_for(lock, kPause, [this] { return isEnding_; });
      const auto isWanted = [this] { return isEnding_ || isChanged_; };
      if (isWritten) {
        changes_.wait(lock, isWanted);
      } else {
        // The share may be back soon, and nothing else may change until then.
        changes_.wait_for(lock, kPause, isWanted);
      }
    }
    lock.unlock();
    sayGoodbye();
    lock.lock();
    hasEnded_ = true;
    changes_.notify_all();
  }

  void show(const StationNote& note) {
    const std::lock_guard lock(mutex_);
    if (note == wanted_) return;
    wanted_ = note;
    isChanged_ = true;
    changes_.notify_all();
  }

  void takeAlong(std::vector<std::string> ids) {
    const std::lock_guard lock(mutex_);
    alsoGone_ = std::move(ids);
  }

  void writeAgain() {
    const std::lock_guard lock(mutex_);
    isChanged_ = true;
    changes_.notify_all();
  }

  bool end() {
    std::unique_lock lock(mutex_);
    isEnding_ = true;
    changes_.notify_all();
    isAbandoned_ = !changes_.wait_for(lock, kTimeToEnd, [this] { return hasEnded_; });
    return !isAbandoned_;
  }

 private:
  [[nodiscard]] std::string path() const { return folder_ + "/" + id_ + ".json"; }

  bool write(StationNote note) {
    note.written = timeForRecord();
    auto written = directory_->check();
    if (written) written = takeLock();
    // The lock first: a note without a lock is shown as that of a dead station.
    if (written) written = writeAtomically(path(), fittingNoteText(note));
    if (!written && !hasComplained_) {
      LogBoth("Others cannot see that this station is here and what it has open: %s\n",
              written.error().message);
    }
    hasComplained_ = !written;
    return static_cast<bool>(written);
  }

  /// Takes the lock; takes it again when its file was removed, since others would see no lock and
  /// take this station for dead.
  Result<void> takeLock() {
    const std::string path = noteLock(folder_, id_);
    if (lock_ && existsFresh(path)) return {};
    if (auto made = makeFolder(folder_); !made && made.error().code != ErrorCode::eExists) {
      return made;
    }
    if (isAbandoned_) return {};
    lock_ = OS().fileManager().openFile(wideText(path), eFileReadWrite, eFileCreate, eFileShareNone,
                                        eFileGroupShared);
    if (lock_ && lock_->isOpen()) return {};
    lock_.reset();
    return Error{ErrorCode::eSystem,
                 inQuotes(path) + " cannot be locked. Ask for the right to write there.", path};
  }

  void sayGoodbye() {
    // The note first: without it the free lock means nothing to others.
    static_cast<void>(removeFileAt(path()));
    if (!lock_) return;
    lock_.reset();
    if (isAbandoned_) return;
    OS().fileManager().removeFile(wideText(noteLock(folder_, id_)));
    for (const std::string& id : alsoGone_) {
      static_cast<void>(removeFileAt(folder_ + "/" + id + std::string(kRecordEnding)));
      static_cast<void>(removeFileAt(noteLock(folder_, id)));
    }
  }

  const std::shared_ptr<SeenDirectory> directory_;
  const std::string folder_;
  StationNote wanted_;
  const std::string id_;
  std::vector<std::string> alsoGone_;
  Kv::Ptr<iFile> lock_;         ///< the thread's
  bool hasComplained_ = false;  ///< the thread's
  std::mutex mutex_;
  std::condition_variable changes_;
  bool isChanged_ = false;
  bool isEnding_ = false;
  bool hasEnded_ = false;
  /// The share held the thread up until after the end: the host's services may be gone.
  std::atomic<bool> isAbandoned_{false};
};

StationFile::StationFile(std::shared_ptr<SeenDirectory> directory, std::string folder,
                         StationNote note)
    : writer_(std::make_shared<Writer>(std::move(directory), std::move(folder), std::move(note))),
      thread_(watchThread([writer = writer_] { writer->run(); })) {}

StationFile::~StationFile() {
  if (writer_->end()) {
    thread_.join();
  } else {
    thread_.detach();
  }
}

void StationFile::show(const StationNote& note) { writer_->show(note); }

void StationFile::takeAlong(std::vector<std::string> ids) { writer_->takeAlong(std::move(ids)); }

void StationFile::writeAgain() { writer_->writeAgain(); }

std::string StationFile::newId() {
  uuid_t bytes;
  uuid_generate_random(bytes);
  char text[37];
  uuid_unparse_lower(bytes, text);
  return text;
}

}  // namespace korvel
