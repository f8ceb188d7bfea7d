#include "tools/capture/MessageLine.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <ctime>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>

#include "host/base/Cookie.h"
#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "station/edit/EditSummary.h"
#include "station/os/SharedFiles.h"
#include "station/wire/MessageTable.h"
#include "tools/capture/HeardMessage.h"
#include "tools/wire/MessageReport.h"

namespace korvel {

namespace {

constexpr std::array kSenderColours{"\033[32m", "\033[33m", "\033[34m", "\033[35m", "\033[36m"};
constexpr std::size_t kTimeWidth = 12;

/// The time of day here, to the millisecond.
std::string timeOfDay(std::int64_t time) {
  const auto seconds = static_cast<std::time_t>(time / kNanosecondsASecond);
  std::tm parts{};
  localtime_r(&seconds, &parts);
  char text[32];
  const std::size_t size = std::strftime(text, sizeof text, "%H:%M:%S", &parts);
  const int milliseconds = static_cast<int>(time % kNanosecondsASecond / 1'000'000);
  std::snprintf(text + size, sizeof text - size, ".%03d", milliseconds);
  return text;
}

/// Letters of a UTF-8 text: continuation bytes take no column.
std::size_t lettersOf(const std::string& utf8) {
  return static_cast<std::size_t>(
      std::count_if(utf8.begin(), utf8.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

/// The words for a container value. Any other text is returned unchanged.
std::string happening(const std::string& container) {
  const bool isDigit = container.size() == 1 && container[0] >= '0' && container[0] <= '9';
  if (!isDigit || !isContainerValue(container)) return container;
  return kContainerValues[static_cast<std::size_t>(numberAtStart(container))];
}

bool isGap(const char* text) {
  return std::string_view(text).find_first_not_of(' ') == std::string_view::npos;
}

/// The first reason why a message is not valid.
std::string whyNotValid(const HeardMessage& message) {
  const auto warnings = warningsAbout(message.bytes);
  return warnings.empty() ? "" : warnings.front();
}

}  // namespace

std::string MessageLine::heading() {
  std::string time = "time";
  time.resize(kTimeWidth, ' ');
  return time + "  " + column("sender", senderWidth_, kPlain) + column("type", typeWidth_, kPlain) +
         column("project", projectWidth_, kPlain) + "object";
}

std::string MessageLine::of(const HeardMessage& message, const MessageFields& fields) {
  const std::string sender = senderText(message);
  // By the sender's hash: the same sender has the same colour in every run.
  const char* const colour =
      kSenderColours[std::hash<std::string>()(sender) % kSenderColours.size()];
  const std::string type = fields.valid ? fields.typeName : kNotValid;
  const std::string line = timeOfDay(message.time) + "  " + column(sender, senderWidth_, colour) +
                           column(type, typeWidth_, fields.valid ? kBold : kRed) +
                           column(shownText(fields.project), projectWidth_, kPlain) +
                           shownText(fields.valid ? objectText(fields) : whyNotValid(message));
  return line.substr(0, line.find_last_not_of(' ') + 1);
}

std::string MessageLine::column(const std::string& text, std::size_t& width,
                                const char* colour) const {
  // Padding is counted without the colour: its codes take no column.
  const std::size_t letters = lettersOf(text);
  width = std::max(width, letters);
  const std::string gap(width - letters + 2, ' ');
  return coloured(text, colour, colours_) + gap;
}

std::string objectText(const MessageFields& fields) {
  const MessageType* const type = messageType(fields.type);
  if (!type) return fields.cookie;
  std::string shown;
  for (const ShownPart& part : type->shown) {
    if (!part.field) break;
    const std::string& text = fields.*part.field->text;
    if (text.empty() && isGap(part.before)) continue;
    shown += part.before + (part.field == &kContainerField ? happening(text) : text);
  }
  return shown;
}

namespace {

using Clock = std::chrono::steady_clock;

/// A line may wait so long for a name. A share that is slower is no longer waited for.
constexpr auto kPatience = std::chrono::milliseconds(300);
constexpr auto kLookAgainAfter = std::chrono::seconds(20);  // projects and edits are renamed
constexpr std::array kAboutFiles{MessageType::eEditSaved, MessageType::eContainerModification,
                                 MessageType::eFilterModification};
constexpr std::size_t kMostNames = 10'000;  // strangers may send endless cookies

/// Whether a text is a cookie and nothing else. It becomes part of a path, so a text from the
/// network must not hold "/" or "..".
bool isCookie(const std::string& text) {
  const Cookie cookie(text.c_str(), false);
  return !cookie.isNull() && cookie.asString().str() == text;
}

std::string readName(const std::string& path) {
  if (path.ends_with(kEditEnding)) {
    const auto bytes = readFresh(path);
    const auto summary = bytes ? readEditSummary(*bytes) : Result<EditSummary>(bytes.error());
    return summary ? summary->name : std::string();
  }
  const auto bytes = readFresh(path, kLargestRecord);
  const auto json = bytes ? parseJson(*bytes) : Result<JsonValue>(bytes.error());
  return json ? (*json)["name"].asString() : std::string();
}

}  // namespace

/// State of the asking and the reading thread, owned by both: the reading thread may hang in the
/// share and outlive the NameBook.
struct NameBook::Shared {
  struct Name {
    std::string text;
    Clock::time_point lookedAt;
  };

  std::mutex mutex;
  std::condition_variable changed;
  std::deque<std::string> wanted;
  std::map<std::string, Name> names;
  bool isLate = false;  ///< the share was too slow: no waiting until it answers
  bool isEnding = false;

  void look() {
    std::unique_lock lock(mutex);
    for (;;) {
      changed.wait(lock, [this] { return isEnding || !wanted.empty(); });
      if (isEnding) return;
      const std::string path = wanted.front();
      wanted.pop_front();
      lock.unlock();
      // Without the mutex: the asking thread must be able to give up.
      std::string name = readName(path);
      lock.lock();
      if (names.size() >= kMostNames) names.clear();
      names[path] = {std::move(name), Clock::now()};
      isLate = false;
      changed.notify_all();
    }
  }
};

NameBook::NameBook(const std::string& directory)
    : directory_(directory), shared_(std::make_shared<Shared>()) {
  // Detached: a read of a hanging share never returns, and must not keep the program from ending.
  std::thread([shared = shared_] { shared->look(); }).detach();
}

NameBook::~NameBook() {
  const std::lock_guard lock(shared_->mutex);
  shared_->isEnding = true;
  shared_->changed.notify_all();
}

MessageFields NameBook::withNames(MessageFields fields) {
  if (!fields.valid || !isCookie(fields.project)) return fields;
  const std::string folder = directory_ + "/" + fields.project;
  // Where the message tells of a new file, the name may be a new one.
  const bool tellsOfFile = std::ranges::count(kAboutFiles, fields.type) > 0;
  const auto addName = [this](std::string& cookie, const std::string& path, bool isNew) {
    const std::string name = nameOf(path, isNew);
    if (!name.empty()) cookie = name + " (" + cookie + ")";
  };
  if (isCookie(fields.cookie)) {
    const char kind = Cookie(fields.cookie.c_str(), false).getType();
    const bool isEdit = kind == CookieTypeEdit || kind == 'S';
    addName(fields.cookie,
            folder + "/" + fields.cookie + std::string(isEdit ? kEditEnding : kRecordEnding),
            tellsOfFile);
  }
  addName(fields.project, folder + "/project.json", false);
  return fields;
}

std::string NameBook::nameOf(const std::string& path, bool isNew) {
  std::unique_lock lock(shared_->mutex);
  const auto known = shared_->names.find(path);
  const bool isKnown = known != shared_->names.end();
  const bool isOld = isNew || (isKnown && Clock::now() - known->second.lookedAt > kLookAgainAfter);
  if (isKnown && !isOld) return known->second.text;
  // The reading thread still waits for the share: an old name, or none, without asking again.
  if (shared_->isLate) return isKnown ? known->second.text : std::string();
  shared_->wanted.push_back(path);
  shared_->changed.notify_all();
  const auto asked = Clock::now();
  const auto isThere = [&] {
    const auto found = shared_->names.find(path);
    return found != shared_->names.end() && found->second.lookedAt >= asked;
  };
  if (!shared_->changed.wait_for(lock, kPatience, isThere)) shared_->isLate = true;
  const auto found = shared_->names.find(path);
  return found != shared_->names.end() ? found->second.text : std::string();
}

namespace {

double secondsBetween(std::int64_t from, std::int64_t to) {
  return static_cast<double>(std::max<std::int64_t>(to - from, 0)) / kNanosecondsASecond;
}

/// Messages a second, to three places.
JsonValue rateOf(std::uint64_t messages, double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f",
                static_cast<double>(messages) / std::max(seconds, 0.001));
  return JsonValue::number(text);
}

std::string typesText(const SenderCount& count) {
  std::string text;
  for (const auto& [type, messages] : count.types) {
    text += (text.empty() ? "" : ", ") + type + " " + std::to_string(messages);
  }
  return text;
}

JsonValue typesObject(const SenderCount& count) {
  JsonValue types = JsonValue::array();
  for (const auto& [type, messages] : count.types) {
    types.append(JsonValue::object({{"type_name", type}, {"messages", messages}}));
  }
  return types;
}

std::string nameOf(const std::pair<Ipv4, std::uint16_t>& sender) {
  return textOf(sender.first) + ":" + std::to_string(sender.second);
}

}  // namespace

SenderCounts::SenderCounts(std::int64_t start, Observer observer)
    : start_(start), observer_(std::move(observer)) {}

void SenderCounts::count(const HeardMessage& message, const MessageFields& fields) {
  ++messages_;
  SenderCount& sender = senders_[{message.sender, message.senderPort}];
  if (sender.messages++ == 0) sender.first = message.time;
  sender.last = message.time;
  if (!fields.valid) ++sender.notValid;
  if (!fields.source.empty()) sender.user = fields.source;
  ++sender.types[fields.valid ? fields.typeName : kNotValid];
  if (observer_) observer_(message, sender);
}

JsonValue SenderCounts::report(std::int64_t now, const MissedMessages& missed) const {
  const double seconds = secondsBetween(start_, now);
  JsonValue senders = JsonValue::array();
  for (const auto& [sender, count] : senders_) {
    senders.append(JsonValue::object({{"sender", textOf(sender.first)},
                                      {"port", static_cast<int>(sender.second)},
                                      textMember("user", count.user),
                                      {"messages", count.messages},
                                      {"not_valid", count.notValid},
                                      {"rate", rateOf(count.messages, seconds)},
                                      {"types", typesObject(count)}}));
  }
  return JsonValue::object({{"seconds", seconds},
                            {"messages", messages_},
                            {"rate", rateOf(messages_, seconds)},
                            {"copies", copies_},
                            {"missed_by_system", missed.bySystem},
                            {"missed_by_reader", missed.byQueue},
                            {"senders", std::move(senders)}});
}

std::string SenderCounts::table(std::int64_t now, const MissedMessages& missed) const {
  const double seconds = secondsBetween(start_, now);
  JsonValue rows = JsonValue::array();
  for (const auto& [sender, count] : senders_) {
    char rate[32];
    std::snprintf(rate, sizeof rate, "%.1f",
                  static_cast<double>(count.messages) / std::max(seconds, 0.001));
    rows.append(JsonValue::object({{"sender", nameOf(sender)},
                                   {"user", count.user},
                                   {"messages", count.messages},
                                   {"a second", rate},
                                   {"types", typesText(count)}}));
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", seconds);
  std::string all = senders_.empty() ? "" : renderForPeople(rows) + "\n";
  all += countText(messages_, "message") + " of " + countText(senders_.size(), "sender") + " in " +
         text + " s";
  if (copies_ > 0) all += ", " + countText(copies_, "copy") + " over another network";
  const std::string lost = missedText(missed);
  return all + (lost.empty() ? ", none missed" : "\n" + lost);
}

std::string missedText(const MissedMessages& missed) {
  std::string text;
  if (missed.bySystem > 0) {
    text = countText(missed.bySystem, "message") + " missed: this machine's buffer was full";
  }
  if (missed.byQueue > 0) {
    text += (text.empty() ? "" : "; ") + countText(missed.byQueue, "message") +
            " missed: what takes the output is too slow";
  }
  return text;
}

}  // namespace korvel
