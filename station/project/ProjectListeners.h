#pragma once

#include <vector>

#include "host/project/ProjectListener.h"

namespace korvel {

/// Every living ProjectListener, in the order of construction. Host thread.
class ProjectListeners {
 public:
  /// The one object. It is never destroyed, since listeners may end as late as the process does.
  static ProjectListeners& instance();

  void add(ProjectListener* listener);
  void remove(ProjectListener* listener);

  /// Calls `event` with each listener. One that is destroyed meanwhile is not called any more; one
  /// that is made meanwhile is called from the next event on.
  template <typename Event>
  void tell(const Event& event) {
    const std::vector<ProjectListener*> now = listeners_;
    for (ProjectListener* listener : now) {
      if (isListening(listener)) event(*listener);
    }
  }

 private:
  ProjectListeners() = default;
  [[nodiscard]] bool isListening(const ProjectListener* listener) const;

  std::vector<ProjectListener*> listeners_;
};

}  // namespace korvel
