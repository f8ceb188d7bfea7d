#include "app/window/TimelineView.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QHash>
#include <QPointer>

namespace korvel {

int TimelineView::itemCount() const {
  if (!timeline_) return 0;
  std::size_t count = 0;
  for (const TimelineTrack& track : timeline_->tracks) count += track.items.size();
  return static_cast<int>(count);
}

std::pair<std::size_t, std::size_t> TimelineView::placeOfItem(int index) const {
  auto left = static_cast<std::size_t>(index);
  for (std::size_t track = timeline_->tracks.size(); track-- > 0;) {
    const std::size_t count = timeline_->tracks[track].items.size();
    if (left < count) return {track, left};
    left -= count;
  }
  return {};
}

int TimelineView::numberOf(std::size_t track, std::size_t item) const {
  for (std::size_t above = track + 1; above < timeline_->tracks.size(); ++above)
    item += timeline_->tracks[above].items.size();
  return static_cast<int>(item);
}

QRect TimelineView::itemRect(int index) const {
  const auto [track, item] = placeOfItem(index);
  return rectOf(track, item);
}

int TimelineView::chosenItem() const { return chosen() ? numberOf(track_, item_) : -1; }

void TimelineView::chooseItem(int index) {
  const auto [track, item] = placeOfItem(index);
  choose(track, item);
}

int TimelineView::itemUnder(const QPoint& at) const {
  std::size_t track = 0;
  std::size_t item = 0;
  return itemAt(at, track, item) ? numberOf(track, item) : -1;
}

namespace {

/// One item of a timeline, by its place in the list. There is no object behind it.
class ItemAccess : public QAccessibleInterface, public QAccessibleActionInterface {
 public:
  ItemAccess(TimelineView* view, int index) : view_(view), index_(index) {}

  [[nodiscard]] bool isValid() const override { return view_ && index_ < view_->itemCount(); }
  [[nodiscard]] QObject* object() const override { return nullptr; }
  [[nodiscard]] QWindow* window() const override { return view_->window()->windowHandle(); }
  [[nodiscard]] QAccessibleInterface* childAt(int, int) const override { return nullptr; }
  [[nodiscard]] QAccessibleInterface* parent() const override {
    return QAccessible::queryAccessibleInterface(view_);
  }
  [[nodiscard]] QAccessibleInterface* child(int) const override { return nullptr; }
  [[nodiscard]] int childCount() const override { return 0; }
  [[nodiscard]] int indexOfChild(const QAccessibleInterface*) const override { return -1; }
  [[nodiscard]] QString text(QAccessible::Text what) const override {
    return what == QAccessible::Name && isValid() ? view_->itemText(index_) : QString();
  }
  void setText(QAccessible::Text, const QString&) override {}
  [[nodiscard]] QRect rect() const override {
    const QRect rect = isValid() ? view_->itemRect(index_) : QRect();
    return {view_->viewport()->mapToGlobal(rect.topLeft()), rect.size()};
  }
  [[nodiscard]] QAccessible::Role role() const override { return QAccessible::ListItem; }
  [[nodiscard]] QAccessible::State state() const override {
    QAccessible::State state;
    state.focusable = state.selectable = state.readOnly = true;
    state.selected = view_->chosenItem() == index_;
    state.focused = state.selected && view_->hasFocus();
    return state;
  }

  void* interface_cast(QAccessible::InterfaceType type) override {
    return type == QAccessible::ActionInterface ? static_cast<QAccessibleActionInterface*>(this)
                                                : nullptr;
  }

  // To choose it, as the mouse does: what the menus do to a clip is then done to this one.

  [[nodiscard]] QStringList actionNames() const override { return {setFocusAction()}; }
  void doAction(const QString& name) override {
    if (name != setFocusAction() || !isValid()) return;
    view_->setFocus(Qt::OtherFocusReason);
    view_->chooseItem(index_);
  }
  [[nodiscard]] QStringList keyBindingsForAction(const QString&) const override { return {}; }

  [[nodiscard]] int index() const { return index_; }

 private:
  QPointer<TimelineView> view_;
  int index_;
};

class TimelineAccess : public QAccessibleWidget {
 public:
  explicit TimelineAccess(TimelineView* view)
      : QAccessibleWidget(view, QAccessible::List), view_(*view) {}
  ~TimelineAccess() override {
    for (const QAccessible::Id id : known_) QAccessible::deleteAccessibleInterface(id);
  }

  [[nodiscard]] int childCount() const override { return view_.itemCount(); }
  [[nodiscard]] QAccessibleInterface* child(int index) const override {
    if (index < 0 || index >= childCount()) return nullptr;
    if (!known_.contains(index)) {
      known_[index] = QAccessible::registerAccessibleInterface(new ItemAccess(&view_, index));
    }
    return QAccessible::accessibleInterface(known_[index]);
  }
  [[nodiscard]] int indexOfChild(const QAccessibleInterface* child) const override {
    const auto* const item = dynamic_cast<const ItemAccess*>(child);
    return item ? item->index() : -1;
  }
  [[nodiscard]] QAccessibleInterface* childAt(int x, int y) const override {
    return child(view_.itemUnder(view_.viewport()->mapFromGlobal(QPoint(x, y))));
  }
  [[nodiscard]] QAccessibleInterface* focusChild() const override {
    return view_.hasFocus() ? child(view_.chosenItem()) : nullptr;
  }

 private:
  TimelineView& view_;
  mutable QHash<int, QAccessible::Id> known_;
};

QAccessibleInterface* accessOf(const QString& className, QObject* object) {
  if (className != QLatin1String("korvel::TimelineView")) return nullptr;
  auto* const view = qobject_cast<TimelineView*>(object);
  return view ? new TimelineAccess(view) : nullptr;
}

}  // namespace

void installTimelineAccess() { QAccessible::installFactory(accessOf); }

}  // namespace korvel
