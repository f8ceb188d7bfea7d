#include "app/window/TimelineView.h"

#include <QAccessible>
#include <QHelpEvent>
#include <QKeyEvent>
#include <QPainter>
#include <QScrollBar>
#include <QToolTip>
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "app/window/Appearance.h"
#include "app/window/Texts.h"
#include "station/edit/Timecode.h"

namespace korvel {

namespace {

constexpr int kHeadWidth = 104;
constexpr int kRulerHeight = 24;
constexpr int kTrackHeight = 38;
constexpr int kTrackGap = 4;
constexpr int kLeastTextWidth = 26;
constexpr int kMarkHeight = 5;
constexpr double kMostZoom = 400;
constexpr int kLeastTickWidth = 84;
constexpr long kMostTickSeconds = 100'000'000'000;
constexpr int kEdgeWidth = 6;  ///< in which the mouse takes an edge
constexpr int kTrembling = 3;  ///< how far a hand moves the mouse without meaning it

QColor fillOf(const TimelineTrack& track, const TimelineItem& item) {
  const Colours& with = colours();
  switch (item.kind) {
    case TimelineItem::Kind::eGap:
      return with.gap;
    case TimelineItem::Kind::eTransition:
      return with.transition;
    case TimelineItem::Kind::eNested:
      return with.nested;
    case TimelineItem::Kind::eClip:
      break;
  }
  return track.isAudio ? with.audio : with.clip;
}

QString kindWord(const TimelineItem& item) {
  switch (item.kind) {
    case TimelineItem::Kind::eGap:
      return TimelineView::tr("gap");
    case TimelineItem::Kind::eTransition:
      return TimelineView::tr("transition");
    case TimelineItem::Kind::eNested:
      return TimelineView::tr("nested");
    case TimelineItem::Kind::eClip:
      break;
  }
  return TimelineView::tr("clip");
}

}  // namespace

long framesFromTickToTick(double pixelsPerFrame, double rate) {
  const long perSecond = Timecode(rate).framesPerSecond();
  for (const long step : {1, 2, 5, 10}) {
    if (step < perSecond && static_cast<double>(step) * pixelsPerFrame >= kLeastTickWidth)
      return step;
  }
  long seconds = 1;
  for (const long step : {1, 2, 5, 10, 30, 60, 120, 300, 600, 1800, 3600, 7200, 36000}) {
    seconds = step;
    if (static_cast<double>(seconds * perSecond) * pixelsPerFrame >= kLeastTickWidth) break;
  }
  while (static_cast<double>(seconds * perSecond) * pixelsPerFrame < kLeastTickWidth &&
         seconds < kMostTickSeconds) {
    seconds *= 10;
  }
  return seconds * perSecond;
}

QString timecode(double seconds, double rate) {
  return QString::fromStdString(Timecode(rate).textAt(seconds));
}

TimelineView::TimelineView(QWidget* parent) : QAbstractScrollArea(parent) {
  installTimelineAccess();  // before anything asks for it
  setFocusPolicy(Qt::StrongFocus);
  setFrameShape(QFrame::NoFrame);
  setAccessibleName(tr("Timeline"));
  setMinimumHeight(60);
  setContextMenuPolicy(Qt::CustomContextMenu);
  viewport()->setMouseTracking(true);
}

QString TimelineView::itemText(int index) const {
  const auto [track, number] = placeOfItem(index);
  const TimelineTrack& on = timeline_->tracks[track];
  const TimelineItem& item = on.items[number];
  const double rate = item.rate > 0 ? item.rate : timeline_->rate;
  QStringList words{
      item.name.isEmpty() ? kindWord(item)
                          : tr("%1 %2", "clip, and its name").arg(kindWord(item), item.name),
      tr("track %1").arg(on.name.isEmpty() ? QString::number(track + 1) : oneLine(on.name)),
      tr("%1 long").arg(timecode(item.length, rate)),
      tr("from %1").arg(timecode(item.start, rate))};
  if (!item.change.isEmpty())
    words << (timeline_->version.isEmpty() ? item.change : tr("since then %1").arg(item.change));
  if (!item.hasMaterial) words << tr("its material is missing");
  return listed(words);
}

void TimelineView::show(const TimelinePtr& timeline) {
  const bool isOther = !timeline || !timeline_ || timeline->cookie != timeline_->cookie;
  timeline_ = timeline;
  if (isOther || !isHeld()) drag_.reset();
  if (isOther) {
    zoom_ = 1;
    hasChoice_ = false;
    horizontalScrollBar()->setValue(0);
    verticalScrollBar()->setValue(0);
  }
  // The new drawing of the same edit may have fewer clips.
  if (!chosen()) hasChoice_ = false;
  fitScrollBars();
  viewport()->update();
  Q_EMIT choiceChanged();
}

/// Whether an edge is in the user's hand, of a clip that is drawn where it was taken.
bool TimelineView::isHeld() const {
  if (!drag_ || drag_->isLetGo || drag_->track >= timeline_->tracks.size()) return false;
  const auto& items = timeline_->tracks[drag_->track].items;
  return drag_->item < items.size() && drag_->trim.isOf(items[drag_->item]);
}

void TimelineView::setHint(const QString& hint) {
  hint_ = hint;
  viewport()->update();
}

const TimelineItem* TimelineView::chosen() const {
  if (!hasChoice_ || !timeline_ || track_ >= timeline_->tracks.size()) return nullptr;
  const auto& items = timeline_->tracks[track_].items;
  return item_ < items.size() ? &items[item_] : nullptr;
}

double TimelineView::pixelsPerSecond() const {
  const double room = std::max(40, viewport()->width() - kHeadWidth - 12);
  const double length = timeline_ && timeline_->length > 0 ? timeline_->length : 1;
  return room / length * zoom_;
}

int TimelineView::xAt(double seconds) const {
  const double x = kHeadWidth + seconds * pixelsPerSecond() - horizontalScrollBar()->value();
  // At the largest zoom, coordinates of a long edit would exceed what the painter can draw.
  return static_cast<int>(std::clamp(x, -1e6, 1e6));
}

int TimelineView::yOf(std::size_t track) const {
  // The first track is the lowest, as in editing programs.
  const std::size_t fromTop = timeline_->tracks.size() - 1 - track;
  return kRulerHeight + kTrackGap + static_cast<int>(fromTop) * (kTrackHeight + kTrackGap) -
         verticalScrollBar()->value();
}

QRect TimelineView::rectOf(std::size_t track, std::size_t item) const {
  const TimelineItem& shown = timeline_->tracks[track].items[item];
  const int left = xAt(shown.start);
  const int width = std::max(2, xAt(shown.start + shown.length) - left - 1);
  const bool isTransition = shown.kind == TimelineItem::Kind::eTransition;
  const int inset = isTransition ? kTrackHeight / 2 : 0;
  return {left, yOf(track) + inset, width, kTrackHeight - inset};
}

void TimelineView::paintEvent(QPaintEvent*) {
  QPainter painter(viewport());
  painter.setRenderHint(QPainter::Antialiasing);
  painter.fillRect(viewport()->rect(), colours().panel);
  const bool hasTracks = timeline_ && !timeline_->tracks.empty();
  if (!hint_.isEmpty() || !hasTracks) {
    painter.setPen(colours().quiet);
    const QString text = !hint_.isEmpty() ? hint_ : tr("This edit is empty: it has no tracks yet.");
    painter.drawText(viewport()->rect().adjusted(16, 8, -16, -8),
                     Qt::AlignCenter | Qt::TextWordWrap, text);
    return paintFocus(painter);
  }
  for (std::size_t track = 0; track < timeline_->tracks.size(); ++track) {
    paintTrack(painter, track);
  }
  paintRuler(painter);
  // Over the ruler: of the highest track the text stands there.
  if (drag_ && drag_->hasMoved) paintTrim(painter);
  paintFocus(painter);
}

void TimelineView::paintFocus(QPainter& painter) const {
  if (!hasFocus()) return;
  painter.setPen(QPen(colours().accent, 2));
  painter.setBrush(Qt::NoBrush);
  painter.drawRect(viewport()->rect().adjusted(1, 1, -1, -1));
}

void TimelineView::focusInEvent(QFocusEvent* event) {
  QAbstractScrollArea::focusInEvent(event);
  viewport()->update();
}

void TimelineView::focusOutEvent(QFocusEvent* event) {
  QAbstractScrollArea::focusOutEvent(event);
  viewport()->update();
}

void TimelineView::paintRuler(QPainter& painter) const {
  const Colours& with = colours();
  painter.fillRect(QRect(0, 0, viewport()->width(), kRulerHeight), palette().window());
  painter.setPen(with.line);
  painter.drawLine(0, kRulerHeight, viewport()->width(), kRulerHeight);
  painter.setClipRect(kHeadWidth, 0, viewport()->width(), kRulerHeight);
  for (const long frame : ticks()) {
    const double seconds = static_cast<double>(frame) / timeline_->rate;
    const int x = xAt(seconds);
    painter.setPen(with.border);
    painter.drawLine(x, kRulerHeight - 8, x, kRulerHeight);
    painter.setPen(with.quiet);
    const QString label = timecode(seconds, timeline_->rate);
    // A timecode that is cut at the edge reads as another one.
    if (x + 4 + painter.fontMetrics().horizontalAdvance(label) > viewport()->width()) continue;
    painter.drawText(QRect(x + 4, 0, kLeastTickWidth, kRulerHeight - 2),
                     Qt::AlignLeft | Qt::AlignVCenter, label);
  }
  painter.setClipping(false);
}

std::vector<long> TimelineView::ticks() const {
  std::vector<long> frames;
  if (!timeline_ || timeline_->rate <= 0) return frames;
  const double scale = pixelsPerSecond() / timeline_->rate;
  const long step = framesFromTickToTick(scale, timeline_->rate);
  const double last = std::min(timeline_->length * timeline_->rate + static_cast<double>(step),
                               (horizontalScrollBar()->value() + viewport()->width()) / scale);
  const auto first = static_cast<long>(horizontalScrollBar()->value() / scale);
  const Timecode timecode(timeline_->rate);
  const long perSecond = timecode.framesPerSecond();
  for (long number = first - first % step; true; number += step) {
    // In drop-frame the numbers that are left out must not move the ticks off the seconds.
    const bool isSecond = step % perSecond == 0;
    const long frame = isSecond ? timecode.firstFrameOf(number / perSecond) : number;
    if (static_cast<double>(frame) > last) return frames;
    frames.push_back(frame);
  }
}

void TimelineView::paintTrack(QPainter& painter, std::size_t track) const {
  const TimelineTrack& shown = timeline_->tracks[track];
  const int y = yOf(track);
  if (y > viewport()->height() || y + kTrackHeight < 0) return;
  painter.setClipRect(kHeadWidth, 0, viewport()->width(), viewport()->height());
  // Transitions lie over the clips that they join, so they are painted last.
  for (const bool transitions : {false, true}) {
    for (std::size_t item = 0; item < shown.items.size(); ++item) {
      const bool isTransition = shown.items[item].kind == TimelineItem::Kind::eTransition;
      const QRect rect = rectOf(track, item);
      if (isTransition != transitions || rect.right() < 0 || rect.left() > viewport()->width()) {
        continue;
      }
      const bool isChosen = hasChoice_ && track == track_ && item == item_;
      paintItem(painter, shown, shown.items[item], rect,
                isChosen ? Weight::eChosen : Weight::eNormal);
      if (!shown.items[item].change.isEmpty()) paintChange(painter, rect);
    }
  }
  paintAdded(painter, track);
  painter.setClipping(false);
  painter.fillRect(QRect(0, y, kHeadWidth - 4, kTrackHeight), palette().window());
  painter.setPen(colours().quiet);
  const QString name = shown.name.isEmpty() ? QString::number(track + 1) : oneLine(shown.name);
  painter.drawText(QRect(10, y, kHeadWidth - 20, kTrackHeight), Qt::AlignVCenter,
                   painter.fontMetrics().elidedText(name, Qt::ElideRight, kHeadWidth - 20));
}

void TimelineView::paintItem(QPainter& painter, const TimelineTrack& track,
                             const TimelineItem& item, const QRect& rect, Weight weight) const {
  const Colours& with = colours();
  const bool isGap = item.kind == TimelineItem::Kind::eGap;
  const bool isChosen = weight == Weight::eChosen;
  QPen pen(isChosen ? with.accent : with.edge, isChosen ? 2 : 1);
  if (isGap && !isChosen) pen.setStyle(Qt::DashLine);
  painter.setPen(pen);
  painter.setBrush(fillOf(track, item));
  painter.drawRoundedRect(QRectF(rect).adjusted(0.5, 0.5, -0.5, -0.5), 3, 3);
  if (item.kind == TimelineItem::Kind::eTransition) {
    painter.drawLine(rect.bottomLeft() + QPoint(1, -1), rect.topRight() + QPoint(-1, 1));
    return;
  }
  const QRect visible =
      rect.intersected(QRect(kHeadWidth, 0, viewport()->width(), viewport()->height()));
  if (visible.width() < kLeastTextWidth) return;
  const QString text = isGap && item.name.isEmpty() ? tr("gap") : oneLine(item.name);
  painter.setPen(isGap ? with.quiet : with.clipText);
  // Transitions lie over the lower half.
  const int height = track.hasTransitions ? rect.height() / 2 : rect.height();
  const QRect inner(visible.left() + 6, rect.top(), visible.width() - 12, height);
  painter.drawText(inner, Qt::AlignVCenter | Qt::AlignLeft,
                   painter.fontMetrics().elidedText(text, Qt::ElideRight, inner.width()));
}

void TimelineView::paintChange(QPainter& painter, const QRect& rect) const {
  painter.fillRect(QRect(rect.left(), rect.top(), rect.width(), kMarkHeight), colours().bad);
}

void TimelineView::paintAdded(QPainter& painter, std::size_t track) const {
  const int top = yOf(track);
  for (const TimelineAddition& added : timeline_->tracks[track].added) {
    const int x = xAt(added.at);
    painter.setPen(QPen(colours().good, 2));
    painter.drawLine(x, top, x, top + kTrackHeight);
    painter.setBrush(colours().good);
    painter.drawPolygon(
        QPolygon({{x - kMarkHeight, top}, {x + kMarkHeight, top}, {x, top + kMarkHeight + 1}}));
  }
}

const TimelineAddition* TimelineView::additionAt(const QPoint& at) const {
  if (!timeline_) return nullptr;
  for (std::size_t track = 0; track < timeline_->tracks.size(); ++track) {
    const int fromTop = at.y() - yOf(track);
    if (fromTop < 0 || fromTop > kTrackHeight) continue;
    for (const TimelineAddition& added : timeline_->tracks[track].added) {
      if (std::abs(xAt(added.at) - at.x()) <= kMarkHeight) return &added;
    }
  }
  return nullptr;
}

const TimelineItem* TimelineView::itemAt(const QPoint& at, std::size_t& track,
                                         std::size_t& item) const {
  if (!timeline_ || at.x() < kHeadWidth) return nullptr;
  const TimelineItem* found = nullptr;
  for (std::size_t t = 0; t < timeline_->tracks.size(); ++t) {
    for (std::size_t i = 0; i < timeline_->tracks[t].items.size(); ++i) {
      const TimelineItem& each = timeline_->tracks[t].items[i];
      // A transition lies above clips and is hit first.
      const bool isOver = found && each.kind != TimelineItem::Kind::eTransition;
      if (isOver || !rectOf(t, i).contains(at)) continue;
      found = &each;
      track = t;
      item = i;
    }
  }
  return found;
}

void TimelineView::bringIntoSight(std::size_t track, std::size_t item) {
  const QRect rect = rectOf(track, item);
  if (rect.right() >= kHeadWidth + 20 && rect.left() <= viewport()->width() - 20) return;
  horizontalScrollBar()->setValue(horizontalScrollBar()->value() + rect.left() - kHeadWidth - 40);
}

void TimelineView::reveal(const QString& path) {
  if (!timeline_) return;
  for (std::size_t track = 0; track < timeline_->tracks.size(); ++track) {
    const auto& items = timeline_->tracks[track].items;
    const auto found = std::ranges::find(items, path, &TimelineItem::path);
    if (found == items.end()) continue;
    return bringIntoSight(track, static_cast<std::size_t>(found - items.begin()));
  }
}

void TimelineView::choose(std::size_t track, std::size_t item) {
  hasChoice_ = true;
  track_ = track;
  item_ = item;
  bringIntoSight(track, item);
  viewport()->update();
  if (QAccessible::isActive()) {
    QAccessibleEvent focus(this, QAccessible::Focus);
    focus.setChild(chosenItem());
    QAccessible::updateAccessibility(&focus);
  }
  Q_EMIT choiceChanged();
}

// The edges are within the clip, so that those of neighbours are told apart; of a narrow clip a
// third stays to take it by.
TimelineView::Edge TimelineView::edgeAt(const QPoint& at) const {
  std::size_t track = 0;
  std::size_t item = 0;
  const TimelineItem* const found = itemAt(at, track, item);
  if (!found || !found->canBeTrimmed) return Edge::eNone;
  const QRect rect = rectOf(track, item);
  const int reach = std::min(kEdgeWidth, rect.width() / 3);
  if (at.x() - rect.left() < reach) return Edge::eIn;
  return rect.right() - at.x() < reach ? Edge::eOut : Edge::eNone;
}

void TimelineView::dragTo(int x) {
  const int way = x - drag_->fromX;
  drag_->hasMoved = drag_->hasMoved || std::abs(way) > kTrembling;
  if (!drag_->hasMoved) return;
  if (!trimRefusal_.isEmpty()) {
    dropTrim();  // so that it is told once
    Q_EMIT trimRefused(trimRefusal_);
    return;
  }
  ClipTrim& trim = drag_->trim;
  const long frames = trim.timecode().frameAt(way / pixelsPerSecond());
  drag_->edge == Edge::eIn ? trim.moveIn(trim.firstIn() + frames)
                           : trim.moveOut(trim.firstOut() + frames);
  viewport()->update();
}

void TimelineView::mouseMoveEvent(QMouseEvent* event) {
  const QPoint at = event->position().toPoint();
  // A menu or a question may have taken the release.
  if (drag_ && !drag_->isLetGo && !(event->buttons() & Qt::LeftButton)) dropTrim();
  if (drag_ && !drag_->isLetGo) return dragTo(at.x());
  const bool isEdge = trimRefusal_.isEmpty() && edgeAt(at) != Edge::eNone;
  viewport()->setCursor(isEdge ? Qt::SplitHCursor : Qt::ArrowCursor);
}

void TimelineView::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || !drag_ || drag_->isLetGo) return;
  if (!drag_->hasMoved || !drag_->trim.isChanged()) return dropTrim();
  // It stays drawn as it was left until the station has answered.
  drag_->isLetGo = true;
  Q_EMIT trimmed(drag_->trim);
}

