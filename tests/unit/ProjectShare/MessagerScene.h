#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ProjectShare/Broadcaster.h"
#include "ProjectShare/Messager.h"
#include "station/base/Events.h"
#include "station/base/Strings.h"
#include "station/ui/Desktop.h"
#include "station/ui/PanelDriver.h"
#include "tests/fakes/FakeServices.h"
#include "tests/support/WireFields.h"

namespace korvel {

/// The message panel of the user "anna", with real widgets on a desktop, and a network that keeps
/// what is sent.
class MessagerScene {
 public:
  using Lines = std::vector<std::string>;

  MessagerScene() {
    permissions->users = {L"ANNA", L"BOB"};
    Messager::registerTypes();
  }

  [[nodiscard]] Messager* panel() const {
    return dynamic_cast<Messager*>(GlobManager::find("Messager"));
  }

  template <typename Widget>
  [[nodiscard]] Widget* child() const {
    for (const auto& each : panel()->children()) {
      if (auto* widget = dynamic_cast<Widget*>(each.get())) return widget;
    }
    return nullptr;
  }

  /// The conversation, or nothing where there is none.
  [[nodiscard]] Lines lines() const {
    const auto shown = hands.lines();
    return shown ? *shown : Lines{};
  }

  /// Hands the panel a text as the receiver does, in which "|" stands for the separator byte.
  bool hand(const std::string& text) {
    return panel()->handleMessageEvent(lightweight(wire(text)), panel());
  }

  /// The recipients offered, as UTF-8.
  [[nodiscard]] Lines recipients() const {
    Lines names;
    for (const auto& name : child<TitleMenuButton>()->items()) names.push_back(utf8Text(name));
    return names;
  }

  FakeHost host;
  FakeProjectShare share;
  std::unique_ptr<FakePermissions> permissions = std::make_unique<FakePermissions>();
  Kv::Ptr<ProjectSharing::Broadcaster> broadcaster{new ProjectSharing::Broadcaster};
  Desktop desktop;
  PanelDriver hands{desktop};
};

}  // namespace korvel
