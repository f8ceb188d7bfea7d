#include "station/ui/Screen.h"

#include "host/ui/Glib.h"

using namespace korvel;

namespace korvel {

Screen& Screen::instance() {
  static Screen screen;
  return screen;
}

void Screen::add(Glob* widget) {
  widgets_.push_back(widget);
  alive_.insert(widget);
}

void Screen::remove(Glob* widget) {
  std::erase(widgets_, widget);
  alive_.erase(widget);
  if (focus_ == widget) focus_ = nullptr;
  if (grabber_ == widget) grabber_ = nullptr;
}

void Screen::noteDrawing() {
  hasDrawing_ = true;
  if (deferrals_ == 0) update();
}

void Screen::resumeUpdates() {
  --deferrals_;
  if (deferrals_ == 0 && hasDrawing_) update();
}

void Screen::update() {
  hasDrawing_ = false;
  ++updates_;
  if (listener_) listener_();
}

}  // namespace korvel

Glib::UpdateDeferrer::UpdateDeferrer() { Screen::instance().deferUpdates(); }

Glib::UpdateDeferrer::~UpdateDeferrer() { Screen::instance().resumeUpdates(); }
