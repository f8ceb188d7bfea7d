#include "station/base/Events.h"

namespace korvel {

namespace {

/// Takes events while nobody listens.
class DroppingEvents : public iStationEvents {
 public:
  void sent(const std::string&) override {}
  void received(const std::string&) override {}
  void changed(const std::string&, const Cookie&, const std::string&, Origin) override {}
  void log(bool, const std::string&) override {}
  void command(const std::string&) override {}
  void network(const std::string&, std::uint64_t) override {}
  void notification(const std::string&) override {}
  void panel(const std::vector<std::string>&) override {}
};

DroppingEvents dropping;
iStationEvents* installed = &dropping;
int remoteScopes = 0;
int folderScopes = 0;

}  // namespace

iStationEvents& events() { return *installed; }

void installEvents(iStationEvents* sink) { installed = sink ? sink : &dropping; }

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

RemoteChangeScope::RemoteChangeScope() { ++remoteScopes; }

RemoteChangeScope::~RemoteChangeScope() { --remoteScopes; }

FolderChangeScope::FolderChangeScope() { ++folderScopes; }

FolderChangeScope::~FolderChangeScope() { --folderScopes; }

}  // namespace korvel
