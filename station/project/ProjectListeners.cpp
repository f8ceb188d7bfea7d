#include "station/project/ProjectListeners.h"

#include <algorithm>

using namespace korvel;

namespace korvel {

ProjectListeners& ProjectListeners::instance() {
  static auto* const listeners = new ProjectListeners;
  return *listeners;
}

void ProjectListeners::add(ProjectListener* listener) { listeners_.push_back(listener); }

void ProjectListeners::remove(ProjectListener* listener) { std::erase(listeners_, listener); }

bool ProjectListeners::isListening(const ProjectListener* listener) const {
  return std::find(listeners_.begin(), listeners_.end(), listener) != listeners_.end();
}

}  // namespace korvel

ProjectListener::ProjectListener() { ProjectListeners::instance().add(this); }

ProjectListener::~ProjectListener() { ProjectListeners::instance().remove(this); }
