#include <gtest/gtest.h>

#include <QAccessible>
#include <QImage>
#include <set>

#include "app/window/Appearance.h"
#include "station/edit/Timecode.h"
#include "tests/window/WindowScene.h"

using namespace korvel;

namespace {

TEST(WindowRulerTest, TicksAreWholeFramesAndNoTwoHaveOneTimecode) {
  for (const double rate : {12.0, 23.976, 24.0, 25.0, 29.97, 30.0, 50.0, 59.94, 60.0}) {
    for (double pixels = 1e-9; pixels < 200; pixels *= 1.37) {
      const long step = framesFromTickToTick(pixels, rate);
      ASSERT_GE(step, 1);
      EXPECT_TRUE(static_cast<double>(step) * pixels >= 84 || pixels < 1e-7 || pixels > 84);
      const long perSecond = std::lround(rate);
      EXPECT_TRUE(step < perSecond || step % perSecond == 0) << step << " at " << rate;
      std::set<QString> texts;
      for (long frame = 0; frame < 20 * step && step < 1'000'000; frame += step) {
        EXPECT_TRUE(texts.insert(timecode(static_cast<double>(frame) / rate, rate)).second);
      }
    }
  }
}

TEST(WindowRulerTest, TheRulerOfAZoomedEditHasATickAtEachFrame) {
  const WithoutDisplay display;
  auto timeline = std::make_shared<Timeline>();
  timeline->cookie = "E1";
  timeline->length = 2;
  timeline->rate = 24;
  timeline->tracks.push_back({"V1", false, {{}}, {}});
  TimelineView view;
  view.resize(800, 200);
  view.QWidget::show();
  view.show(timeline);
  for (int i = 0; i < 8; ++i) QTest::keyClick(&view, Qt::Key_Plus);
  const std::vector<long> ticks = view.ticks();
  ASSERT_GT(ticks.size(), 3U);
  for (std::size_t i = 1; i < ticks.size(); ++i) EXPECT_EQ(ticks[i] - ticks[i - 1], 1);
}

TEST(WindowRulerTest, InDropFrameTicksStayOnTheSeconds) {
  const WithoutDisplay display;
  auto timeline = std::make_shared<Timeline>();
  timeline->rate = 30000.0 / 1001;
  timeline->length = 7200;
  timeline->tracks.push_back({"V1", false, {{}}, {}});
  TimelineView view;
  view.resize(900, 200);
  view.QWidget::show();
  view.show(timeline);
  const Timecode timecode(timeline->rate);
  ASSERT_GT(view.ticks().size(), 4U);
  for (const long frame : view.ticks()) {
    const std::string text = timecode.text(frame);
    EXPECT_TRUE(text.ends_with(":00;00") || text.ends_with(":00;02")) << text;
  }
}

TEST(WindowRulerTest, NoTimecodeOfTheRulerIsCutAtTheEdge) {
  const WithoutDisplay display;
  applyAppearance(Appearance::eLight);
  TimelineView view;
  view.resize(600, 120);
  view.QWidget::show();
  int shown = 0;
  for (double length = 20; length < 60; length += 1.3) {
    auto timeline = std::make_shared<Timeline>();
    timeline->rate = 24;
    timeline->length = length;
    timeline->tracks.push_back({"V1", false, {{}}, {}});
    view.show(timeline);
    const QImage image = view.viewport()->grab().toImage();
    ASSERT_EQ(image.width(), 600);
    const QColor back = image.pixelColor(599, 0);
    for (int y = 0; y < 14; ++y) {  // above the ticks
      EXPECT_EQ(image.pixelColor(599, y), back) << length << ' ' << y;
      shown += image.pixelColor(300, y) != back;
    }
  }
  EXPECT_GT(shown, 0);
}

TEST(WindowRulerTest, AScreenReaderWalksTheItemsOfATimeline) {
  const WithoutDisplay display;
  auto timeline = std::make_shared<Timeline>();
  timeline->cookie = "E1";
  timeline->length = 3;
  timeline->rate = 24;
  TimelineItem quay;
  quay.name = "Quay";
  quay.length = 1;
  TimelineItem pier = quay;
  pier.name = "Pier";
  pier.start = 1;
  pier.length = 2;
  timeline->tracks.push_back({"V1", false, {quay, pier}, {}});
  timeline->tracks.push_back({"V2", false, {quay}, {}});
  TimelineView view;
  view.resize(800, 200);
  view.QWidget::show();
  view.show(timeline);
  QAccessibleInterface* const list = QAccessible::queryAccessibleInterface(&view);
  ASSERT_EQ(list->childCount(), 3);
  EXPECT_EQ(list->role(), QAccessible::List);
  EXPECT_EQ(list->child(0)->text(QAccessible::Name),
            "clip Quay, track V2, 00:00:01:00 long, from 00:00:00:00");
  QAccessibleInterface* const last = list->child(2);
  EXPECT_EQ(last->text(QAccessible::Name),
            "clip Pier, track V1, 00:00:02:00 long, from 00:00:01:00");
  EXPECT_EQ(list->indexOfChild(last), 2);
  EXPECT_EQ(last->parent(), list);
  const QPoint middle = last->rect().center();
  EXPECT_EQ(list->childAt(middle.x(), middle.y()), last);
  EXPECT_FALSE(last->state().selected);
  QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, view.rectOf(0, 1).center());
  EXPECT_TRUE(last->state().selected);
  view.show(nullptr);
  EXPECT_EQ(list->childCount(), 0);
  EXPECT_FALSE(last->isValid());
}

}  // namespace
