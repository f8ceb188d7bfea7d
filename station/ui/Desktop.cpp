#include "station/ui/Desktop.h"

#include <algorithm>

#include "host/base/Log.h"
#include "host/ui/GenIcon.h"
#include "host/ui/Glib.h"
#include "station/base/Events.h"
#include "station/base/HostParts.h"
#include "station/base/Strings.h"
#include "station/wire/MessageTable.h"

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
}

}  // namespace korvel

Glib::UpdateDeferrer::UpdateDeferrer() { Screen::instance().deferUpdates(); }

Glib::UpdateDeferrer::~UpdateDeferrer() { Screen::instance().resumeUpdates(); }

namespace korvel {

ComponentTypes& ComponentTypes::instance() {
  static ComponentTypes types;
  return types;
}

void ComponentTypes::add(const LightweightString<char>& name, GlobManager::Factory factory) {
  const auto same = std::ranges::find(types_, name, &Type::name);
  if (same == types_.end()) {
    types_.push_back({name, factory});
  } else {
    same->factory = factory;
  }
}

std::vector<LightweightString<char>> ComponentTypes::names() const {
  std::vector<LightweightString<char>> names;
  for (const Type& type : types_) names.push_back(type.name);
  return names;
}

const ComponentTypes::Type* ComponentTypes::find(const LightweightString<char>& name) const {
  const auto found = std::ranges::find(types_, name, &Type::name);
  return found == types_.end() ? nullptr : &*found;
}

Result<std::unique_ptr<GenIcon>> ComponentTypes::create(GlobCreationInfo info) {
  const std::string name = shownText(info.typeName.view());
  const Type* type = instance().find(info.typeName);
  if (!type) {
    return Error{ErrorCode::eNotFound,
                 "There is no tool " + inQuotes(name) + ": no plug-in offers it", ""};
  }
  std::unique_ptr<Glob> made(type->factory(&info));
  auto* tool = dynamic_cast<GenIcon*>(made.get());
  if (!tool) {
    return Error{ErrorCode::eSystem,
                 "The tool " + inQuotes(name) + " could not be made by its plug-in", ""};
  }
  made.release();
  return std::unique_ptr<GenIcon>(tool);
}

}  // namespace korvel

void GlobManager::registerUiComponentType(const LightweightString<char>& name, Factory factory) {
  ComponentTypes::instance().add(name, factory);
  if (Desktop* desktop = hostParts().desktop) desktop->toolbox().populate();
}

namespace korvel {

namespace {

constexpr double kWidth = 60;
constexpr double kToolGap = 6;

bool isOnDesktop(const Glob* desktop, const LightweightString<char>& typeName) {
  if (!desktop) return false;
  for (const auto& child : desktop->children()) {
    if (child->idstring() == typeName) return true;
  }
  return false;
}

}  // namespace

Toolbox::Toolbox() { Glob::resize(kWidth, 0); }

void Toolbox::populate() {
  for (const LightweightString<char>& name : ComponentTypes::instance().names()) {
    GenIcon* icon = iconOf(name);
    if (isOnDesktop(parent(), name)) {
      takeChild(icon);
      continue;
    }
    if (icon) continue;
    GlobCreationInfo info;
    info.typeName = name;
    Result<std::unique_ptr<GenIcon>> made = ComponentTypes::create(info);
    if (made) {
      addIcon(std::move(*made));
    } else {
      LogBoth("%s\n", made.error().message);
    }
  }
  lineUp();
}

GenIcon* Toolbox::iconOf(const LightweightString<char>& typeName) const {
  for (const auto& child : children()) {
    if (child->idstring() == typeName) return dynamic_cast<GenIcon*>(child.get());
  }
  return nullptr;
}

void Toolbox::addIcon(std::unique_ptr<GenIcon> icon) {
  icon->setDragSource(this);
  addChild(std::move(icon));
}

void Toolbox::lineUp() {
  double y = kToolGap;
  for (const auto& child : children()) {
    child->setPosition({(kWidth - child->size().width) / 2, y});
    y += child->size().height + kToolGap;
  }
  resize(kWidth, y);
  draw();
}

PanelBox::PanelBox(StandardPanel::eStandardWidget which) : which_(which) {
  Glob::resize(kSide, kSide);
}

bool PanelBox::handleEvent(const Event& event) {
  const bool isClick = event.type == Event::eMousePress && event.button == Event::eLeftButton;
  const bool isReturn = event.type == Event::eKeyPress && event.key == Event::eReturn;
  auto* tool = dynamic_cast<GenIcon*>(parent());
  if (!tool || (!isClick && !isReturn)) return false;
  // Either call destroys this box: nothing of it may be used afterwards.
  if (which_ == StandardPanel::eCollapseBox) {
    tool->handleFlipSize();
  } else if (Desktop* desktop = hostParts().desktop) {
    desktop->putAway(*tool);
  }
  return true;
}

namespace {

/// The topmost widget at a place: the youngest child of the youngest child that lies there.
Glob* widgetAt(Glob& root, const XY& place) {
  const auto& children = root.children();
  for (auto child = children.rbegin(); child != children.rend(); ++child) {
    if ((*child)->rootRect().contains(place)) return widgetAt(**child, place);
  }
  return &root;
}

/// Asks a widget, then its parents. A handler may destroy widgets, so each is asked only while it
/// is known to live.
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
  // First: the factories are the plug-in's code, and nothing may make a tool once it is unloaded.
  ComponentTypes::instance().clear();
  toolbox_->destroyChildren();
  while (children().back().get() != toolbox_) takeChild(children().back().get());
  draw();
}

bool Desktop::handleMessageEvent(const LightweightString<char>& text, Glob*) {
  notifyUser(notificationOf(text.str()));
  return true;
}

namespace {

GenIcon* draggedTool = nullptr;

}  // namespace

}  // namespace korvel

void DragDropManager::beginDrag(GenIcon* tool) { draggedTool = tool; }

GenIcon* DragDropManager::dragged() { return draggedTool; }

void DragDropManager::drop() {
  GenIcon* tool = std::exchange(draggedTool, nullptr);
  Desktop* desktop = hostParts().desktop;
  // A tool without a source was dropped already.
  if (!tool || !tool->dragSource() || !desktop) return;
  std::unique_ptr<Glob> taken = tool->dragSource()->takeChild(tool);
  tool->setDragSource(nullptr);
  if (!taken) return;
  const XY mouse = Glob::getMousePos();
  tool->setPosition({mouse.x - tool->size().width / 2, mouse.y - tool->size().height / 2});
  desktop->addChild(std::move(taken));
  desktop->toolbox().populate();
}
