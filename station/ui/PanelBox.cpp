#include "station/ui/PanelBox.h"

#include "station/base/HostParts.h"
#include "station/ui/Desktop.h"

namespace korvel {

PanelBox::PanelBox(StandardPanel::eStandardWidget which) : which_(which) {
  Glob::resize(kSide, kSide);
}

bool PanelBox::handleEvent(const Event& event) {
  const bool isClick = event.type == Event::eMousePress && event.button == Event::eLeftButton;
  const bool isReturn = event.type == Event::eKeyPress && event.key == Event::eReturn;
  auto* tool = dynamic_cast<GenIcon*>(parent());
  if (!tool || (!isClick && !isReturn)) return false;
  // Either destroys this box.
  if (which_ == StandardPanel::eCollapseBox) {
    tool->handleFlipSize();
  } else if (Desktop* desktop = hostParts().desktop) {
    desktop->putAway(*tool);
  }
  return true;
}

}  // namespace korvel
