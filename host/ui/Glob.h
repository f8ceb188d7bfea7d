#pragma once

// The widget, and what happens to widgets.
//
//     desktop
//       +- message panel                  a GenIcon, and so a StandardPanel, a MenuGlob, a Glob
//            +- recipient button
//            +- scroll box
//            +- entry box
//
// Two things travel in this tree. Events come from the user's hands: the toolkit hands them to the
// widget under the mouse, or to the one that has the keyboard. Texts come from other code: a box
// tells its panel "return was pressed", a plug-in hands a received message to the widget that
// shows it. Either goes upwards until somebody handles it. At the top the desktop shows a text to
// the user as a notification, so no text is lost unseen.

#include <memory>
#include <string>
#include <utility>

#include "host/base/HostApi.h"
#include "host/base/LightweightString.h"
#include "host/ui/Geometry.h"

/// One thing that the user's hands did. A plain value, alive while it is delivered.
struct Event {
  enum eType {
    eMousePress,
    eMouseRelease,
    eMouseMove,
    eMouseWheel,
    eKeyPress,   ///< a key that is no text: see `key`
    eTextInput,  ///< typed or pasted text: see `text`
  };
  enum eButton { eNoButton, eLeftButton, eRightButton };
  enum eKey {
    eNoKey,
    eReturn,
    eEscape,
    eTab,
    eBackspace,
    eDelete,
    eLeft,
    eRight,
    eUp,
    eDown,
    eHome,
    eEnd,
  };

  eType type = eMouseMove;
  XY position;  ///< where the mouse is, on the desktop
  eButton button = eNoButton;
  eKey key = eNoKey;
  LightweightString<wchar_t> text;
  double wheel = 0;  ///< lines to scroll, positive towards the end
};

class Glob;

/// Where a child is put in its parent, and where it is put again when the parent changes its size.
struct GlobPlacement {
  enum eKind {
    eFree,          ///< the child's own position, relative to the parent's top-left corner
    eUserTopRight,  ///< right and top edges at the corner of the parent's user area
    eBelow,         ///< under a sibling, right edges in line
  };
  eKind kind = eFree;
  const Glob* sibling = nullptr;  ///< must be a child of the same parent, added before
  XY offset;                      ///< leftwards and downwards from the corner; the gap, as y
};

/// A widget: a rectangle on the desktop that shows something, takes the user's hands and is sent
/// short texts.
///
/// Widgets form a tree with the desktop at its root. A parent owns its children. Events and texts
/// that a widget does not handle go to its parent, and so on up to the desktop. A widget may be
/// destroyed by what it does in a handler; the toolkit does not touch it afterwards.
///
/// User-interface thread (the station's is the host thread).
class KV_HOST_API Glob {
 public:
  using Placement = GlobPlacement;

  /// The position that reshapeAndDraw takes for "where it is".
  static constexpr XY kKeepPosition{-1234, -1234};

  /// A widget without parent, place and size.
  Glob();
  Glob(const Glob&) = delete;
  Glob& operator=(const Glob&) = delete;

  /// Destroys the children, the youngest first.
  virtual ~Glob();

  /// The name under which GlobManager::find finds the widget; empty for most.
  [[nodiscard]] virtual LightweightString<char> idstring() const { return {}; }

  /// Hands a text to `target` on behalf of `sender`. A text that the target does not handle goes to
  /// its parent and so on up to the desktop, which shows it to the user. Null targets do nothing.
  static void sendMsg(Glob* target, const LightweightString<char>& text, Glob* sender);

  /// A text sent to this widget; true when it was handled here.
  virtual bool handleMessageEvent(const LightweightString<char>& text, Glob* sender);

  /// What the user's hands did to this widget; true when it was handled here.
  virtual bool handleEvent(const Event& event);

  // The tree.

  /// Puts a widget into this one, over its other children. Returns it; it belongs to this widget.
  template <typename Widget>
  Widget* addChild(std::unique_ptr<Widget> child, const Placement& where) {
    Widget* added = child.get();
    adopt(std::move(child), where);
    return added;
  }
  template <typename Widget>
  Widget* addChild(std::unique_ptr<Widget> child) {
    return addChild(std::move(child), Placement());
  }

  /// Gives a child back to the caller; null for what is no child of this widget.
  std::unique_ptr<Glob> takeChild(Glob* child);

  /// Destroys what the widget holds, the youngest first; the widget itself stays.
  void destroyChildren();

  /// The widget that holds this one; null for the desktop and for what was taken out.
  [[nodiscard]] Glob* parent() const { return parent_; }

  /// The children, the oldest first; the youngest is on top of the others.
  [[nodiscard]] const Vector<std::unique_ptr<Glob>>& children() const { return children_; }

  // Geometry.

  /// Where children are put. Distances are in unscaled pixels.
  static Placement UserTopRight(double x, double y) {
    return {Placement::eUserTopRight, nullptr, {x, y}};
  }
  static Placement Below(const Glob* sibling, double gap) {
    return {Placement::eBelow, sibling, {0, gap}};
  }

  /// Changes the size; a negative or not finite number counts as 0. Children are placed again.
  virtual void resize(double width, double height);

  /// The area of the widget that children are placed in, relative to its own top-left corner.
  [[nodiscard]] virtual Rect userArea() const { return {{}, size_}; }

  /// Lays the widget and its children out in its present size.
  virtual void reshape();

  /// Draws the widget: what it shows reaches the screen unless updates are deferred.
  virtual void draw();

  /// Moves the widget, unless `position` is kKeepPosition, then lays it out and draws it.
  void reshapeAndDraw(const XY& position);

  /// The position relative to the parent.
  void setPosition(const XY& position) { position_ = position; }
  [[nodiscard]] const XY& position() const { return position_; }

  /// The size as resize() left it; a parent's layout may change it.
  [[nodiscard]] const Size& size() const { return size_; }

  /// Works the positions on the desktop out, of this widget and of all in it.
  void setupRootPos();

  /// The rectangle on the desktop, as of the last setupRootPos.
  [[nodiscard]] Rect rootRect() const { return {rootPosition_, size_}; }

  /// Where the mouse is on the desktop.
  static XY getMousePos();

  // The keyboard.

  /// Whether the keyboard may be given to this widget.
  [[nodiscard]] virtual bool takesFocus() const { return false; }

  /// Gives this widget the keyboard, or takes it away again.
  void setFocus();

  /// Whether what the user types comes to this widget.
  [[nodiscard]] bool hasFocus() const;

  // The tooltip.

  /// Sets the tooltip and the longer text of the help line; empty texts mean none.
  void setContextString(const LightweightString<wchar_t>& tooltip,
                        const LightweightString<wchar_t>& help = {});

  /// What the host shows when the mouse rests on the widget, and in its help line.
  [[nodiscard]] const LightweightString<wchar_t>& tooltip() const { return tooltip_; }
  [[nodiscard]] const LightweightString<wchar_t>& help() const { return help_; }

 private:
  void adopt(std::unique_ptr<Glob> child, const Placement& where);
  void placeChild(Glob& child) const;

  Glob* parent_ = nullptr;
  Vector<std::unique_ptr<Glob>> children_;
  Placement placement_;
  XY position_;
  XY rootPosition_;
  Size size_;
  LightweightString<wchar_t> tooltip_;
  LightweightString<wchar_t> help_;
};
