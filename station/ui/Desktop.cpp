#include "station/ui/Desktop.h"

#include <algorithm>

#include "host/base/Log.h"
#include "host/ui/Glib.h"
#include "station/base/Notifications.h"
#include "station/ui/ComponentTypes.h"
#include "station/ui/Screen.h"
#include "station/wire/Delivery.h"

namespace korvel {

namespace {

/// The topmost widget at a place: the youngest child of the youngest child that lies there.
Glob* widgetAt(Glob& root, const XY& place) {
  const auto& children = root.children();
  for (auto child = children.rbegin(); child != children.rend(); ++child) {
    if ((*child)->rootRect().contains(place)) return widgetAt(**child, place);
  }
  return &root;
}

/// Asks a widget, then its parents. A handler may destroy widgets: only living ones are asked.
bool deliver(Glob* widget, const Event& event) {
  while (widget) {
    Glob* next = widget->parent();
    if (widget->handleEvent(event)) return true;
    widget = Screen::instance().isAlive(next) ? next : nullptr;
  }
  return false;
}

void focusFrom(Glob* widget) {
  while (widget && !widget->takesFocus()) widget = widget->parent();
  if (widget) widget->setFocus();
}

void listFocusable(const Glob& root, std::vector<Glob*>& found) {
  for (const auto& child : root.children()) {
    if (child->takesFocus()) found.push_back(child.get());
    listFocusable(*child, found);
  }
}

}  // namespace

Desktop::Desktop() {
  Glob::resize(kDefaultSize.width, kDefaultSize.height);
  toolbox_ = addChild(std::make_unique<Toolbox>());
  toolbox_->populate();
}

Desktop::~Desktop() { destroyChildren(); }

bool Desktop::dispatch(const Event& event) {
  const Glib::UpdateDeferrer deferrer;
  if (event.type != Event::eKeyPress && event.type != Event::eTextInput) {
    return dispatchMouse(event);
  }
  if (deliver(Screen::instance().focus(), event)) return true;
  return event.key == Event::eTab && moveFocus();
}

bool Desktop::dispatchMouse(const Event& event) {
  Screen& screen = Screen::instance();
  screen.moveMouse(event.position);
  Glob* grabber = screen.mouseGrabber();
  if (event.type == Event::eMousePress && grabber && grabber->handleEvent(event)) return true;
  Glob* widget = widgetAt(*this, event.position);
  if (event.type == Event::eMousePress) focusFrom(widget);
  return deliver(widget, event);
}

bool Desktop::moveFocus() {
  std::vector<Glob*> widgets;
  listFocusable(*this, widgets);
  if (widgets.empty()) return false;
  const auto has = std::ranges::find(widgets, Screen::instance().focus());
  const bool isLast = has == widgets.end() || has + 1 == widgets.end();
  (isLast ? widgets.front() : *(has + 1))->setFocus();
  return true;
}

void Desktop::putAway(GenIcon& tool) {
  const std::unique_ptr<Glob> taken = takeChild(&tool);
  if (taken) tool.handlePoot();
}

std::vector<SavedTool> Desktop::savedTools() const {
  std::vector<SavedTool> tools;
  for (const auto& child : children()) {
    const auto* tool = dynamic_cast<const GenIcon*>(child.get());
    if (tool) tools.push_back({tool->idstring(), tool->sizeState(), tool->position()});
  }
  return tools;
}

void Desktop::restoreTools(const std::vector<SavedTool>& tools) {
  for (const SavedTool& saved : tools) {
    Result<std::unique_ptr<GenIcon>> made =
        ComponentTypes::create({saved.typeName, 1, saved.sizeState, saved.position});
    if (made) {
      addChild(std::move(*made))->setupRootPos();
    } else {
      LogBoth("%s\n", made.error().message);
    }
  }
  toolbox_->populate();
}

void Desktop::closeTools() {
  ComponentTypes::instance().clear();
  toolbox_->destroyChildren();
  while (children().back().get() != toolbox_) takeChild(children().back().get());
  draw();
}

bool Desktop::handleMessageEvent(const LightweightString<char>& text, Glob*) {
  notifyUser(notificationOf(text.str()));
  return true;
}

}  // namespace korvel
