#pragma once

#include <QAbstractScrollArea>

#include <optional>

#include "app/window/Timeline.h"

namespace korvel {

/// Draws an edit to scale: a row a track, the highest on top, under a ruler. The whole edit fits
/// the width at first; Ctrl and the wheel, "+", "-" and "0" change that. The arrow keys go from
/// clip to clip. The edges of clips are dragged with the mouse, frame by frame, as far as there is
/// material; Escape gives that up. Of an older version, what became another since is marked at its
/// upper edge, and what came since by a line at its place; the tool tips say what it is.
class TimelineView : public QAbstractScrollArea {
  Q_OBJECT

 public:
  explicit TimelineView(QWidget* parent = nullptr);

  void show(const TimelinePtr& timeline);

  /// Scrolls to the item at this path, and leaves what is chosen as it is.
  void reveal(const QString& path);

  /// A text in place of the drawing; empty for the drawing.
  void setHint(const QString& hint);
  [[nodiscard]] const QString& hint() const { return hint_; }

  /// The chosen clip, or null.
  [[nodiscard]] const TimelineItem* chosen() const;
  [[nodiscard]] const TimelinePtr& timeline() const { return timeline_; }

  /// Where an item is drawn, in the viewport.
  [[nodiscard]] QRect rectOf(std::size_t track, std::size_t item) const;

  /// What the tool tip at a place of the viewport says; empty for none.
  [[nodiscard]] QString tipAt(const QPoint& at) const;

  /// The frames at which the ruler has a tick with its timecode.
  [[nodiscard]] std::vector<long> ticks() const;

  /// Why no clip can be trimmed now, as a sentence; empty where they can.
  void setTrimRefusal(const QString& why) { trimRefusal_ = why; }

  /// The clip whose edge is being dragged, or was until it is drawn anew; null for none.
  [[nodiscard]] const ClipTrim* trim() const { return drag_ ? &drag_->trim : nullptr; }

  /// Draws the clip whose edge was dragged where it is: it was not trimmed.
  void dropTrim();

  // The items one after another, as a screen reader walks them: the highest track's first.

  [[nodiscard]] int itemCount() const;

  /// "clip Opening, track V1, 00:00:02:00 long, from 00:00:10:00".
  [[nodiscard]] QString itemText(int index) const;
  [[nodiscard]] QRect itemRect(int index) const;

  /// The chosen one's number, and that of the one at a place of the viewport; below zero for none.
  [[nodiscard]] int chosenItem() const;
  [[nodiscard]] int itemUnder(const QPoint& at) const;

  /// Chooses the item of this number, which must be there.
  void chooseItem(int index);

 Q_SIGNALS:
  void choiceChanged();

  /// An edge was dragged to another frame and let go.
  void trimmed(const ClipTrim& trim);

  /// An edge was taken that must not be moved; `why` as setTrimRefusal() told it.
  void trimRefused(const QString& why);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void focusInEvent(QFocusEvent* event) override;
  void focusOutEvent(QFocusEvent* event) override;
  bool viewportEvent(QEvent* event) override;

 private:
  enum class Weight { eNormal, eChosen };
  enum class Edge { eNone, eIn, eOut };

  /// An edge on its way.
  struct Drag {
    ClipTrim trim;
    Edge edge = Edge::eNone;
    int fromX = 0;  ///< where the mouse took it
    std::size_t track = 0;
    std::size_t item = 0;
    bool hasMoved = false;  ///< by more than a hand trembles
    bool isLetGo = false;   ///< and asked of the station
  };

  [[nodiscard]] double pixelsPerSecond() const;
  [[nodiscard]] int xAt(double seconds) const;
  [[nodiscard]] int yOf(std::size_t track) const;
  [[nodiscard]] int numberOf(std::size_t track, std::size_t item) const;
  [[nodiscard]] std::pair<std::size_t, std::size_t> placeOfItem(int index) const;
  [[nodiscard]] const TimelineItem* itemAt(const QPoint& at, std::size_t& track,
                                           std::size_t& item) const;
  void paintRuler(QPainter& painter) const;
  void paintFocus(QPainter& painter) const;
  void paintTrack(QPainter& painter, std::size_t track) const;
  void paintItem(QPainter& painter, const TimelineTrack& track, const TimelineItem& item,
                 const QRect& rect, Weight weight) const;
  void paintChange(QPainter& painter, const QRect& rect) const;
  void paintAdded(QPainter& painter, std::size_t track) const;
  [[nodiscard]] const TimelineAddition* additionAt(const QPoint& at) const;
  [[nodiscard]] Edge edgeAt(const QPoint& at) const;
  void dragTo(int x);
  [[nodiscard]] bool isHeld() const;
  void paintTrim(QPainter& painter) const;
  [[nodiscard]] QRect trimmedRect() const;
  [[nodiscard]] QString trimText() const;
  void choose(std::size_t track, std::size_t item);
  void bringIntoSight(std::size_t track, std::size_t item);
  void step(int tracks, int items);
  void zoom(double factor);
  void fitScrollBars();
  [[nodiscard]] QString toolTipOf(const TimelineItem& item) const;

  TimelinePtr timeline_;
  QString hint_;
  double zoom_ = 1;  ///< 1 shows the whole edit
  bool hasChoice_ = false;
  std::size_t track_ = 0;
  std::size_t item_ = 0;
  QString trimRefusal_;
  std::optional<Drag> drag_;
};

/// How many frames are from tick to tick of a ruler on which a frame is this wide: as few as leave
/// each its text, a whole number, and from a second on whole seconds.
long framesFromTickToTick(double pixelsPerFrame, double rate);

/// A time as Timecode shows it at a rate: "00:00:03:12".
QString timecode(double seconds, double rate);

/// Makes timelines known to screen readers: a list of their items, from the highest track's first
/// to the lowest track's last, each with its name, track, length and place; the chosen one has the
/// focus. To be called before the first timeline is looked at; more than once does no harm. Window
/// thread.
void installTimelineAccess();

}  // namespace korvel
