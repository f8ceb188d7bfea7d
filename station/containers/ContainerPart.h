#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/containers/ContainerManager.h"
#include "station/base/Json.h"
#include "station/base/Result.h"
#include "station/keep/TrashFolder.h"
#include "station/notify/NotifierList.h"
#include "station/project/iProjectPart.h"

namespace korvel {

/// What makes a part of the project one of the host's managers: its listeners, who are told of each
/// change with a Modification<Data>. `Part` is a ContainerPart. Host thread.
template <typename Manager, typename Data, typename Part>
class ContainerNotifier : public Manager, public Part {
 public:
  template <typename... Arguments>
  explicit ContainerNotifier(Arguments&&... arguments)
      : Part(std::forward<Arguments>(arguments)...) {}

  Kv::Ptr<Kv::Guard> registerInternal(const Kv::Ptr<CallbackInvoker<NotifyMsg>>& invoker) override {
    return listeners_.add(invoker);
  }

 protected:
  void notify(const Cookie& cookie, std::uint32_t flags) override {
    constexpr NotifyMsgType kContainerChanged = 1;
    const Data object{cookie.getUuid(), cookie.getTypeBytes()};
    const ContainerManagerBase::Modification<Data> modification(&object, flags);
    listeners_.notify(kContainerChanged, &modification);
  }

 private:
  NotifierList listeners_;
};

/// The names that make one kind of container differ from another.
struct ContainerKind {
  std::string word;     ///< as users and events name it: "bin"
  std::string letters;  ///< kind letters of its cookies; new ones get the first
  std::string key;      ///< the key under which `state` shows them: "bins"
  std::string content;  ///< the record's member beside "name": "contents"
};

/// One container as its file holds it. Members of the record that this station does not know are
/// kept.
struct Container {
  Cookie cookie;
  std::string name;
  JsonValue record;
};

/// The open project's containers of one kind (bins, racks or filters), each a small file:
///
///     <project folder>/<cookie>.json   { "name": "Rushes", "contents": [ "E0a1b...", "V77..." ] }
///                                      { "name": "Unused", "filter": "uses=0" }
///
/// A change reads the file as it is on the share now, changes that, and writes it in one step,
/// while it holds the container's lock: what another station wrote a moment ago stays. Files are
/// the truth; what is shown follows them. Each change is told to the listeners, as bits of
/// ContainerManagerBase::eModificationFlags, and as an event. Host thread.
class ContainerPart : public iProjectPart {
 public:
  /// What a change does to a record; false when there was nothing to change.
  using Change = std::function<Result<bool>(JsonValue& record)>;

  explicit ContainerPart(ContainerKind kind) : kind_(std::move(kind)) {}
  ContainerPart(const ContainerPart&) = delete;
  ContainerPart& operator=(const ContainerPart&) = delete;

  void enter(const OpenProject& project, const std::vector<std::string>& files) override;
  void takeUpUnlisted(const std::vector<std::string>& files) override;
  std::size_t catchUp(const FoundFiles& files) override;
  void leave() override;
  void findByName(const std::string& name, std::vector<NamedObject>& found) const override;
  [[nodiscard]] bool holds(const Cookie& cookie) const override { return find(cookie) != nullptr; }
  void listObjects(std::vector<NamedObject>& objects) const override;
  [[nodiscard]] std::string stateKey() const override { return kind_.key; }
  [[nodiscard]] JsonValue state() const override;

  [[nodiscard]] const ContainerKind& kind() const { return kind_; }

  /// The container, or null; valid until the next change.
  [[nodiscard]] const Container* find(const Cookie& cookie) const;

  /// How a container is shown: its cookie and its record.
  [[nodiscard]] JsonValue shown(const Container& container) const;

  /// Takes a container out and moves its file to the trash. With a failure it stays.
  Result<void> discard(const Cookie& cookie);

  /// Moves a container from the trash back to its place, shows it and tells of it as created,
  /// whatever its file holds. eExists where a container of its cookie is there again.
  Result<void> takeBack(const Trashed& trashed);

  /// Takes a container out of the lists, even where its file cannot be removed. The file goes to
  /// the trash if it is still there; a failure of that is logged. Because of a message no file is
  /// removed: a container whose file is still there stays, and is read again. An unknown cookie is
  /// ignored.
  void forget(const Cookie& cookie);

  /// Reads a container again, or for the first time; because of a message, once more a little later
  /// (DelayedReread). A file that cannot be read is reported, and leaves what is shown.
  void readAgain(const Cookie& cookie);

  /// Brings all that is shown in line with the folder: what is new there, what differs and what is
  /// gone. Each change is told of by itself; where there is none, nothing is. Because of a message,
  /// all is read once more a little later.
  void readAllAgain();

  /// The container's file; empty when no project is open.
  [[nodiscard]] std::string fileOf(const Cookie& cookie) const;

 protected:
  /// Makes a new container. A name that is empty or in use among its kind is refused.
  Result<Cookie> create(const std::string& name, JsonValue content);

  /// Changes a container's record, as it stands in its file now.
  Result<void> change(const Cookie& cookie, const Change& change);

  /// What a container is called in steps: "bin Rushes".
  [[nodiscard]] std::string wordsFor(const Cookie& cookie) const;

  /// What is wrong with a record's content, as the end of a sentence; empty when it is sound.
  [[nodiscard]] virtual std::string contentProblem(const JsonValue& content) const = 0;

  /// Tells the listeners; the container itself may be gone already.
  virtual void notify(const Cookie& cookie, std::uint32_t flags) = 0;

 private:
  Result<JsonValue> read(const Cookie& cookie) const;
  [[nodiscard]] Result<void> check(const Cookie& cookie, const JsonValue& record) const;
  Result<void> requireKnown(const Cookie& cookie) const;
  [[nodiscard]] Error tooLargeToWrite(const Cookie& cookie) const;
  Result<void> requireNew(const std::string& name) const;
  void warnOfNamesakes(const std::string& name) const;
  Result<std::optional<Trashed>> moveToTrash(const Cookie& cookie) const;
  Result<std::optional<Trashed>> discardNow(const Cookie& cookie);
  Result<void> discardInto(const Cookie& cookie, Trashed& trashed);
  [[nodiscard]] Result<void> requireUnchanged(const Cookie& cookie, const JsonValue& record) const;
  void noteMade(const Cookie& cookie);
  void show(const Cookie& cookie, JsonValue record);
  void drop(const Cookie& cookie);
  void take(const Cookie& cookie, JsonValue record, std::uint32_t flags);
  void readLate(const Cookie& cookie);
  bool catchUpOne(const Cookie& cookie, const FoundFile& file);
  bool dropIfGone(const Cookie& cookie, std::uint32_t flags);
  void tell(const Cookie& cookie, const std::string& how, std::uint32_t flags);
  void compareWithFolder(std::uint32_t changed, std::uint32_t destroyed);
  void dropMissing(const std::set<Cookie>& present, std::uint32_t flags);

  ContainerKind kind_;
  std::string folder_;  ///< the open project's; empty when none is open
  std::shared_ptr<NewlyShown> shown_;
  std::map<Cookie, Container> containers_;
  std::map<std::string, std::set<Cookie>> byName_;
  std::string lastDropped_;                 ///< the name of the one that went last, to tell of it
  std::map<Cookie, std::string> problems_;  ///< of files found that cannot be read, as logged
};

}  // namespace korvel
