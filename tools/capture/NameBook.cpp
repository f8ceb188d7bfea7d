#include "tools/capture/NameBook.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

#include "host/base/Cookie.h"
#include "station/base/Json.h"
#include "station/edit/EditSummary.h"
#include "station/os/SharedFiles.h"

namespace korvel {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kPatience = std::chrono::milliseconds(300);
constexpr auto kLookAgainAfter = std::chrono::seconds(20);  // names change now and then
constexpr std::size_t kMostNames = 10'000;                  // anybody may send any cookie

/// Whether a text is a cookie and nothing else: it becomes part of a path.
bool isCookie(const std::string& text) {
  const Cookie cookie(text.c_str(), false);
  return !cookie.isNull() && cookie.asString().str() == text;
}

std::string readName(const std::string& path) {
  if (path.ends_with(".otio")) {
    const auto bytes = readFresh(path);
    const auto summary = bytes ? readEditSummary(*bytes) : Result<EditSummary>(bytes.error());
    return summary ? summary->name : std::string();
  }
  const auto bytes = readFresh(path, kLargestRecord);
  const auto json = bytes ? parseJson(*bytes) : Result<JsonValue>(bytes.error());
  return json ? (*json)["name"].asString() : std::string();
}

}  // namespace

/// What the thread that asks and the one that looks have in common; the last of them ends it.
struct NameBook::Shared {
  struct Name {
    std::string text;
    Clock::time_point lookedAt;
  };

  std::mutex mutex;
  std::condition_variable changed;
  std::deque<std::string> wanted;
  std::map<std::string, Name> names;
  bool isLate = false;  ///< the share did not answer in time, and is not waited for until it does
  bool isEnding = false;

  void look() {
    std::unique_lock lock(mutex);
    for (;;) {
      changed.wait(lock, [this] { return isEnding || !wanted.empty(); });
      if (isEnding) return;
      const std::string path = wanted.front();
      wanted.pop_front();
      lock.unlock();
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
  // Detached: a look at a share that hangs never ends, and must not keep the program.
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
  const auto addName = [this](std::string& cookie, const std::string& path) {
    const std::string name = nameOf(path);
    if (!name.empty()) cookie = name + " (" + cookie + ")";
  };
  if (isCookie(fields.cookie)) {
    const char kind = Cookie(fields.cookie.c_str(), false).getType();
    const bool isEdit = kind == CookieTypeEdit || kind == 'S';
    addName(fields.cookie, folder + "/" + fields.cookie + (isEdit ? ".otio" : ".json"));
  }
  addName(fields.project, folder + "/project.json");
  return fields;
}

std::string NameBook::nameOf(const std::string& path) {
  std::unique_lock lock(shared_->mutex);
  const auto known = shared_->names.find(path);
  const bool isKnown = known != shared_->names.end();
  const bool isOld = isKnown && Clock::now() - known->second.lookedAt > kLookAgainAfter;
  if (isKnown && !isOld) return known->second.text;
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

}  // namespace korvel
