#include "app/window/ColumnFit.h"

#include <QEvent>
#include <QHeaderView>
#include <QTreeView>
#include <algorithm>
#include <utility>

namespace korvel {

namespace {

constexpr int kLeastWidth = 24;

}  // namespace

ColumnFit::ColumnFit(QTreeView& view, int first, std::vector<Width> widths)
    : QObject(&view), view_(view), first_(first), widths_(std::move(widths)) {
  QHeaderView& header = *view.header();
  header.setStretchLastSection(false);
  header.setMinimumSectionSize(kLeastWidth);
  header.setSectionResizeMode(0, QHeaderView::Stretch);
  connect(&header, &QHeaderView::sectionResized, this,
          [this](int column, int, int width) { takeWidth(column, width); });
  view.viewport()->installEventFilter(this);
  fit();
}

bool ColumnFit::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::Resize) fit();
  return QObject::eventFilter(watched, event);
}

void ColumnFit::setSecond(Width width) {
  widths_.front() = width;
  fit();
}

void ColumnFit::takeWidth(int column, int width) {
  if (isFitting_ || column == 0 || width == 0) return;
  Width& own = widths_[static_cast<std::size_t>(column) - 1];
  own.wanted = width;
  own.least = std::min(own.least, width);
}

void ColumnFit::fit() {
  isFitting_ = true;
  int room = view_.viewport()->width() - first_;
  for (std::size_t i = 0; i < widths_.size(); ++i) {
    const int column = static_cast<int>(i) + 1;
    const bool fits = room >= widths_[i].least;
    const int width = std::min(widths_[i].wanted, room);
    view_.setColumnHidden(column, !fits);
    if (fits) view_.setColumnWidth(column, width);
    room = fits ? room - width : 0;
  }
  isFitting_ = false;
}

}  // namespace korvel
