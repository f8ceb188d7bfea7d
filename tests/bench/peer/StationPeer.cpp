// A whole station with the plug-in: from the host's notification on one to the applied change on
// the others.

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

#include "station/Station.h"
#include "station/base/Events.h"
#include "station/base/HostParts.h"
#include "station/base/StationSettings.h"
#include "station/edit/Edits.h"
#include "station/project/Projects.h"
#include "station/wire/MessageTable.h"
#include "tests/bench/peer/Payload.h"
#include "tests/bench/peer/Peer.h"

using namespace korvel;

namespace korvel {

namespace {

/// Tells the board of every change that another station made.
class AppliedChanges : public iStationEvents {
 public:
  AppliedChanges(Board& board, std::size_t peer) : board_(board), peer_(peer) {}

  void changed(const std::string& what, const Cookie& cookie, const std::string&,
               Origin origin) override {
    if (origin != Origin::eRemote || what != "edit") return;
    const ReceivedMessage* const message = currentMessage();
    if (message && message->fields.type == MessageType::eEditModification) {
      return board_.arrived(peer_, startOf(message->fields.modification));
    }
    const auto& bytes = cookie.getUuid().bytes;
    board_.arrived(peer_, bytes[14] * 256U + bytes[15]);
  }
  void network(const std::string& problem, std::uint64_t) override {
    std::fprintf(stderr, "%s\n", problem.c_str());
  }

 private:
  static std::uint32_t startOf(const std::string& modification) {
    return static_cast<std::uint32_t>(numberAtStart(modification.substr(2)));
  }

  Board& board_;
  std::size_t peer_;
};

StationSettings settingsFor(const PeerArguments& arguments) {
  StationSettings settings;
  settings.projectsDirectory = arguments.folder;
  settings.user = settings.host = "PEER" + std::to_string(arguments.number);
  settings.machine = static_cast<int>(arguments.number) + 1;
  settings.sendTo = {"127.255.255.255"};
  // Mostly it is measured how fast it can be.
  const char* const limit = std::getenv(kReceiveLimitVariable);
  settings.config["receive_limit"] = limit ? limit : "0";
  settings.config["shared_projects_udp_port"] = std::to_string(arguments.port);
  settings.plugin = KV_PLUGIN;
  return settings;
}

/// Sends what the host's notifications make the plug-in send: of edits that were saved, or of a
/// long edit's trims.
class Notifications : public iTransport {
 public:
  Notifications(HostThread& hostThread, const PeerArguments& arguments)
      : hostThread_(hostThread), areTrims_(arguments.kind == PeerArguments::kLongEdit) {
    for (std::uint32_t number = 0; number < Board::kMessages; ++number) {
      edits_.emplace_back(benchEdit(number).c_str(), false);
      trims_.emplace_back(LightweightString<char>(benchTrim(number).c_str()));
    }
  }

  void send(std::uint32_t number) override {
    ProjectListeners::instance().tell([&](ProjectListener& each) {
      if (areTrims_) {
        each.handleLogModification(longEdit_, trims_[number]);
      } else {
        each.handleLogStorage(edits_[number], false);
      }
    });
  }

  void onSendingThread(const std::function<void()>& work) override {
    std::mutex mutex;
    std::condition_variable done;
    bool isDone = false;
    hostThread_.post([&] {
      work();
      const std::lock_guard lock(mutex);
      isDone = true;
      done.notify_one();
    });
    std::unique_lock lock(mutex);
    done.wait(lock, [&isDone] { return isDone; });
  }

 private:
  HostThread& hostThread_;
  const bool areTrims_;
  const Cookie longEdit_{kBenchLongEdit, false};
  std::vector<Cookie> edits_;
  std::vector<EditModification> trims_;
};

template <typename Value>
void require(const Result<Value>& result) {
  if (result) return;
  std::fprintf(stderr, "%s\n", result.error().message.c_str());
  std::exit(1);
}

}  // namespace

}  // namespace korvel

int main(int argc, char** argv) {
  const PeerArguments arguments = readPeerArguments(argc, argv);
  const SharedBoard board(arguments.board);
  AppliedChanges events(*board, arguments.number);
  installSettings(settingsFor(arguments));
  installEvents(&events);
  Station station;
  require(station.start());
  require(hostParts().projects->enter(kBenchProject));
  if (arguments.kind == PeerArguments::kLongEdit) {
    require(openEdits().open(Cookie(kBenchLongEdit, false)));
  }
  std::thread commands([&] {
    Notifications notifications(station.hostThread(), arguments);
    obey(*board, notifications);
    station.hostThread().stop();
  });
  station.hostThread().run();
  commands.join();
  station.stop(Shutdown::eNormalExit);
  installEvents(nullptr);
}