void TimelineView::dropTrim() {
  drag_.reset();
  viewport()->update();
}

// The edge that is dragged goes with the mouse; what follows is drawn in its place only after.
QRect TimelineView::trimmedRect() const {
  const ClipTrim& trim = drag_->trim;
  const Timecode& timecode = trim.timecode();
  const double in = timecode.secondsAt(trim.in() - trim.firstIn());
  const double out = timecode.secondsAt(trim.out() - trim.firstOut());
  const TimelineItem& item = timeline_->tracks[drag_->track].items[drag_->item];
  const int left = xAt(item.start + in);
  const int right = xAt(item.start + item.length + out);
  return {left, yOf(drag_->track), std::max(2, right - left - 1), kTrackHeight};
}

QString TimelineView::trimText() const {
  const ClipTrim& trim = drag_->trim;
  const bool isIn = drag_->edge == Edge::eIn;
  const long frame = isIn ? trim.in() : trim.out();
  const long step = frame - (isIn ? trim.firstIn() : trim.firstOut());
  const QString words = isIn ? tr("In %1 (%2 f), length %3") : tr("Out %1 (%2 f), length %3");
  const auto text = [&trim](long at) { return QString::fromStdString(trim.timecode().text(at)); };
  return words.arg(text(frame),
                   (step > 0 ? QStringLiteral("+") : QString()) + QString::number(step),
                   text(trim.length()));
}

