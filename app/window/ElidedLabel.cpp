#include "app/window/ElidedLabel.h"

#include <QHelpEvent>
#include <QPainter>
#include <QStyle>
#include <QToolTip>

#include "app/window/Texts.h"

namespace korvel {

namespace {

constexpr int kLeastLabelWidth = 24;

}  // namespace

ElidedLabel::ElidedLabel(QWidget* parent) : QLabel(parent) { setTextFormat(Qt::PlainText); }

bool ElidedLabel::isElided() const {
  return fontMetrics().horizontalAdvance(text()) > contentsRect().width();
}

QSize ElidedLabel::minimumSizeHint() const {
  return {kLeastLabelWidth, QLabel::minimumSizeHint().height()};
}

bool ElidedLabel::event(QEvent* event) {
  if (event->type() == QEvent::ToolTip && toolTip().isEmpty() && isElided()) {
    QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(), plainTip(text()), this);
    return true;
  }
  return QLabel::event(event);
}

void ElidedLabel::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  const QRect room = contentsRect();
  const QString shown = fontMetrics().elidedText(text(), Qt::ElideRight, room.width());
  style()->drawItemText(&painter, room, static_cast<int>(alignment() | Qt::TextSingleLine),
                        palette(), isEnabled(), shown, foregroundRole());
}

}  // namespace korvel
