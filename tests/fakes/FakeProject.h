#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/project/CommandMap.h"
#include "host/project/ProjectListener.h"
#include "host/project/ProjectSpacesManager.h"
#include "tests/fakes/Journal.h"

namespace korvel {

/// Which project is open, in which kind of space, and who listens.
class FakeProject {
 public:
  Cookie current{"P0001", false};
  bool networkMode = true;
  int spaceType = ProjectSpacesManager::eSharedProjectSpace;

  /// Calls every living listener, in the order of construction.
  void eachListener(const std::function<void(ProjectListener&)>& event);
};

/// The commands that another machine may ask for.
class FakeCommands : public CommandMap {
 public:
  explicit FakeCommands(Journal& journal) : journal_(journal) {}
  std::vector<std::string> names;
  [[nodiscard]] Index findCommand(const LightweightString<char>& name) const override;
  void callCommand(Index index, const CommandContext& context) override;

 private:
  Journal& journal_;
};

}  // namespace korvel
