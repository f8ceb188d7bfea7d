#include "station/ui/Toolbox.h"

#include "host/base/Log.h"
#include "station/ui/ComponentTypes.h"

namespace korvel {

namespace {

constexpr double kWidth = 60;
constexpr double kToolGap = 6;

bool isOnDesktop(const Glob* desktop, const LightweightString<char>& typeName) {
  if (!desktop) return false;
  for (const auto& child : desktop->children()) {
    if (child->idstring() == typeName) return true;
  }
  return false;
}

}  // namespace

Toolbox::Toolbox() { Glob::resize(kWidth, 0); }

void Toolbox::populate() {
  for (const LightweightString<char>& name : ComponentTypes::instance().names()) {
    GenIcon* icon = iconOf(name);
    if (isOnDesktop(parent(), name)) {
      takeChild(icon);
      continue;
    }
    if (icon) continue;
    GlobCreationInfo info;
    info.typeName = name;
    Result<std::unique_ptr<GenIcon>> made = ComponentTypes::create(info);
    if (made) {
      addIcon(std::move(*made));
    } else {
      LogBoth("%s\n", made.error().message);
    }
  }
  lineUp();
}

GenIcon* Toolbox::iconOf(const LightweightString<char>& typeName) const {
  for (const auto& child : children()) {
    if (child->idstring() == typeName) return dynamic_cast<GenIcon*>(child.get());
  }
  return nullptr;
}

void Toolbox::addIcon(std::unique_ptr<GenIcon> icon) {
  icon->setDragSource(this);
  addChild(std::move(icon));
}

void Toolbox::lineUp() {
  double y = kToolGap;
  for (const auto& child : children()) {
    child->setPosition({(kWidth - child->size().width) / 2, y});
    y += child->size().height + kToolGap;
  }
  resize(kWidth, y);
  draw();
}

}  // namespace korvel