void TimelineView::paintTrim(QPainter& painter) const {
  const Colours& with = colours();
  const QRect rect = trimmedRect();
  painter.setClipRect(kHeadWidth, 0, viewport()->width(), viewport()->height());
  QColor fill = with.accent;
  fill.setAlphaF(0.25F);
  painter.setBrush(fill);
  painter.setPen(QPen(with.accent, 2));
  painter.drawRoundedRect(QRectF(rect).adjusted(0.5, 0.5, -0.5, -0.5), 3, 3);
  painter.setClipping(false);
  const QString text = trimText();
  const QSize size = painter.fontMetrics().size(Qt::TextSingleLine, text) + QSize(16, 6);
  const int edge = drag_->edge == Edge::eIn ? rect.left() : rect.right();
  QRect label(QPoint(edge - size.width() / 2, rect.top() - size.height() - 2), size);
  // Within the view, and below the clip where there is no room above it.
  label.moveLeft(std::clamp(label.left(), 2, std::max(2, viewport()->width() - size.width() - 2)));
  if (label.top() < 1) label.moveTop(rect.bottom() + 3);
  painter.setBrush(with.panel);
  painter.drawRoundedRect(label, 3, 3);
  painter.setPen(with.text);
  painter.drawText(label, Qt::AlignCenter, text);
}

