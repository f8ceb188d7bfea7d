#pragma once

#include <algorithm>
#include <vector>

#include "host/plugin/Shutdown.h"

namespace korvel {

/// The living objects of one interface, of which the host uses the one registered last. Usable
/// while static objects are built and destroyed. Host thread.
template <typename Interface>
class InstanceRegistry {
 public:
  static void add(Interface* object) { objects().push_back(object); }
  static void remove(Interface* object) { std::erase(objects(), object); }

  /// The object added last that was not removed, or null.
  static Interface* newest() { return objects().empty() ? nullptr : objects().back(); }

 private:
  static std::vector<Interface*>& objects() {
    static auto* const list = new std::vector<Interface*>;
    return *list;
  }
};

/// Calls what was registered with Shutdown::addCallback, each callback once: the highest priority
/// first, equal priorities in the order of registration. What a callback registers meanwhile is
/// called as well; one that throws is logged, and the others go on. Host thread, before the
/// plug-ins are unloaded.
void runShutdownCallbacks(Shutdown::eExitType type);

}  // namespace korvel
