#include "station/Station.h"

#include <sys/stat.h>

#include <algorithm>
#include <sstream>

#include "host/base/Config.h"
#include "host/base/Log.h"
#include "host/base/Text.h"
#include "host/os/Files.h"
#include "host/project/iProjectShare.h"
#include "station/MessageJudge.h"
#include "station/Trash.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/containers/Containers.h"
#include "station/edit/Edits.h"
#include "station/edit/UnsavedEdits.h"
#include "station/keep/UndoList.h"
#include "station/media/MediaCache.h"
#include "station/net/HeardList.h"
#include "station/net/NetworkService.h"
#include "station/os/FileErrors.h"
#include "station/os/HostOS.h"
#include "station/os/SharedFiles.h"
#include "station/plugin/PluginLoader.h"
#include "station/project/DelayedReread.h"
#include "station/project/Names.h"
#include "station/project/Projects.h"
#include "station/project/Rooms.h"
#include "station/seal/Seals.h"
#include "station/talk/Asks.h"
#include "station/talk/Conversation.h"
#include "station/ui/Desktop.h"
#include "station/watch/CatchUp.h"
#include "station/watch/Happenings.h"
#include "station/watch/Health.h"
#include "station/watch/Presence.h"
#include "station/watch/StationNote.h"
#include "station/wire/MessageTable.h"

