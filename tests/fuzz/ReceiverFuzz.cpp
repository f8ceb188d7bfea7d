#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "ProjectShare/Messager.h"
#include "host/plugin/KvPluginBase.h"
#include "station/MessageJudge.h"
#include "station/base/StationSettings.h"
#include "station/containers/Containers.h"
#include "station/edit/EditActions.h"
#include "station/edit/Edits.h"
#include "station/media/MediaCache.h"
#include "station/os/HostOS.h"
#include "station/os/SharedFiles.h"
#include "station/project/DelayedReread.h"
#include "station/project/Projects.h"
#include "station/project/Rooms.h"
#include "station/ui/PanelDriver.h"
#include "tests/fakes/ScratchFolder.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/support/LoopNetwork.h"

using namespace korvel;

// Datagrams in, the real plug-in and real documents on a real folder behind. An input is a sequence
// of datagrams, each up to a zero byte. Whatever they say: no change is sent on, no operation of
// the plug-in fails, no byte below the projects directory changes, now or at the late looks, and
// what the user has not saved stays.

extern "C" bool kvPluginInstance(KvPluginBase** plugin);

namespace korvel {

namespace {

namespace fs = std::filesystem;

/// What words that spell the entry box's return event make an open panel send: that is required.
constexpr const char* kReturnPressed =
    "d\xAC"
    "10\xAC"
    "P0001\xAC"
    "ANNA\xAC<All>\xAC\xAC";

using Files = std::map<std::string, std::string>;

/// The host's operating system without its pauses, of which a message about a missing file has ten.
class HastyOS : public HostOS {
 public:
  using HostOS::HostOS;
  void sleepMilliseconds(unsigned) override {}
};

/// Notices the line that the plug-in logs when an operation of its own failed.
class FailureWatch : public iStationEvents {
 public:
  FailureWatch() { installEvents(this); }
  void log(bool, const std::string& text) override {
    if (text.rfind("Project Share: ", 0) == 0) mustBeEqual("log", text, "no failure");
  }
};

/// One of each kind of object; the edits hold a clip, and the bin holds them.
const Files& projectFiles() {
  static const std::string clip =
      R"({"OTIO_SCHEMA":"Clip.2","name":"c","metadata":{},"source_range":{"OTIO_SCHEMA":)"
      R"("TimeRange.1","start_time":{"OTIO_SCHEMA":"RationalTime.1","rate":24.0,"value":0.0},)"
      R"("duration":{"OTIO_SCHEMA":"RationalTime.1","rate":24.0,"value":9.0}}})";
  static const std::string edit =
      R"({"OTIO_SCHEMA":"Timeline.1","name":"Reel","metadata":{"korvel":{"config":{"OWNER":"ANNA"}}},)"
      R"("tracks":{"OTIO_SCHEMA":"Stack.1","children":[{"OTIO_SCHEMA":"Track.1","kind":"Video",)"
      R"("children":[)" +
      clip + "]}]}}";
  static const Files files{{"project.json", R"({"name":"Film","private":false})"},
                           {"E0001.otio", edit},
                           {"E0002.otio", edit},
                           {"S0001.otio", edit},
                           {"G0001.json", R"({"name":"Bin","contents":["E0001","S0001"]})"},
                           {"M0001.json", R"({"name":"Media","contents":[]})"},
                           {"B0001.json", R"({"name":"Rack","contents":["G0001"]})"},
                           {"F0001.json", R"({"name":"Day","filter":"day"})"}};
  return files;
}

/// A station of which everything is real but the network, on a file system in memory.
class FuzzedStation {
 public:
  explicit FuzzedStation(const std::string& folder) : folder_(folder) {
    StationSettings settings;
    settings.projectsDirectory = folder_;
    settings.user = settings.host = "ANNA";
    settings.machine = 7;
    installSettings(settings);
    fs::create_directory(projectFolder_);
    for (iProjectPart* part : std::initializer_list<iProjectPart*>{&edits_, &bins_, &racks_,
                                                                   &filters_, &media_, &rooms_}) {
      projects_.addPart(*part);
    }
    KvPluginBase* plugin = nullptr;
    kvPluginInstance(&plugin);
    plugin->postLoadInitialization();
    Messager::registerTypes();
    desktop_ = std::make_unique<Desktop>();
    static_cast<void>(PanelDriver(*desktop_).open());
  }

