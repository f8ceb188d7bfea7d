#pragma once

#include "host/base/HostApi.h"

class GenIcon;

/// Dragging tools out of the toolbox. User-interface thread.
class KV_HOST_API DragDropManager {
 public:
  /// Begins to drag a tool; one that was being dragged is left where it is.
  static void beginDrag(GenIcon* tool);

  /// Ends the drag: a tool that has a drag source leaves it, has none any more, and lies on the
  /// desktop, centred on the mouse. Nothing when nothing is dragged, or when there is no desktop.
  static void drop();

  /// The tool that is being dragged, or null.
  static GenIcon* dragged();
};
