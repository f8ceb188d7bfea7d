#include "host/project/ProjectSpacesManager.h"
#include "station/base/Events.h"
#include "station/base/HostParts.h"
#include "station/base/StationSettings.h"
#include "station/project/Projects.h"
#include "station/project/Rooms.h"

using namespace korvel;

Cookie get_project_cookie() {
  const OpenProject* project = hostParts().projects->current();
  return project ? project->cookie : Cookie();
}

bool ProjectSpacesManager::machineIsInNetworkMode() { return settings().networkMode; }

int ProjectSpacesManager::getCurrentProjectSpaceType() {
  const OpenProject* project = hostParts().projects->current();
  if (!project) return eNoProjectSpace;
  return project->isPrivate ? ePrivateProjectSpace : eSharedProjectSpace;
}

// Occupancy is read from the share whenever it is shown, so that what a station left when it died
// shows too: whoever shows it is told to look again.
void ProjectSpacesManager::refreshCurrentLobby() {
  events().changed("room", get_project_cookie(), "refreshed", currentOrigin());
  Rooms::noteToldHere();
}
