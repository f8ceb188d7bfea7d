#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/edit/Edit.h"
#include "host/edit/EditManager.h"
#include "host/project/ProjectListener.h"
#include "host/project/iPermissionsManager.h"
#include "host/project/iProjectShare.h"
#include "station/base/Events.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/edit/EditActions.h"
#include "station/edit/Edits.h"
#include "station/os/HostOS.h"
#include "station/project/Projects.h"
#include "station/project/Rooms.h"
#include "station/wire/MessageTable.h"
#include "tests/fakes/ScratchFolder.h"
#include "tests/support/LoopNetwork.h"

namespace korvel {

/// Keeps what the station tells, as "edit created local".
class NotedEvents : public iStationEvents {
 public:
  NotedEvents() { installEvents(this); }
  ~NotedEvents() override { installEvents(nullptr); }

  void changed(const std::string& what, const Cookie&, const std::string& how,
               Origin origin) override {
    changes.push_back(what + " " + how + " " + originText(origin));
    authors.push_back(currentAuthor());
  }
  void log(bool, const std::string& text) override { logged += text; }

  std::vector<std::string> changes;
  std::vector<std::string> authors;  ///< of each change
  std::string logged;
};

/// Keeps what project listeners hear, as "stored new", "modified 1", and in between whatever the
/// other fakes of the station note.
class NotedListener : public ProjectListener {
 public:
  void handleLogModification(const Cookie&, const EditModification& modification) override {
    heard.push_back("modified " + std::to_string(modification.type_));
    last = modification;
  }
  void handleLogsDeletion(const CookieVec& cookies, LightweightString<char>) override {
    heard.push_back("deleted " + std::to_string(cookies.size()));
  }
  void handleLogDirtied(const Cookie&) override { heard.emplace_back("dirtied"); }
  void handleLogStorage(const Cookie&, bool isNew) override {
    heard.emplace_back(isNew ? "stored new" : "stored");
  }
  void handleProjectEntry() override { heard.emplace_back("entered"); }
  void handleProjectExit() override { heard.emplace_back("left"); }

  std::vector<std::string> heard;
  EditModification last;
};

/// Permission rules that a test sets; owners are kept in the edits as the real rules do.
class SettableRules : public iPermissionsManager {
 public:
  explicit SettableRules(std::vector<std::string>& notes)
      : iPermissionsManager("rules"), notes_(notes) {}

  using Text = LightweightString<wchar_t>;

  [[nodiscard]] Text getCurrentUser() const override { return L"ANNA"; }
  const Vector<Text>& getUserList() override { return users_; }
  void addUser(const Text&) override {}
  [[nodiscard]] bool isDirtiable(const Cookie&) const override { return isAllowed; }
  [[nodiscard]] bool isModificationAllowed(const Cookie&, EditModificationType) const override {
    return isAllowed;
  }
  void setOwner(const Cookie& object, const Text& owner, eObjectType type,
                bool describeChange) override {
    told.push_back(utf8Text(owner));
    EditPtr edit;
    edit.i_open(object, 0);
    if (!edit || type != eEdit || edit->getOwner() == owner) return;
    edit->config().set("OWNER", toUTF8(owner));
    EditManager::flushChanges(object);
    if (describeChange) edit->setChangeDescription(eModOwnerChanged, true);
  }
  void flushOnProjectChange() override { notes_.emplace_back("flushed"); }
  [[nodiscard]] bool canManageCurrentProjectSpace() const override { return true; }
  [[nodiscard]] bool canTranferOwnership() const override { return true; }

  bool isAllowed = true;
  std::vector<std::string> told;  ///< the owners, in the order in which they were told

 private:
  Vector<Text> users_{L"ANNA", L"BOB", L"CARL"};
  std::vector<std::string>& notes_;
};

/// A station's documents on a folder of their own, with a project "Film" that is open.
class DocumentStation : public ::testing::Test {
 protected:
  DocumentStation() {
    StationSettings chosen;
    chosen.projectsDirectory = folder.path();
    chosen.user = "anna";
    installSettings(chosen);
    projects.addPart(edits);
    projects.addPart(rooms);
    const auto created = projects.create("Film", false);
    if (!created) throw std::runtime_error(created.error().message);
    project = *created;
    EXPECT_TRUE(projects.enter("Film"));
    listener.heard.clear();
    events.changes.clear();
  }

  Cookie made(const std::string& name, char kind = CookieTypeEdit) {
    const auto cookie = EditActions::create(name, kind);
    EXPECT_TRUE(cookie);
    listener.heard.clear();
    events.changes.clear();
    events.authors.clear();
    return *cookie;
  }

  /// The edit made of one of the sample files.
  Cookie imported(const std::string& sample) {
    const auto cookie = EditActions::import(std::string(KV_SAMPLES) + "/" + sample);
    EXPECT_TRUE(cookie) << cookie.error().message;
    listener.heard.clear();
    events.changes.clear();
    return *cookie;
  }

  [[nodiscard]] std::string fileOf(const Cookie& cookie) const { return edits.pathFor(cookie); }

  static std::string bytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  static void write(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
  }

  /// What another station does while it changes an object.
  Kv::Ptr<iFile> holdLock(const Cookie& cookie) {
    const std::string file = fileOf(cookie);
    const std::size_t name = file.rfind('/') + 1;
    return os.fileManager().openFile(
        wideText(file.substr(0, name) + "." + file.substr(name) + ".lock"), eFileReadWrite,
        eFileCreate, eFileShareNone, eFileNoFlags);
  }

  /// Changes a text in an object's file as another station's save does.
  void replaceInFile(const Cookie& cookie, const std::string& from, const std::string& to) const {
    std::string bytes = bytesOf(fileOf(cookie));
    bytes.replace(bytes.find(from), from.size(), to);
    write(fileOf(cookie), bytes);
  }

  /// The wire text of another station's modification.
  [[nodiscard]] LightweightString<char> wireText(const Cookie& cookie,
                                                 const std::string& modification) const {
    return hostText(
        "d\xAC"
        "1\xAC" +
        project.asString().str() + "\xAC" + cookie.asString().str() + "\xAC" + modification +
        "\xAC");
  }

  /// Another station's message that it saved an object of the open project.
  [[nodiscard]] ReceivedMessage savedMessage(const Cookie& cookie) const {
    return receivedMessage(
        "d\xAC"
        "2\xAC" +
        project.asString().str() + "\xAC" + cookie.asString().str() + "\xAC");
  }

  void remoteModification(const Cookie& cookie, const std::string& modification) {
    const RemoteChangeScope remote;
    EditManager::addNetMessage(cookie, wireText(cookie, modification));
  }

  using Notes = std::vector<std::string>;

  ScratchFolder folder;
  LoopNetwork network;
  HostOS os{network};
  NotedEvents events;
  NotedListener listener;
  SettableRules rules{listener.heard};
  Projects projects;
  Edits edits;
  Rooms rooms;
  Cookie project;
};

}  // namespace korvel