void TimelineView::mousePressEvent(QMouseEvent* event) {
  std::size_t track = 0;
  std::size_t item = 0;
  const QPoint at = event->position().toPoint();
  if (itemAt(at, track, item)) {
    choose(track, item);
    const Edge edge = event->button() == Qt::LeftButton ? edgeAt(at) : Edge::eNone;
    if (edge != Edge::eNone && !drag_) drag_ = Drag{ClipTrim(*chosen()), edge, at.x(), track, item};
  } else {
    hasChoice_ = false;
    viewport()->update();
    Q_EMIT choiceChanged();
  }
}

void TimelineView::step(int tracks, int items) {
  if (!timeline_ || timeline_->tracks.empty()) return;
  const auto within = [](std::size_t now, int by, std::size_t size) {
    const long to = std::clamp(static_cast<long>(now) + by, 0L, static_cast<long>(size) - 1);
    return static_cast<std::size_t>(std::max(0L, to));
  };
  if (!hasChoice_) {
    tracks = 0;
    items = 0;
  }
  const std::size_t track = within(track_, tracks, timeline_->tracks.size());
  const std::size_t count = timeline_->tracks[track].items.size();
  if (count > 0) choose(track, within(item_, items, count));
}

void TimelineView::keyPressEvent(QKeyEvent* event) {
  const bool isDragging = drag_ && !drag_->isLetGo;
  if (isDragging && event->key() == Qt::Key_Escape) return dropTrim();
  switch (event->key()) {
    case Qt::Key_Left:
      return step(0, -1);
    case Qt::Key_Right:
      return step(0, 1);
    case Qt::Key_Up:
      return step(1, 0);
    case Qt::Key_Down:
      return step(-1, 0);
    case Qt::Key_Plus:
    case Qt::Key_Equal:
      return zoom(1.5);
    case Qt::Key_Minus:
      return zoom(1 / 1.5);
    case Qt::Key_0:
      return zoom(0);
    default:
      QAbstractScrollArea::keyPressEvent(event);
  }
}

