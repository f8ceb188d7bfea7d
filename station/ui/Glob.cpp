#include "host/ui/Glob.h"

#include <algorithm>
#include <cmath>

#include "station/ui/Desktop.h"

using namespace korvel;

namespace korvel {

namespace {

double lengthOf(double wish) { return std::isfinite(wish) && wish > 0 ? wish : 0; }

}  // namespace

}  // namespace korvel

Glob::Glob() { Screen::instance().add(this); }

Glob::~Glob() {
  destroyChildren();
  Screen::instance().remove(this);
}

bool Glob::handleMessageEvent(const LightweightString<char>&, Glob*) { return false; }

bool Glob::handleEvent(const Event&) { return false; }

void Glob::adopt(std::unique_ptr<Glob> child, const Placement& where) {
  child->parent_ = this;
  child->placement_ = where;
  placeChild(*child);
  children_.push_back(std::move(child));
  children_.back()->setupRootPos();
}

std::unique_ptr<Glob> Glob::takeChild(Glob* child) {
  const auto found =
      std::ranges::find_if(children_, [child](const auto& each) { return each.get() == child; });
  if (found == children_.end()) return nullptr;
  std::unique_ptr<Glob> taken = std::move(*found);
  children_.erase(found);
  taken->parent_ = nullptr;
  taken->placement_ = {};
  return taken;
}

void Glob::destroyChildren() {
  // The youngest first: a child may be placed by an older sibling.
  while (!children_.empty()) children_.pop_back();
}

void Glob::placeChild(Glob& child) const {
  const XY& offset = child.placement_.offset;
  if (child.placement_.kind == Placement::eUserTopRight) {
    const Rect area = userArea();
    child.position_ = {area.position.x + area.size.width - offset.x - child.size_.width,
                       area.position.y + offset.y};
  } else if (child.placement_.kind == Placement::eBelow) {
    const Glob& sibling = *child.placement_.sibling;
    child.position_ = {sibling.position_.x + sibling.size_.width - child.size_.width - offset.x,
                       sibling.position_.y + sibling.size_.height + offset.y};
  }
}

void Glob::resize(double width, double height) {
  size_ = {lengthOf(width), lengthOf(height)};
  for (const auto& child : children_) placeChild(*child);
  setupRootPos();
}

void Glob::reshape() {
  for (const auto& child : children_) {
    placeChild(*child);
    child->reshape();
  }
}

void Glob::draw() { Screen::instance().noteDrawing(); }

void Glob::reshapeAndDraw(const XY& position) {
  if (position != kKeepPosition) position_ = position;
  reshape();
  setupRootPos();
  draw();
}

void Glob::setupRootPos() {
  const XY origin = parent_ ? parent_->rootPosition_ : XY{};
  rootPosition_ = {origin.x + position_.x, origin.y + position_.y};
  for (const auto& child : children_) child->setupRootPos();
}

XY Glob::getMousePos() { return Screen::instance().mouse(); }

void Glob::setFocus() { Screen::instance().giveFocus(this); }

bool Glob::hasFocus() const { return Screen::instance().focus() == this; }

void Glob::setContextString(const LightweightString<wchar_t>& tooltip,
                            const LightweightString<wchar_t>& help) {
  tooltip_ = tooltip;
  help_ = help;
}
