#include "host/ui/ScrollableTextBox.h"

#include <algorithm>
#include <cmath>

#include "host/ui/UifStd.h"
#include "station/base/Events.h"
#include "station/base/Notifications.h"
#include "station/base/Strings.h"
#include "station/ui/PanelDriver.h"

using namespace korvel;

namespace korvel {

namespace {

bool isInMessagePanel(const Glob* widget) {
  for (; widget; widget = widget->parent()) {
    if (widget->idstring() == kMessagePanelId) return true;
  }
  return false;
}

}  // namespace

}  // namespace korvel

MultiLineTextBox::MultiLineTextBox() = default;
MultiLineTextBox::~MultiLineTextBox() = default;

ScrollableTextBoxBase::ScrollableTextBoxBase(std::unique_ptr<MultiLineTextBox> content,
                                             double width, double height)
    : content_(addChild(std::move(content))) {
  ScrollableTextBoxBase::resize(width, height);
}

ScrollableTextBoxBase::~ScrollableTextBoxBase() = default;

void ScrollableTextBoxBase::setStrings(const Lines& lines) {
  const bool showsEnd = first_ == lastFirstLine();
  const bool isLong = lines.size() > kMostLines;
  content_->setLines(isLong ? Lines(lines.end() - kMostLines, lines.end()) : lines);
  first_ = showsEnd ? lastFirstLine() : std::min(first_, lastFirstLine());
  if (!isInMessagePanel(this)) return;
  noteTextShown();
  events().panel(utf8Lines(*this));
}

std::size_t ScrollableTextBoxBase::visibleLines() const {
  return static_cast<std::size_t>(size().height / UifStd::getLineHeight());
}

std::size_t ScrollableTextBoxBase::lastFirstLine() const {
  const std::size_t all = getStrings().size();
  return all > visibleLines() ? all - visibleLines() : 0;
}

void ScrollableTextBoxBase::scroll(double lines) {
  const double last = static_cast<double>(lastFirstLine());
  const double wish = static_cast<double>(first_) + std::trunc(lines);
  first_ = static_cast<std::size_t>(std::clamp(wish, 0.0, last));
  draw();
}

void ScrollableTextBoxBase::resize(double width, double height) {
  const bool showsEnd = first_ == lastFirstLine();
  content_->resize(width, height);
  Glob::resize(width, height);
  first_ = showsEnd ? lastFirstLine() : std::min(first_, lastFirstLine());
}

bool ScrollableTextBoxBase::handleEvent(const Event& event) {
  if (event.type == Event::eMouseWheel) {
    scroll(event.wheel);
    return true;
  }
  if (event.type != Event::eKeyPress) return false;
  switch (event.key) {
    case Event::eUp:
      scroll(-1);
      return true;
    case Event::eDown:
      scroll(1);
      return true;
    case Event::eHome:
      scroll(-static_cast<double>(first_));
      return true;
    case Event::eEnd:
      scroll(static_cast<double>(getStrings().size()));
      return true;
    default:
      return false;
  }
}
