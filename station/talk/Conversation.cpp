#include "station/talk/Conversation.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <functional>
#include <string_view>
#include <utility>

#include "host/base/Log.h"
#include "station/base/Events.h"
#include "station/base/Log.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/os/FileErrors.h"
#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"
#include "station/project/Names.h"
#include "station/talk/Asks.h"

namespace korvel {

std::string wordsToSend(const std::string& typed) {
  return typed.starts_with(kWireVersion) ? " " + typed : typed;
}

std::string wordsAsTyped(const std::string& words) {
  return words.size() > 1 && words.front() == ' ' && words[1] == *kWireVersion ? words.substr(1)
                                                                               : words;
}

std::string carriedWords(const std::string& words) {
  const LightweightString<wchar_t> wide = wideText(words);
  std::wstring carried;
  for (const wchar_t letter : wide.view()) {
    const std::string bytes = utf8Text(LightweightString<wchar_t>(std::wstring_view(&letter, 1)));
    carried += travelsWhole(bytes) ? letter : L'?';
  }
  return utf8Text(LightweightString<wchar_t>(std::wstring_view(carried)));
}

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

namespace {

constexpr std::string_view kEnding = ".jsonl";

/// Raised when a reader of this version could not understand what is written.
constexpr long kConversationFormat = 1;

constexpr std::array kKinds{"words", "ask", "answer"};

Said::Kind kindOf(const std::string& word) {
  const auto found = std::ranges::find(kKinds, word);
  return found == kKinds.end() ? Said::Kind::eWords
                               : static_cast<Said::Kind>(found - kKinds.begin());
}

/// A cut text ends with a whole character.
std::string shortened(std::string text) {
  if (text.size() <= Conversation::kLongestText) return text;
  std::size_t end = Conversation::kLongestText;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  return text.substr(0, end);
}

/// What cannot be made shows when the file is written.
void makePrivateFolder(const std::string& folder) {
  std::error_code ignored;
  std::filesystem::create_directories(folder, ignored);
  // Files that are written anew are as open as their folder.
  std::filesystem::permissions(folder, std::filesystem::perms::owner_all, ignored);
}

std::string fileFor(const std::string& folder, const std::string& user,
                    const std::string& projects) {
  if (folder.empty()) return {};
  const std::uint64_t hash = hash64(user + "\n" + projects);
  std::string bytes;
  for (int shift = 56; shift >= 0; shift -= 8) bytes += static_cast<char>(hash >> shift & 0xFF);
  return folder + "/" + hexText(bytes) + std::string(kEnding);
}

std::size_t sizeOf(const Said& said) {
  return said.from.size() + said.to.size() + said.text.size();
}

/// A line of the file: what is shown, and what only this station needs.
std::string lineOf(const Said& said) {
  JsonValue line = shownSaid(said);
  if (!said.detail.isNull()) line.set("detail", said.detail);
  return writeJson(line) + "\n";
}

}  // namespace

const std::string& Said::with() const { return isOwn || to == kEverybody ? to : from; }

JsonValue shownSaid(const Said& said) {
  JsonValue shown = JsonValue::object({{"when", said.when},
                                       {"time", utcText(said.when)},
                                       {"kind", kKinds[static_cast<std::size_t>(said.kind)]},
                                       {"from", shownText(said.from)},
                                       {"to", shownText(said.to)},
                                       {"text", shownText(said.text)},
                                       {"own", said.isOwn}});
  if (!said.ask.empty()) shown.set("ask", said.ask);
  if (said.isCut) shown.set("cut", true);
  if (said.isUnverified) shown.set("unverified", true);
  return shown;
}

Conversation::Conversation(std::string folder, std::string user,
                           const std::string& projectsDirectory)
    : path_(fileFor(folder, user, projectsDirectory)),
      user_(std::move(user)),
      projects_(projectsDirectory) {
  load();
}

std::string Conversation::header() const {
  return writeJson(JsonValue::object({{"conversation", kConversationFormat},
                                      {"user", shownText(user_)},
                                      {"projects", shownText(projects_)}})) +
         "\n";
}

bool Conversation::isOurs(const std::string& line) const {
  const auto first = parseJson(line);
  return first && (*first)["conversation"].asLong() == kConversationFormat &&
         (*first)["user"].asString() == shownText(user_) &&
         (*first)["projects"].asString() == shownText(projects_);
}

void Conversation::setAside() {
  const std::string aside = path_ + ".set-aside";
  std::error_code problem;
  std::filesystem::rename(path_, aside, problem);
  LogBoth("The file of your conversation, %s, is damaged or another's. It is %s.\n", path_,
          problem ? "left as it is, and what is said now is kept in memory only"
                  : "kept as " + aside + ", and a new one is begun");
  if (problem) path_.clear();
}

void Conversation::load() {
  if (path_.empty()) return;
  std::error_code problem;
  if (!std::filesystem::exists(path_, problem)) return;
  // Written by this program alone, it never grows so large.
  const auto bytes = readListed(path_, 4 * kMostBytes);
  const std::string first = bytes ? bytes->substr(0, bytes->find('\n')) : std::string();
  const bool isTooLarge = !bytes && bytes.error().code == ErrorCode::eBadContent;
  if (isTooLarge || (bytes && !bytes->empty() && !isOurs(first))) return setAside();
  if (!bytes) {
    // It may be whole, and only cannot be read now.
    tellProblem(bytes.error().message);
    return path_.clear();
  }
  written_ = bytes->size();
  endsInLine_ = bytes->empty() || bytes->back() == '\n';
  for (std::size_t start = first.size() + 1; start < bytes->size();) {
    const std::size_t end = std::min(bytes->find('\n', start), bytes->size());
    take(bytes->substr(start, end - start));
    start = end + 1;
  }
}

void Conversation::take(const std::string& line) {
  const auto json = parseJson(line);
  if (!json || !json->isObject()) return;
  const JsonValue& read = *json;
  Said said{read["when"].asLong(),
            kindOf(read["kind"].asString()),
            read["from"].asString(),
            read["to"].asString(),
            read["text"].asString(),
            read["ask"].asString(),
            read["detail"],
            read["own"].asBool(),
            read["unverified"].asBool(),
            read["cut"].asBool()};
  if (said.from.empty() || said.to.empty()) return;
  said.text = shortened(std::move(said.text));
  keep(std::move(said));
}

void Conversation::keep(Said said) {
  bytes_ += sizeOf(said);
  said_.push_back(std::move(said));
  while (said_.size() > kMostSaid || (bytes_ > kMostBytes && said_.size() > 1)) {
    bytes_ -= sizeOf(said_.front());
    said_.pop_front();
  }
}

void Conversation::add(Said said) {
  if (said.when == 0) said.when = std::time(nullptr);
  said.text = shortened(std::move(said.text));
  write(lineOf(said));
  keep(said);
  events().talk("said", shownSaid(said).members());
}

JsonValue Conversation::listed(const std::string& colleague) const {
  const std::string wanted = upperCased(colleague);
  JsonValue list = JsonValue::array();
  for (const Said& each : said_) {
    const bool isMeant =
        wanted.empty() || each.to == kEverybody || upperCased(each.with()) == wanted;
    if (isMeant) list.append(shownSaid(each));
  }
  return list;
}

void Conversation::noteSent(const std::string& wireText) {
  if (typeOnWire(wireText) != MessageType::eUserMessage) return;
  const MessageFields message = readMessage(wireText);
  // An ask or answer is noted by who makes it.
  if (!message.valid || message.data.empty() || readAskWords(message.data)) return;
  add({0, Said::Kind::eWords, user_, message.target, wordsAsTyped(message.data), {}, {}, true});
}

/// A network may bring a datagram twice; nobody says the same again so soon. When it arrived
/// counts: what waited is delivered all at once.
bool Conversation::isCopy(const ReceivedMessage& message) {
  constexpr auto kLatestCopy = std::chrono::milliseconds(100);
  constexpr std::size_t kMostHeard = 64;
  if (message.arrived == Time()) return false;
  while (!heard_.empty() && message.arrived - heard_.front().arrived > kLatestCopy) {
    heard_.pop_front();
  }
  const bool isCopy = std::ranges::any_of(heard_, [&message](const Heard& each) {
    return each.from == message.from && each.wireText == message.wireText;
  });
  if (isCopy) return true;
  heard_.push_back({message.arrived, message.from, message.wireText});
  if (heard_.size() > kMostHeard) heard_.pop_front();
  return false;
}

void Conversation::noteDelivered(const ReceivedMessage& message) {
  const std::string& words = message.fields.data;
  if (words.empty() || !isForThisUser(message.fields) || readAskWords(words)) return;
  if (isCopy(message)) return;
  add({0,
       Said::Kind::eWords,
       message.fields.source,
       message.fields.target == kEverybody ? kEverybody : user_,
       wordsAsTyped(message.fields.data),
       {},
       {},
       false,
       message.isUnverified,
       message.fields.isCut()});
}

void Conversation::write(const std::string& lines) {
  if (path_.empty()) return;
  if (written_ + lines.size() > 3 * kMostBytes) rewrite();
  if (written_ == 0) makePrivateFolder(folderOf(path_));
  const Descriptor file = openToChange(path_, O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW);
  // Another station of this user's may have written, or somebody removed it.
  struct stat status {};
  if (file.isOpen() && ::fstat(file.get(), &status) == 0) {
    written_ = static_cast<std::size_t>(status.st_size);
  }
  const std::string bytes = (written_ == 0 ? header() : "") + (endsInLine_ ? "" : "\n") + lines;
  if (!file.isOpen() || !writeAll(file.get(), bytes)) {
    // What was written of it may be a part of a line.
    endsInLine_ = false;
    return tellProblem(errorFromErrno(errno, "write your conversation", path_).message);
  }
  written_ += bytes.size();
  endsInLine_ = true;
}

void Conversation::rewrite() {
  std::string bytes = header();
  // Half of what may be kept, so that the next time is not soon.
  std::size_t size = 0;
  auto first = said_.end();
  while (first != said_.begin() && size < kMostBytes / 2) size += lineOf(*--first).size();
  for (; first != said_.end(); ++first) bytes += lineOf(*first);
  if (auto done = writeAtomically(path_, bytes); !done) return tellProblem(done.error().message);
  written_ = bytes.size();
}

void Conversation::tellProblem(const std::string& problem) {
  if (std::exchange(isTold_, true)) return;
  LogBoth("Your conversation is kept in memory only, and is gone when this station ends: %s\n",
          problem);
}

}  // namespace korvel
