#pragma once

#include <QScrollArea>

namespace korvel {

/// The widget in an area without a frame that takes any size: where there is less room than the
/// widget needs, it is scrolled, so that nothing in it is pressed over something else.
inline QScrollArea* scrolled(QWidget* content) {
  auto* area = new QScrollArea;
  area->setFrameShape(QFrame::NoFrame);
  area->setWidgetResizable(true);
  area->setFocusPolicy(Qt::NoFocus);
  area->setWidget(content);
  return area;
}

}  // namespace korvel
