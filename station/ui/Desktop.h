#pragma once

#include <memory>
#include <vector>

#include "host/ui/GenIcon.h"
#include "station/base/HostParts.h"
#include "station/ui/Toolbox.h"

namespace korvel {

/// What is kept of a tool on the desktop, to restore it later.
struct SavedTool {
  LightweightString<char> typeName;
  int sizeState = eIconState;
  XY position;
};

/// The root of all widgets: the toolbox and the tools that the user took out of it.
///
/// It is the last to be asked about texts, and takes every one as a notification, so that nothing
/// that a colleague wrote is lost unseen. One object a process. Host
/// thread.
class Desktop : public Glob {
 public:
  static constexpr Size kDefaultSize{1920, 1080};

  /// Becomes the current desktop, with a toolbox of the types registered so far.
  Desktop();

  /// Destroys all tools.
  ~Desktop() override;

  [[nodiscard]] Toolbox& toolbox() const { return *toolbox_; }

  /// Hands what the user did to the widget concerned: mouse events to the one under the mouse, keys
  /// and text to the one that has the keyboard; upwards from there. The tab key moves on to the
  /// next widget that takes the keyboard. True when somebody handled it.
  bool dispatch(const Event& event);

  /// Takes a tool off the desktop and destroys it; the toolbox offers it again if the tool asks for
  /// that.
  void putAway(GenIcon& tool);

  /// The tools on the desktop as they are now, and puts such tools back. What cannot be restored is
  /// reported in the log and left out.
  [[nodiscard]] std::vector<SavedTool> savedTools() const;
  void restoreTools(const std::vector<SavedTool>& tools);

  /// Destroys all tools and forgets their types; before the plug-ins they come from are unloaded.
  void closeTools();

  /// Shows a text to the user as a notification. Always true.
  bool handleMessageEvent(const LightweightString<char>& text, Glob* sender) override;

 private:
  bool dispatchMouse(const Event& event);
  bool moveFocus();

  Toolbox* toolbox_ = nullptr;
  const HostEntry<Desktop> entry_{&HostParts::desktop, *this};
};

}  // namespace korvel
