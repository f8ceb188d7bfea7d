#pragma once

// Tools: what a user takes out of the toolbox and puts on the desktop, such as the message panel.
//
// A plug-in registers a type of tool with GlobManager and derives its class from GenIcon. The
// toolkit calls the functions below as the user's hands work: a tool is an icon or an open panel,
// and the same object is both, one after the other.

#include <optional>

#include "host/base/HostApi.h"
#include "host/ui/GlobManager.h"
#include "host/ui/IconSet.h"
#include "host/ui/StandardPanel.h"

/// A tool: an icon that a user opens into a panel, and closes to an icon again.
///
///     toolbox --drag or click--> generateTool() --> panel
///     icon    --click or return--> generateTool() --> panel --collapse box--> handleFlipSize()
///     panel   --close box--> handlePoot(), then it is destroyed, and the toolbox offers it again
class KV_HOST_API GenIcon : public StandardPanel {
 public:
  /// An icon that opens to `expandedSize`.
  GenIcon(const IconSet& icon, const Size& expandedSize);

  /// The same, in the state and at the place that `info` restores, if it restores anything.
  GenIcon(const IconSet& icon, const GlobCreationInfo& info, const Size& expandedSize);
  ~GenIcon() override;

  /// Takes another icon and draws it.
  void reInit(const IconSet& icon);

  /// The icon that is drawn while the tool is one.
  [[nodiscard]] const IconSet& icon() const { return icon_; }

  /// Reads the icon again; called when the screen's scale or theme changes.
  virtual void reloadIcon() {}

  /// The size of the open panel.
  virtual Size calcSize() { return expandedSize_; }

  /// Lays the tool out as an icon or a panel; `sizeState` is one of eSizeState.
  virtual void setSizeState(int sizeState) { setSizeFlag(sizeState); }

  /// Notes the state without laying anything out.
  void setSizeFlag(int sizeState) { sizeState_ = sizeState; }

  /// One of eSizeState; this is what is saved with the desktop.
  [[nodiscard]] int sizeState() const { return sizeState_; }

  /// The icon was clicked or dragged out of the toolbox.
  virtual void generateTool() {}

  /// The panel's collapse box was pressed.
  virtual void handleFlipSize() {}

  /// The tool is put away: it was taken off the desktop and is destroyed after this. True when
  /// handled.
  virtual bool handlePoot() { return false; }

  /// Asks the host to put every type of tool that is not on the desktop into the toolbox.
  void requestToolboxRepopulate();

  /// Where a panel of a size goes that opens from this icon: centred on it, and moved as far as is
  /// needed to lie on the desktop; for a restored panel, where it was.
  XY getMaximisedPos(const Size& size);

  /// The toolbox that the icon lies in; null on the desktop.
  void setDragSource(Glob* source) { dragSource_ = source; }
  [[nodiscard]] Glob* dragSource() const { return dragSource_; }

  /// A click on an icon, or return on it, calls generateTool().
  bool handleEvent(const Event& event) override;

  /// An icon can be reached with the keyboard; an open panel leaves that to what it holds.
  [[nodiscard]] bool takesFocus() const override;

 private:
  IconSet icon_;
  Size expandedSize_;
  int sizeState_ = eIconState;
  Glob* dragSource_ = nullptr;
  std::optional<XY> restoredPosition_;
};

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
