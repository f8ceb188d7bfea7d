#include "host/ui/DragDropManager.h"

#include "station/base/HostParts.h"
#include "station/ui/Desktop.h"

using namespace korvel;

namespace korvel {

namespace {

GenIcon* draggedTool = nullptr;

}  // namespace

}  // namespace korvel

void DragDropManager::beginDrag(GenIcon* tool) { draggedTool = tool; }

GenIcon* DragDropManager::dragged() { return draggedTool; }

void DragDropManager::drop() {
  GenIcon* tool = std::exchange(draggedTool, nullptr);
  Desktop* desktop = hostParts().desktop;
  if (!tool || !tool->dragSource() || !desktop) return;
  std::unique_ptr<Glob> taken = tool->dragSource()->takeChild(tool);
  tool->setDragSource(nullptr);
  if (!taken) return;
  const XY mouse = Glob::getMousePos();
  tool->setPosition({mouse.x - tool->size().width / 2, mouse.y - tool->size().height / 2});
  desktop->addChild(std::move(taken));
  desktop->toolbox().populate();
}
