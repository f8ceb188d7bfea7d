#include "host/ui/GenIcon.h"

#include <algorithm>

#include "host/ui/DragDropManager.h"
#include "station/base/HostParts.h"
#include "station/ui/Desktop.h"

using namespace korvel;

namespace korvel {

namespace {

/// The size of an icon whose picture is missing.
constexpr Size kEmptyIcon{48, 35};

Size sizeOf(const IconSet& icon) { return icon.isValid() ? icon.size() : kEmptyIcon; }

double keepWithin(double wish, double length, double room) {
  return std::max(0.0, std::min(wish, room - length));
}

}  // namespace

}  // namespace korvel

GenIcon::GenIcon(const IconSet& icon, const Size& expandedSize)
    : icon_(icon), expandedSize_(expandedSize) {
  const Size size = sizeOf(icon);
  StandardPanel::resize(size.width, size.height);
}

GenIcon::GenIcon(const IconSet& icon, const GlobCreationInfo& info, const Size& expandedSize)
    : GenIcon(icon, expandedSize) {
  if (info.restore == 0) return;
  sizeState_ = info.sizeState;
  restoredPosition_ = info.position;
  setPosition(info.position);
}

GenIcon::~GenIcon() {
  if (DragDropManager::dragged() == this) DragDropManager::beginDrag(nullptr);
}

void GenIcon::reInit(const IconSet& icon) {
  icon_ = icon;
  draw();
}

void GenIcon::requestToolboxRepopulate() {
  if (Desktop* desktop = hostParts().desktop) desktop->toolbox().populate();
}

XY GenIcon::getMaximisedPos(const Size& wanted) {
  if (restoredPosition_) return *std::exchange(restoredPosition_, std::nullopt);
  const XY centre{position().x + size().width / 2, position().y + size().height / 2};
  const Size room = hostParts().desktop ? hostParts().desktop->size() : Desktop::kDefaultSize;
  return {keepWithin(centre.x - wanted.width / 2, wanted.width, room.width),
          keepWithin(centre.y - wanted.height / 2, wanted.height, room.height)};
}

bool GenIcon::takesFocus() const { return sizeState_ == eIconState; }

bool GenIcon::handleEvent(const Event& event) {
  const bool isClick = event.type == Event::eMousePress && event.button == Event::eLeftButton;
  const bool isReturn = event.type == Event::eKeyPress && event.key == Event::eReturn;
  if (sizeState_ != eIconState || (!isClick && !isReturn)) return StandardPanel::handleEvent(event);
  generateTool();
  return true;
}
