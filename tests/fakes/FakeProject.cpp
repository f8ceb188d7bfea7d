#include "tests/fakes/FakeProject.h"

#include <algorithm>

#include "tests/fakes/FakeHost.h"

using namespace korvel;

namespace korvel {

namespace {

std::vector<ProjectListener*>& listeners() {
  static std::vector<ProjectListener*> all;
  return all;
}

}  // namespace

}  // namespace korvel

ProjectListener::ProjectListener() {
  listeners().push_back(this);
  FakeHost::current().journal.did("ProjectListener");
}

ProjectListener::~ProjectListener() {
  std::erase(listeners(), this);
  FakeHost::current().journal.did("~ProjectListener");
}

namespace korvel {

void FakeProject::eachListener(const std::function<void(ProjectListener&)>& event) {
  for (ProjectListener* listener : std::vector(listeners())) event(*listener);
}

}  // namespace korvel

Cookie get_project_cookie() { return FakeHost::current().project.current; }

bool ProjectSpacesManager::machineIsInNetworkMode() {
  FakeHost& host = FakeHost::current();
  host.journal.asked("ProjectSpacesManager::machineIsInNetworkMode");
  return host.project.networkMode;
}

int ProjectSpacesManager::getCurrentProjectSpaceType() {
  return FakeHost::current().project.spaceType;
}

void ProjectSpacesManager::refreshCurrentLobby() {
  FakeHost::current().journal.did("ProjectSpacesManager::refreshCurrentLobby");
}

namespace korvel {

CommandMap::Index FakeCommands::findCommand(const LightweightString<char>& name) const {
  journal_.asked("CommandMap::findCommand", {name});
  const auto found = std::find(names.begin(), names.end(), name.str());
  return found == names.end() ? kNotFound : static_cast<Index>(found - names.begin());
}

void FakeCommands::callCommand(Index index, const CommandContext&) {
  journal_.did("CommandMap::callCommand", {index < names.size() ? names[index] : "no command"});
}

}  // namespace korvel

CommandMap& CommandMap::theCommandMap() { return FakeHost::current().commands; }