  /// Opens the project as it was in the beginning, with an edit and a log that the user looks at.
  void begin() {
    if (projects_.current()) static_cast<void>(projects_.leave());
    for (const auto& [name, bytes] : projectFiles()) restore(pathOf(name), bytes);
    const auto entered = projects_.enter("P0001");
    mustBeEqual("entering", entered ? "" : entered.error().message, "");
    static_cast<void>(edits_.open(Cookie("E0001", false)));
    static_cast<void>(edits_.open(Cookie("S0001", false)));
    const auto renamed = EditActions::rename(kUnsaved, "Unsaved");
    mustBeEqual("renaming", renamed ? "" : renamed.error().message, "");
    before_ = filesNow();
    network_.sent.clear();
  }

  void deliver(const std::string& datagram) { network_.deliver(datagram); }

  void check() {
    for (int times = 0; times < 4; ++times) thread_.runPending();
    for (const std::string& text : network_.sent) mustBeEqual("sent", text, kReturnPressed);
    static_cast<void>(writeJson(projects_.state()));
    checkFiles(filesNow());
    const EditFile* const unsaved = edits_.loaded(kUnsaved);
    mustBeEqual("unsaved", unsaved && unsaved->hasLocalChanges() ? "kept" : "lost", "kept");
  }

 private:
  [[nodiscard]] std::string pathOf(const std::string& name) const {
    return projectFolder_ + "/" + name;
  }

  static void restore(const std::string& path, const std::string& bytes) {
    const auto now = readListed(path);
    if (!now || *now != bytes) std::ofstream(path, std::ios::binary) << bytes;
  }

  [[nodiscard]] Files filesNow() const {
    Files files;
    for (const auto& entry : fs::recursive_directory_iterator(folder_)) {
      const auto bytes = entry.is_directory() ? Result<std::string>("") : readListed(entry.path());
      files[entry.path()] = bytes ? *bytes : bytes.error().message;
    }
    return files;
  }

  void checkFiles(const Files& now) const {
    for (const auto& [path, bytes] : before_) {
      mustBeEqual(path.c_str(), now.contains(path) ? now.at(path) : "gone", bytes);
    }
    for (const auto& [path, bytes] : now) {
      mustBeEqual(path.c_str(), before_.contains(path) ? "known" : "new", "known");
    }
  }

  const Cookie kUnsaved{"E0001", false};
  const std::string folder_;
  const std::string projectFolder_ = folder_ + "/P0001";
  Files before_;  ///< all below the projects directory, by path, before the datagrams
  FailureWatch watch_;
  HostThread thread_;
  DelayedReread looks_{thread_, {std::chrono::milliseconds(0), std::chrono::milliseconds(0)}};
  LoopNetwork network_;
  HastyOS os_{network_};
  Projects projects_;
  Edits edits_;
  Bins bins_;
  Racks racks_;
  Filters filters_;
  MediaCache media_;
  Rooms rooms_;
  RemoteCommands commands_;
  std::unique_ptr<Desktop> desktop_;
};

}  // namespace

}  // namespace korvel

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const ScratchFolder folder("/dev/shm");
  static auto* const station = new FuzzedStation(folder.path());
  std::istringstream datagrams{std::string(inputText(data, size))};
  station->begin();
  for (std::string datagram; std::getline(datagrams, datagram, '\0');) station->deliver(datagram);
  station->check();
  return 0;
}