void TimelineView::zoom(double factor) {
  // Zooms around the middle of the view.
  const double middle = (horizontalScrollBar()->value() + viewport()->width() / 2.0) / zoom_;
  zoom_ = factor == 0 ? 1 : std::clamp(zoom_ * factor, 1.0, kMostZoom);
  fitScrollBars();
  horizontalScrollBar()->setValue(static_cast<int>(middle * zoom_ - viewport()->width() / 2.0));
  viewport()->update();
}

void TimelineView::wheelEvent(QWheelEvent* event) {
  if (event->modifiers() & Qt::ControlModifier) {
    zoom(event->angleDelta().y() > 0 ? 1.25 : 0.8);
    event->accept();
  } else {
    QAbstractScrollArea::wheelEvent(event);
  }
}

void TimelineView::resizeEvent(QResizeEvent*) { fitScrollBars(); }

void TimelineView::fitScrollBars() {
  const double length = timeline_ ? timeline_->length : 0;
  const int width = kHeadWidth + 12 + static_cast<int>(length * pixelsPerSecond());
  const int tracks = timeline_ ? static_cast<int>(timeline_->tracks.size()) : 0;
  const int height = kRulerHeight + 2 * kTrackGap + tracks * (kTrackHeight + kTrackGap);
  // Unzoomed, the whole edit fits; rounding must not show a scroll bar.
  horizontalScrollBar()->setRange(0, zoom_ > 1 ? std::max(0, width - viewport()->width()) : 0);
  horizontalScrollBar()->setPageStep(viewport()->width());
  verticalScrollBar()->setRange(0, std::max(0, height - viewport()->height()));
  verticalScrollBar()->setPageStep(viewport()->height());
}

