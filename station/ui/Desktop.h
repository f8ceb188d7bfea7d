#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "host/ui/GenIcon.h"
#include "host/ui/Geometry.h"
#include "host/ui/Glob.h"
#include "host/ui/GlobManager.h"
#include "host/ui/StandardPanel.h"
#include "station/base/HostParts.h"
#include "station/base/Result.h"

namespace korvel {

/// What the toolkit knows of the one screen of a process: every living widget, the mouse, who has
/// the keyboard and whether something waits to be shown. Host thread.
class Screen {
 public:
  static Screen& instance();

  /// Every widget enters on construction and leaves on destruction; whatever referred to it here is
  /// then forgotten.
  void add(Glob* widget);
  void remove(Glob* widget);

  /// Whether the address is that of a living widget; it is not followed.
  [[nodiscard]] bool isAlive(const Glob* widget) const { return alive_.contains(widget); }

  /// All living widgets, the oldest first.
  [[nodiscard]] const std::vector<Glob*>& widgets() const { return widgets_; }

  void moveMouse(const XY& position) { mouse_ = position; }
  [[nodiscard]] const XY& mouse() const { return mouse_; }

  void giveFocus(Glob* widget) { focus_ = widget; }
  [[nodiscard]] Glob* focus() const { return focus_; }

  /// The widget that sees all mouse presses first, such as an open menu; null for none.
  void grabMouse(Glob* widget) { grabber_ = widget; }
  [[nodiscard]] Glob* mouseGrabber() const { return grabber_; }

  /// Something was drawn: the screen is updated now, or when the last deferral ends.
  void noteDrawing();
  void deferUpdates() { ++deferrals_; }
  void resumeUpdates();

  /// The number of screen updates so far.
  [[nodiscard]] std::uint64_t updates() const { return updates_; }

 private:
  void update();

  std::vector<Glob*> widgets_;
  std::unordered_set<const Glob*> alive_;
  XY mouse_;
  Glob* focus_ = nullptr;
  Glob* grabber_ = nullptr;
  int deferrals_ = 0;
  bool hasDrawing_ = false;
  std::uint64_t updates_ = 0;
};

/// The types of tool that plug-ins registered, in the order in which they did. Host thread.
class ComponentTypes {
 public:
  static ComponentTypes& instance();

  /// Adds a type, or replaces the factory of one of the same name.
  void add(const LightweightString<char>& name, GlobManager::Factory factory);

  /// Forgets all types; before the code of their factories goes away.
  void clear() { types_.clear(); }

  [[nodiscard]] std::vector<LightweightString<char>> names() const;

  /// Makes a tool of the type that `info` names. Failure: no such type, or its factory made nothing
  /// that is a tool.
  static Result<std::unique_ptr<GenIcon>> create(GlobCreationInfo info);

 private:
  struct Type {
    LightweightString<char> name;
    GlobManager::Factory factory;
  };

  [[nodiscard]] const Type* find(const LightweightString<char>& name) const;

  std::vector<Type> types_;
};

/// A column of icons at the desktop's left edge: one of every type of tool that is not on the
/// desktop.
class Toolbox : public Glob {
 public:
  Toolbox();

  /// Makes the icons that are missing and removes those whose tool is on the desktop. A tool that
  /// cannot be made is reported in the log.
  void populate();

  /// The icon of a type, or null.
  [[nodiscard]] GenIcon* iconOf(const LightweightString<char>& typeName) const;

 private:
  void addIcon(std::unique_ptr<GenIcon> icon);
  void lineUp();
};

/// One of the small boxes that a panel's standard widgets consist of.
class PanelBox : public Glob {
 public:
  static constexpr double kSide = 16;

  explicit PanelBox(StandardPanel::eStandardWidget which);

  [[nodiscard]] StandardPanel::eStandardWidget which() const { return which_; }

  /// A left click or the return key does what the box is for to the tool that it is in.
  bool handleEvent(const Event& event) override;
  [[nodiscard]] bool takesFocus() const override { return true; }

 private:
  StandardPanel::eStandardWidget which_;
};

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
  /// next widget that takes the keyboard. True when a widget handled it.
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

/// The folder of the host's resources: the configuration's `resources`, which kv-station sets, else
/// the folder "resources" beside the library that holds the toolkit. Any thread.
std::string resourceDirectory();

/// The size in pixels of the PNG picture in a file; nothing when it cannot be read or is no PNG.
std::optional<Size> pngSize(const std::string& path);

}  // namespace korvel
