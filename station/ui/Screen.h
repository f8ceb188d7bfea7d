#pragma once

#include <cstdint>
#include <functional>
#include <unordered_set>
#include <vector>

#include "host/ui/Glob.h"

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

  /// Called on the host thread after each update; an empty function for nobody.
  void setListener(std::function<void()> listener) { listener_ = std::move(listener); }

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
  std::function<void()> listener_;
};

}  // namespace korvel
