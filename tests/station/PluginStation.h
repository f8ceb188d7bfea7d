#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "station/MessageJudge.h"
#include "station/base/Events.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/containers/Containers.h"
#include "station/edit/EditActions.h"
#include "station/edit/Edits.h"
#include "station/media/MediaCache.h"
#include "station/os/HostOS.h"
#include "station/plugin/PluginLoader.h"
#include "station/project/Projects.h"
#include "station/project/Rooms.h"
#include "station/ui/Desktop.h"
#include "station/wire/MessageTable.h"
#include "tests/fakes/ScratchFolder.h"
#include "tests/support/LoopNetwork.h"

namespace korvel {

/// The real plug-in in a real host, on a folder of its own: user "anna", no network but a loop.
class PluginStation : public ::testing::Test {
 protected:
  PluginStation() {
    StationSettings chosen;
    chosen.projectsDirectory = folder.path();
    chosen.user = chosen.host = "anna";
    chosen.machine = 7;
    installSettings(chosen);
    write(folder / "userlist.dat", "bob\n");
    for (iProjectPart* part :
         std::initializer_list<iProjectPart*>{&edits, &bins, &racks, &filters, &media, &rooms}) {
      projects.addPart(*part);
    }
    if (auto loaded = plugin.load(KV_PLUGIN); !loaded) {
      throw std::runtime_error(loaded.error().message);
    }
    enter("Film", Kind::eShared);
  }

  // The types of tool belong to the plug-in, which goes before them.
  ~PluginStation() override { ComponentTypes::instance().clear(); }

  enum class Kind { eShared, ePrivate };

  /// Makes a project and enters it.
  void enter(const std::string& name, Kind kind) {
    const auto made = projects.create(name, kind == Kind::ePrivate);
    if (!made) throw std::runtime_error(made.error().message);
    project = *made;
    const auto entered = projects.enter(name);
    ASSERT_TRUE(entered) << entered.error().message;
    network.sent.clear();
  }

  Cookie imported(const std::string& sample) {
    const auto cookie = EditActions::import(std::string(KV_SAMPLES) + "/" + sample);
    EXPECT_TRUE(cookie) << cookie.error().message;
    network.sent.clear();
    return *cookie;
  }

  Cookie made(const std::string& name, char kind = CookieTypeEdit) {
    const auto cookie = EditActions::create(name, kind);
    EXPECT_TRUE(cookie);
    network.sent.clear();
    return *cookie;
  }

  /// A message of another station about the open project.
  [[nodiscard]] std::string message(int type, const std::vector<std::string>& fields) const {
    std::string text = "d\xAC" + std::to_string(type) + "\xAC" + project.asString().str() + "\xAC";
    for (const std::string& field : fields) text += field + "\xAC";
    return text;
  }

  /// The types of what was sent.
  [[nodiscard]] std::vector<int> sentTypes() const {
    std::vector<int> types;
    for (const std::string& text : network.sent) types.push_back(readMessage(text).type);
    return types;
  }

  [[nodiscard]] std::string fileOf(const Cookie& cookie) const { return edits.pathFor(cookie); }

  static std::string bytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  static void write(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
  }

  /// What another station does that takes a lock: the file held, and the holder's name beside it.
  Kv::Ptr<iFile> holdElsewhere(const std::string& lockFile, const std::string& holder) {
    std::filesystem::create_directories(std::filesystem::path(lockFile).parent_path());
    Kv::Ptr<iFile> file = os.fileManager().openFile(wideText(lockFile), eFileReadWrite, eFileCreate,
                                                    eFileShareNone, eFileNoFlags);
    EXPECT_TRUE(file && file->isOpen());
    if (!holder.empty()) write(lockFile + ".inf", holder);
    return file;
  }

  using Types = std::vector<int>;

  ScratchFolder folder;
  LoopNetwork network;
  HostOS os{network};
  Projects projects;
  Edits edits;
  Bins bins;
  Racks racks;
  Filters filters;
  MediaCache media;
  Rooms rooms;
  RemoteCommands commands;
  PluginLoader plugin;
  Cookie project;
};

}  // namespace korvel