namespace korvel {

namespace {

/// The file by which other stations see that this one's user is there.
std::string markerFile() {
  return utf8Text(getProjectsBaseDirectory()) + settings().user + std::string(kMarkerEnding);
}

Result<void> checkProjectsDirectory() {
  const std::string& path = settings().projectsDirectory;
  const auto entries = listFresh(path);
  if (entries) return {};
  struct stat status {};
  const bool isFile = ::stat(path.c_str(), &status) == 0 && !S_ISDIR(status.st_mode);
  const std::string why = isFile ? path + " is no directory." : entries.error().message;
  return Error{
      entries.error().code,
      "The projects directory cannot be used: " + why + " Another is named with --projects DIR.",
      path};
}

void warnOfCutName(const char* what, const std::string& name, const char* option) {
  if (travelsWhole(name)) return;
  LogBoth(
      "The %s name \"%s\" holds a character that messages cannot carry whole: others will see it "
      "cut. Choose another with %s.\n",
      what, name, option);
}

std::shared_ptr<iTrafficObserver> heardList(const NetworkService& network) {
  const StationSettings& with = settings();
  if (with.shareHeard.empty()) return {};
  HeardList::Keeper keeper{with.shareHeard, with.user + " at " + with.host, with.host,
                           stationPort(), network.senderPort()};
  return std::make_shared<HeardList>(std::move(keeper));
}

/// The seals, which the network uses from now on.
std::shared_ptr<Seals> makeSeals(NetworkService& network) {
  const StationSettings& with = settings();
  auto seals = std::make_shared<Seals>(with.seal, with.projectsDirectory,
                                       Seals::senderOf(with.user, with.host, with.machine));
  network.sealBy(seals);
  return seals;
}

/// The counts of what the network hears and sends, which it keeps from now on.
std::shared_ptr<const TrafficCounts> observed(NetworkService& network) {
  auto counts = std::make_shared<TrafficCounts>(network.senderPort(), heardList(network));
  network.observe(counts);
  return counts;
}

}  // namespace

// In the order of need: each part uses earlier ones, and the plug-in, destroyed first, uses all.
struct Station::Parts {
  HostThread hostThread;
  DelayedReread lateLooks{hostThread, DelayedReread::delaysIn(settings().projectsDirectory)};
  NetworkService network{hostThread};
  std::shared_ptr<Seals> seals = makeSeals(network);
  std::shared_ptr<const TrafficCounts> traffic = observed(network);
  HostOS os{network};
  Projects projects;
  UndoList undo;
  Edits edits;
  Bins bins;
  Racks racks;
  Filters filters;
  MediaCache media;
  Rooms rooms;
  CatchUp catchUp{hostThread};
  UnsavedEdits unsaved{hostThread, edits};
  Happenings happenings{hostThread, edits};
  Trash trash{projects, {&bins, &racks, &filters}};
  Presence presence{hostThread, traffic, seals};
  MissingChanges missing{hostThread, edits, presence};
  Conversation conversation{settings().talk, settings().user, settings().projectsDirectory};
  Asks asks{{hostThread, projects, edits, rooms, presence, unsaved, conversation}};
  Health health{hostThread, catchUp, presence, unsaved, traffic};
  RemoteCommands commands;
  Desktop desktop;
  PluginLoader plugin;
};

Station::Station() : parts_(std::make_unique<Parts>()) {
  parts_->network.hookBy(
      {judgeMessage,
       [this](Ipv4 address, std::uint16_t port) { return parts_->presence.userAt(address, port); },
       [this](Ipv4 address, std::uint16_t port, std::uint64_t sender) {
         return parts_->presence.namesOf(address, port, sender);
       },
       [this](const std::string& wireText) { parts_->conversation.noteSent(wireText); },
       [this](const ReceivedMessage& message) {
         noteDelivered(message);
         parts_->asks.noteDelivered(message);
         parts_->conversation.noteDelivered(message);
       }});
  parts_->presence.talkBy({[this](StationNote& note) { parts_->asks.addTo(note); },
                           [this](const StationNote& note) { parts_->asks.noteStation(note); },
                           [this] { parts_->missing.look(); }});
  parts_->projects.addPart(parts_->edits);
  parts_->projects.addPart(parts_->bins);
  parts_->projects.addPart(parts_->racks);
  parts_->projects.addPart(parts_->filters);
  parts_->projects.addPart(parts_->media);
  parts_->projects.addPart(parts_->rooms);
  // After the edits, so that leaving keeps their unsaved changes before the edits forget them.
  parts_->projects.addPart(parts_->unsaved);
  parts_->projects.addPart(parts_->undo);
}

Station::~Station() { stop(Shutdown::eNormalExit); }

Result<void> Station::start() {
  if (auto checked = checkProjectsDirectory(); !checked) return checked;
  if (auto seen = parts_->projects.directory()->check(); !seen) return seen;
  if (auto loaded = parts_->plugin.load(settings().plugin); !loaded) return loaded;
  warnOfCutName("user", settings().user, "--user");
  warnOfCutName("host", upperCased(settings().host), "--host");
  markPresent();
  parts_->presence.start(pluginVersion());
  return {};
}

void Station::stop(Shutdown::eExitType type) {
  if (!parts_->plugin.plugin()) return;
  if (parts_->projects.current()) {
    if (auto left = parts_->projects.leave(); !left) LogBoth("%s\n", left.error().message);
  }
  parts_->presence.stop();
  unmarkPresent();
  parts_->desktop.closeTools();
  parts_->plugin.unload(type);
}

HostThread& Station::hostThread() { return parts_->hostThread; }
Asks& Station::asks() { return parts_->asks; }
Bins& Station::bins() { return parts_->bins; }
CatchUp& Station::catchUp() { return parts_->catchUp; }
Conversation& Station::conversation() { return parts_->conversation; }
Desktop& Station::desktop() { return parts_->desktop; }
Edits& Station::edits() { return parts_->edits; }
Filters& Station::filters() { return parts_->filters; }
Happenings& Station::happenings() { return parts_->happenings; }
Health& Station::health() { return parts_->health; }
MediaCache& Station::media() { return parts_->media; }
Presence& Station::presence() { return parts_->presence; }
Projects& Station::projects() { return parts_->projects; }
Racks& Station::racks() { return parts_->racks; }
Rooms& Station::rooms() { return parts_->rooms; }
Trash& Station::trash() { return parts_->trash; }

UndoList& Station::undo() { return parts_->undo; }

UnsavedEdits& Station::unsaved() { return parts_->unsaved; }

void Station::markPresent() {
  if (iProjectShare* share = iProjectShare::instance()) share->lockRoom({});
  const eFileError problem = parts_->os.fileManager().lastError();
  if (existsFresh(markerFile())) return;
  LogBoth(
      "Nothing can be written in the projects directory %s: others do not see this station, and "
      "changes cannot be saved, since %s.\n",
      settings().projectsDirectory, sentenceOf(fileProblem(problem)));
}

void Station::unmarkPresent() {
  if (auto removed = removeFileAt(markerFile()); !removed) {
    LogBoth("%s\n", removed.error().message);
  }
}

std::string Station::pluginName() const {
  const KvPluginBase* plugin = parts_->plugin.plugin();
  return plugin ? utf8Text(plugin->pluginName()) : std::string();
}

std::string Station::pluginVersion() const {
  const KvPluginBase* plugin = parts_->plugin.plugin();
  return plugin ? utf8Text(plugin->pluginVersion()) : std::string();
}

namespace {

/// Whether the projects directory has a list of users in which this one is not.
bool isLeftOut(const std::string& user) {
  const auto list = readFresh(settings().projectsDirectory + "/userlist.dat", kLargestList);
  if (!list) return false;
  std::istringstream lines(*list);
  bool hasNames = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.ends_with('\r')) line.pop_back();
    if (upperCased(line) == upperCased(user)) return false;
    hasNames = hasNames || !line.empty();
  }
  return hasNames;
}

}  // namespace

// Required, and messages rely on it: recipients are upper-cased host names, and a receiver compares
// them with its user's name as it is.
std::string Station::adviceOnNames() {
  const std::string& user = settings().user;
  const std::string address = upperCased(settings().host);
  for (const char* const reserved : {kEverybody, "RENDER", "<NOBODY>"}) {
    if (upperCased(user) != upperCased(reserved)) continue;
    return inQuotes(user) +
           " is no name for a user: stations mean something else by it. Choose another with "
           "--user.";
  }
  if (user != address) {
    return "Messages to you alone will not reach you: others address you by your host's name, " +
           inQuotes(address) + ", and your user name is " + inQuotes(user) +
           ". Start with --user and --host alike, in capitals, such as --user " +
           inQuotes(address) + ".";
  }
  if (!isAscii(user)) {
    return "Messages to you alone reach you as notifications, not in the panel: your name " +
           inQuotes(user) +
           " holds letters that are not ASCII. Start with --user and --host alike, in capitals "
           "from A to Z.";
  }
  if (isLeftOut(user)) {
    return "Others are not offered your name to write to: userlist.dat in the projects directory "
           "does not hold " +
           inQuotes(user) + ". Add it there as a line of its own.";
  }
  return {};
}

}  // namespace korvel