QString TimelineView::toolTipOf(const TimelineItem& item) const {
  const double rate = item.rate > 0 ? item.rate : timeline_->rate;
  QStringList lines{
      tr("%1 (%2)", "a name, and what has it")
          .arg(item.name.isEmpty() ? kindWord(item) : item.name, kindWord(item)),
      tr("%1 long, from %2").arg(timecode(item.length, rate), timecode(item.start, rate))};
  if (!item.change.isEmpty()) lines << tr("Since then: %1").arg(item.change);
  if (!item.hasMaterial) lines << tr("Its material is missing.");
  return lines.join(QLatin1Char('\n'));
}

QString TimelineView::tipAt(const QPoint& at) const {
  if (const TimelineAddition* added = additionAt(at)) return added->change;
  std::size_t track = 0;
  std::size_t item = 0;
  const TimelineItem* const found = itemAt(at, track, item);
  return found ? toolTipOf(*found) : QString();
}

bool TimelineView::viewportEvent(QEvent* event) {
  if (event->type() == QEvent::ToolTip) {
    const auto* help = static_cast<QHelpEvent*>(event);
    QToolTip::showText(help->globalPos(), plainTip(tipAt(help->pos())), this);
    return true;
  }
  return QAbstractScrollArea::viewportEvent(event);
}

}  // namespace korvel
