#include "station/base/Events.h"

#include <array>
#include <ctime>
#include <utility>

#include "station/base/StationSettings.h"

namespace korvel {

namespace {

/// Drops events while no sink is installed, so that callers need not ask.
iStationEvents dropping;
iStationEvents* installed = &dropping;
int remoteScopes = 0;
int folderScopes = 0;
thread_local int waitedScopes = 0;
const ReceivedMessage* delivered = nullptr;
iChangeObserver* changeObserver = nullptr;
std::string author;

}  // namespace

std::vector<JsonValue::Member> auditedObject(const std::string& kind, const Cookie& cookie,
                                             const std::string& name) {
  return {{"kind", kind}, {"cookie", cookie.asString().str()}, textMember("name", name)};
}

iStationEvents& events() { return *installed; }

void installEvents(iStationEvents* sink) { installed = sink ? sink : &dropping; }

void observeChanges(iChangeObserver* observer) { changeObserver = observer; }

void tellChanged(const std::string& what, const Cookie& cookie, const std::string& how,
                 const std::string& name) {
  events().changed(what, cookie, how, currentOrigin());
  if (changeObserver) changeObserver->changed(what, cookie, how, name);
}

const char* originText(Origin origin) {
  switch (origin) {
    case Origin::eLocal:
      return "local";
    case Origin::eRemote:
      return "remote";
    case Origin::eFolder:
      return "folder";
  }
  return "";
}

Origin currentOrigin() {
  if (folderScopes > 0) return Origin::eFolder;
  return remoteScopes > 0 ? Origin::eRemote : Origin::eLocal;
}

std::string currentAuthor() { return currentOrigin() == Origin::eLocal ? settings().user : author; }

AuthorScope::AuthorScope(std::string user) : before_(author) {
  if (author.empty()) author = std::move(user);
}

AuthorScope::~AuthorScope() { author = std::move(before_); }

bool wasWaitedFor() { return waitedScopes > 0; }

WaitedScope::WaitedScope() { ++waitedScopes; }

WaitedScope::~WaitedScope() { --waitedScopes; }

const ReceivedMessage* currentMessage() { return delivered; }

RemoteChangeScope::RemoteChangeScope(const ReceivedMessage* message)
    : before_(std::exchange(delivered, message)) {
  ++remoteScopes;
}

RemoteChangeScope::~RemoteChangeScope() {
  --remoteScopes;
  delivered = before_;
}

FolderChangeScope::FolderChangeScope() { ++folderScopes; }

FolderChangeScope::~FolderChangeScope() { --folderScopes; }

namespace {

std::deque<Notification>& keptNotifications() {
  static std::deque<Notification> kept;
  return kept;
}

std::uint64_t shownTexts = 0;

}  // namespace

std::string Notification::timeText() const {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm parts{};
  ::localtime_r(&seconds, &parts);
  std::array<char, 32> written{};
  const std::size_t length =
      std::strftime(written.data(), written.size(), "%Y-%m-%d %H:%M:%S", &parts);
  return {written.data(), length};
}

void notifyUser(const std::string& text) { notifyUser(Notification{{}, text}); }

void notifyUser(Notification notification) {
  auto& kept = keptNotifications();
  notification.time = std::chrono::system_clock::now();
  kept.push_back(std::move(notification));
  // Other stations can send texts without end.
  if (kept.size() > kMostNotifications) kept.pop_front();
  noteTextShown();
  events().notification(kept.back().text);
}

std::uint64_t textsShown() { return shownTexts; }

void noteTextShown() { ++shownTexts; }

const std::deque<Notification>& notifications() { return keptNotifications(); }

}  // namespace korvel
