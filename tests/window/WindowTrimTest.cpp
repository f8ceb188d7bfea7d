#include <gtest/gtest.h>

#include <QComboBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <algorithm>
#include <fstream>

#include "app/window/Dialogs.h"
#include "app/window/MessageBar.h"
#include "tests/window/WindowScene.h"

namespace korvel {

namespace {

/// "Quay" shows the seconds 1 to 3 of 4, "Pier" behind it 2 of as many as there may be.
TimelinePtr twoClips(double rate = 24) {
  auto timeline = std::make_shared<Timeline>();
  timeline->cookie = "E1";
  timeline->length = 4;
  timeline->rate = rate;
  TimelineItem quay;
  quay.name = "Quay";
  quay.path = "0/0";
  quay.from = 1;
  quay.length = 2;
  quay.rate = rate;
  quay.material = {0, 4};
  quay.canBeTrimmed = true;
  TimelineItem pier = quay;
  pier.name = "Pier";
  pier.path = "0/1";
  pier.start = 2;
  pier.from = 0;
  pier.material = {};
  timeline->tracks.push_back({"V1", false, {quay, pier}, {}});
  return timeline;
}

/// The dialog of those clips, with the texts of its boxes at hand.
class OpenTrimDialog : public TrimDialog {
 public:
  explicit OpenTrimDialog(const QString& path = "0/0", const TimelinePtr& timeline = twoClips())
      : TrimDialog(timeline, path, nullptr) {
    setAttribute(Qt::WA_DeleteOnClose, false);
    show();
    QApplication::setActiveWindow(this);
  }

  [[nodiscard]] QLineEdit& box(const char* name) const { return *findChild<QLineEdit*>(name); }
  [[nodiscard]] std::string text(const char* name) const { return box(name).text().toStdString(); }
  [[nodiscard]] std::string times() const {
    return text("in") + ' ' + text("out") + ' ' + text("length");
  }
  [[nodiscard]] QPushButton& ok() const {
    return *findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok);
  }

  void type(const char* name, const char* text) const {
    box(name).setFocus();
    box(name).selectAll();
    QTest::keyClick(&box(name), Qt::Key_Backspace);
    QTest::keyClicks(&box(name), text);
  }

  /// What is said below the boxes; empty where nothing is wrong.
  [[nodiscard]] std::string problem() const {
    for (const QLabel* label : findChildren<QLabel*>("problem")) {
      if (!label->text().isEmpty())
        return label->isVisible() ? label->text().toStdString() : "hidden";
    }
    return {};
  }
};

TEST(WindowTrimDialogTest, TheTimesArePrefilledAndFollowEachOther) {
  const WithoutDisplay display;
  const OpenTrimDialog dialog;
  EXPECT_EQ(dialog.times(), "00:00:01:00 00:00:03:00 00:00:02:00");
  const auto* const material = dialog.findChild<QLabel*>("material");
  EXPECT_EQ(material->text(),
            "00:00:00:00 to 00:00:04:00, unused 00:00:01:00 before and 00:00:01:00 after");
  dialog.type("in", "1:12");
  EXPECT_EQ(dialog.times(), "1:12 00:00:03:00 00:00:01:12");
  dialog.type("out", "+12f");
  EXPECT_EQ(dialog.times(), "00:00:01:12 +12f 00:00:02:00");
  dialog.type("length", "1s");
  EXPECT_EQ(dialog.times(), "00:00:01:12 00:00:02:12 1s");
  EXPECT_EQ(material->text(),
            "00:00:00:00 to 00:00:04:00, unused 00:00:01:12 before and 00:00:01:12 after");
  EXPECT_EQ(dialog.problem(), "");
  EXPECT_TRUE(dialog.ok().isEnabled());
  QTest::keyClick(&dialog.box("length"), Qt::Key_Tab);
  EXPECT_EQ(dialog.times(), "00:00:01:12 00:00:02:12 00:00:01:00");
}

TEST(WindowTrimDialogTest, WhatIsWrongIsSaidBelowItsBoxWhileItIsTyped) {
  const WithoutDisplay display;
  const OpenTrimDialog dialog;
  EXPECT_FALSE(dialog.ok().isEnabled()) << "nothing is changed yet";
  struct Row {
    const char* box;
    const char* text;
    const char* problem;
  };
  for (const Row& row :
       {Row{"in", "soon", "\"soon\" is no time"}, Row{"in", "1:24", "has frame 24"},
        Row{"in", "3s", "Nothing would be left"}, Row{"in", "2s", ""},
        Row{"in", "-2s", "The material begins at 00:00:00:00."}, Row{"in", "1s", ""},
        Row{"out", "4:01", "The material ends at 00:00:04:00."},
        Row{"length", "0", "A clip is one frame long at least."},
        Row{"length", "4s", "The material ends at 00:00:04:00."}, Row{"length", "", "is no time"},
        Row{"length", "1:01", ""}}) {
    dialog.type(row.box, row.text);
    const bool isRight = *row.problem == 0;
    EXPECT_NE(dialog.problem().find(row.problem), std::string::npos)
        << row.text << ": " << dialog.problem();
    EXPECT_EQ(dialog.problem().empty(), isRight) << row.text << ": " << dialog.problem();
    EXPECT_EQ(dialog.box(row.box).accessibleDescription().toStdString(), dialog.problem());
    EXPECT_FALSE(!isRight && dialog.ok().isEnabled()) << row.text;
  }
  EXPECT_TRUE(dialog.ok().isEnabled());
}

TEST(WindowTrimDialogTest, AnotherClipHasItsOwnTimesAndNoBoundsWhereNothingTellsThem) {
  const WithoutDisplay display;
  const OpenTrimDialog dialog("0/1", twoClips(30000.0 / 1001));
  EXPECT_EQ(dialog.times(), "00:00:00;00 00:00:02;00 00:00:02;00");
  EXPECT_EQ(dialog.findChild<QLabel*>("material")->text(),
            "Nothing tells how much material there is.");
  dialog.type("out", "100:00:00");
  EXPECT_EQ(dialog.problem(), "");
  dialog.type("length", "99999999999");
  EXPECT_EQ(dialog.problem(), "A clip is 24 hours long at most.");
  EXPECT_FALSE(dialog.ok().isEnabled());
  dialog.type("out", "nonsense");
  EXPECT_FALSE(dialog.ok().isEnabled());
  dialog.findChild<QComboBox*>()->setCurrentIndex(0);
  EXPECT_EQ(dialog.text("in"), "00:00:01;00");
  EXPECT_EQ(dialog.problem(), "");
}

TEST(WindowTrimDialogTest, AnEditWithoutClipsSaysSo) {
  const WithoutDisplay display;
  const OpenTrimDialog dialog("0/0", std::make_shared<Timeline>());
  EXPECT_EQ(dialog.findChild<QLabel*>("material")->text(),
            "This edit has no clip that can be trimmed.");
  EXPECT_FALSE(dialog.ok().isEnabled());
  EXPECT_FALSE(dialog.box("in").isEnabled());
}

TEST(WindowTrimDialogTest, WhatIsNotMovedStaysAsItIsToAPartOfAFrame) {
  TimelineItem item = twoClips()->tracks[0].items[0];
  item.from = 1.01;
  ClipTrim trim(item);
  trim.moveOut(60);
  EXPECT_EQ(trim.line("E1").toStdString(), "edit trim E1 0/0 +0f 60f");
  item.from = -1;
  item.material = {-2, 4};
  ClipTrim early(item);
  early.moveIn(-100);
  EXPECT_EQ(early.line("E1").toStdString(), "edit trim E1 0/0 -24f +0f");
}

/// The view alone, with the two clips, 100 pixels a second.
class WindowTrimViewTest : public testing::Test {
 protected:
  WindowTrimViewTest() {
    view_.resize(516, 200);
    view_.QWidget::show();
    view_.show(twoClips());
    QObject::connect(&view_, &TimelineView::trimmed, [this](const ClipTrim& trim) {
      lines_.push_back(trim.line("E1").toStdString());
    });
    QObject::connect(&view_, &TimelineView::trimRefused,
                     [this](const QString& why) { refusals_.push_back(why.toStdString()); });
  }

  /// The inner edge of an item: where the mouse takes it.
  [[nodiscard]] QPoint inEdge(std::size_t item) const {
    const QRect rect = view_.rectOf(0, item);
    return {rect.left() + 1, rect.center().y()};
  }
  [[nodiscard]] QPoint outEdge(std::size_t item) const {
    const QRect rect = view_.rectOf(0, item);
    return {rect.right() - 1, rect.center().y()};
  }

  void press(const QPoint& at) { QTest::mousePress(view_.viewport(), Qt::LeftButton, {}, at); }
  void moveTo(const QPoint& at) { QTest::mouseMove(view_.viewport(), at); }
  void release(const QPoint& at) { QTest::mouseRelease(view_.viewport(), Qt::LeftButton, {}, at); }

  void drag(const QPoint& from, int way) {
    press(from);
    for (int i = 1; i <= 10; ++i) moveTo(from + QPoint(way * i / 10, 0));
    release(from + QPoint(way, 0));
  }

  const WithoutDisplay display_;
  TimelineView view_;
  std::vector<std::string> lines_;
  std::vector<std::string> refusals_;
};

TEST_F(WindowTrimViewTest, ADraggedEdgeIsTrimmedOnceToAWholeFrame) {
  drag(outEdge(0), -53);  // half a second and some
  EXPECT_EQ(lines_, std::vector<std::string>{"edit trim E1 0/0 +0f 59f"});
  view_.show(twoClips());
  drag(inEdge(0), 53);
  EXPECT_EQ(lines_.back(), "edit trim E1 0/0 37f +0f");
  view_.show(twoClips());
  drag(inEdge(1), 25);
  EXPECT_EQ(lines_.back(), "edit trim E1 0/1 6f +0f");
  EXPECT_EQ(lines_.size(), 3U);
}

TEST_F(WindowTrimViewTest, AnEdgeStopsWhereTheMaterialOrTheClipEnds) {
  drag(outEdge(0), 300);
  EXPECT_EQ(lines_.back(), "edit trim E1 0/0 +0f 96f");
  view_.show(twoClips());
  drag(inEdge(0), 300);
  EXPECT_EQ(lines_.back(), "edit trim E1 0/0 71f +0f") << "a frame is left";
  view_.show(twoClips());
  drag(inEdge(0), -300);
  EXPECT_EQ(lines_.back(), "edit trim E1 0/0 0f +0f");
}

TEST_F(WindowTrimViewTest, EscapeGivesADragUp) {
  const QPoint edge = outEdge(0);
  press(edge);
  moveTo(edge + QPoint(-40, 0));
  ASSERT_TRUE(view_.trim());
  EXPECT_TRUE(view_.trim()->isChanged());
  QTest::keyClick(&view_, Qt::Key_Escape);
  EXPECT_FALSE(view_.trim());
  moveTo(edge + QPoint(-60, 0));
  release(edge + QPoint(-60, 0));
  EXPECT_TRUE(lines_.empty());
}

// Others' changes are drawn while a hand holds an edge.
TEST_F(WindowTrimViewTest, AnEdgeStaysInTheHandWhileItsClipIsDrawnAnew) {
  const QPoint edge = outEdge(0);
  press(edge);
  moveTo(edge + QPoint(-53, 0));
  view_.show(twoClips());
  ASSERT_TRUE(view_.trim());
  release(edge + QPoint(-53, 0));
  EXPECT_EQ(lines_, std::vector<std::string>{"edit trim E1 0/0 +0f 59f"});
}

TEST_F(WindowTrimViewTest, AnEdgeIsTakenOutOfTheHandWhereItsClipIsAnotherByNow) {
  const QPoint edge = outEdge(0);
  press(edge);
  moveTo(edge + QPoint(-53, 0));
  Timeline other = *twoClips();
  other.tracks.front().items.front().from += 1;
  view_.show(std::make_shared<Timeline>(other));
  EXPECT_FALSE(view_.trim());
  release(edge + QPoint(-53, 0));
  EXPECT_TRUE(lines_.empty());
}

TEST_F(WindowTrimViewTest, AClickOnAnEdgeAndADragInTheMiddleTrimNothing) {
  drag(outEdge(0), 3);  // more than half a frame
  drag(view_.rectOf(0, 0).center(), 60);
  drag(outEdge(0), 0);
  EXPECT_TRUE(lines_.empty());
  EXPECT_TRUE(refusals_.empty());
  EXPECT_TRUE(view_.chosen());
}

TEST_F(WindowTrimViewTest, ARefusalIsToldOnceADrag) {
  view_.setTrimRefusal("It belongs to BEN.");
  QTest::mouseClick(view_.viewport(), Qt::LeftButton, {}, outEdge(0));
  EXPECT_TRUE(refusals_.empty()) << "a click chooses";
  drag(outEdge(0), -100);
  EXPECT_EQ(refusals_, std::vector<std::string>{"It belongs to BEN."});
  EXPECT_TRUE(lines_.empty());
  EXPECT_FALSE(view_.trim());
}

TEST_F(WindowTrimViewTest, WhatIsLetGoStaysDrawnUntilTheAnswer) {
  const QPoint edge = outEdge(0);
  const auto colour = [&] {
    return view_.viewport()->grab().toImage().pixelColor(edge - QPoint(20, 0));
  };
  const QColor before = colour();
  drag(edge, -60);
  EXPECT_TRUE(view_.trim());
  const QColor there = view_.viewport()->grab().toImage().pixelColor(view_.rectOf(0, 0).center());
  EXPECT_NE(there, before) << "the rest of the clip is marked";
  view_.dropTrim();
  EXPECT_EQ(colour(), before);
  EXPECT_FALSE(view_.trim());
}

TEST_F(WindowTrimViewTest, TheFrameOfAnEdgeOnItsWayStandsOverTheRuler) {
  const QPoint above = outEdge(0) - QPoint(40, outEdge(0).y() - 6);
  const auto colour = [&] { return view_.viewport()->grab().toImage().pixelColor(above); };
  const QColor ruler = colour();
  press(outEdge(0));
  moveTo(outEdge(0) - QPoint(40, 0));
  EXPECT_NE(colour(), ruler) << "the label of the highest track is there";
}

TEST_F(WindowTrimViewTest, TheMouseShowsWhereAnEdgeCanBeTaken) {
  moveTo(outEdge(0));
  EXPECT_EQ(view_.viewport()->cursor().shape(), Qt::SplitHCursor);
  moveTo(view_.rectOf(0, 0).center());
  EXPECT_EQ(view_.viewport()->cursor().shape(), Qt::ArrowCursor);
  view_.setTrimRefusal("It belongs to BEN.");
  moveTo(outEdge(0));
  EXPECT_EQ(view_.viewport()->cursor().shape(), Qt::ArrowCursor);
}

/// Two seconds from the second one of four.
std::string clipOfFour(const std::string& name) {
  const auto time = [](int frames) {
    return R"({"OTIO_SCHEMA":"RationalTime.1","rate":24,"value":)" + std::to_string(frames) + "}";
  };
  const auto range = [&time](int start, int length) {
    return R"({"OTIO_SCHEMA":"TimeRange.1","start_time":)" + time(start) + R"(,"duration":)" +
           time(length) + "}";
  };
  return R"({"OTIO_SCHEMA":"Clip.1","name":")" + name + R"(","source_range":)" + range(24, 48) +
         R"(,"media_reference":{"OTIO_SCHEMA":"ExternalReference.1","target_url":"a.mov",)"
         R"("available_range":)" +
         range(0, 96) + "}}";
}

class WindowTrimTest : public testing::Test, protected WindowScene {
 protected:
  WindowTrimTest() : file_(folder / "reel.otio") {
    std::ofstream(file_)
        << R"({"OTIO_SCHEMA":"Timeline.1","name":"Reel","tracks":{"OTIO_SCHEMA":"Stack.1",)"
           R"("children":[{"OTIO_SCHEMA":"Track.1","kind":"Video","children":[)" +
               clipOfFour("Quay") + "," + clipOfFour("Pier") + "]}]}}";
    script = "project create Harbour\nproject enter Harbour\nedit import " + file_ + "\n";
  }

  /// The edit of this name is chosen, its timeline is drawn and has the keyboard.
  static void showReel(MainWindow& window, const QString& name = "Reel") {
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, name).isEmpty(); }));
    clickEdit(window, name);
    TimelineView& view = window.detail().view();
    ASSERT_TRUE(
        waitFor([&] { return view.timeline() && view.timeline()->cookie == keyOf(window, name); }));
    view.setFocus();
  }

  /// From where to where the first clip shows its material, in frames.
  static std::pair<long, long> first(MainWindow& window) {
    const TimelineItem& item = window.detail().view().timeline()->tracks[0].items[0];
    return {std::lround(item.from * 24), std::lround((item.from + item.length) * 24)};
  }

  static bool becomes(MainWindow& window, std::pair<long, long> range) {
    return waitFor([&] { return first(window) == range; });
  }

  static void dragOut(MainWindow& window, int way) {
    TimelineView& view = window.detail().view();
    const QRect rect = view.rectOf(0, 0);
    const QPoint edge(rect.right() - 1, rect.center().y());
    QTest::mousePress(view.viewport(), Qt::LeftButton, {}, edge);
    for (int i = 1; i <= 10; ++i) QTest::mouseMove(view.viewport(), edge + QPoint(way * i / 10, 0));
    QTest::mouseRelease(view.viewport(), Qt::LeftButton, {}, edge + QPoint(way, 0));
  }

  std::string file_;
};

TEST_F(WindowTrimTest, ADraggedEdgeIsOneMessageAndCanBeUndone) {
  play([this](MainWindow& window) {
    StationProcess ben(other("BEN"));
    showReel(window);
    ASSERT_TRUE(ben.command("project enter Harbour")["ok"].asBool());
    ASSERT_TRUE(ben.command("edit open Reel")["ok"].asBool());
    dragOut(window, -40);
    ASSERT_TRUE(waitFor([&] { return first(window).second < 72; }));
    const auto after = first(window);
    EXPECT_EQ(after.first, 24);
    EXPECT_FALSE(window.detail().view().trim()) << "drawn anew";
    ASSERT_TRUE(waitFor([&] { return !ben.events("changed").empty(); }));
    const JsonValue clip = ben.command("edit show Reel")["result"]["clips"].elements()[0];
    EXPECT_EQ(std::lround(clip["end"].asDouble() * 24), after.second);
    int trims = 0;
    for (const JsonValue& each : ben.events("received")) {
      trims += each["type_name"].asString() == "EditModification";
    }
    EXPECT_EQ(trims, 1);
    ASSERT_TRUE(waitFor([&] { return window.snapshot()->undo.contains("trim of Quay"); }));
    QTest::keyClick(&window, Qt::Key_Z, Qt::ControlModifier);
    EXPECT_TRUE(becomes(window, {24, 72}));
  });
}

TEST_F(WindowTrimTest, KeysMoveEitherEdgeByAFrame) {
  play([](MainWindow& window) {
    showReel(window);
    TimelineView& view = window.detail().view();
    QTest::keyClick(&view, Qt::Key_Left);  // chooses the first clip
    QTest::keyClick(&view, Qt::Key_Right, Qt::ControlModifier);
    EXPECT_TRUE(becomes(window, {24, 73}));
    QTest::keyClick(&view, Qt::Key_Left, Qt::ControlModifier);
    EXPECT_TRUE(becomes(window, {24, 72}));
    QTest::keyClick(&view, Qt::Key_Left, Qt::ShiftModifier);
    EXPECT_TRUE(becomes(window, {23, 72}));
    QTest::keyClick(&view, Qt::Key_Right, Qt::ShiftModifier);
    EXPECT_TRUE(becomes(window, {24, 72}));
    EXPECT_EQ(view.chosenItem(), 0) << "plain arrows alone choose";
  });
}

TEST_F(WindowTrimTest, TheDialogTrimsWhatIsTyped) {
  play([](MainWindow& window) {
    showReel(window);
    QTest::keyClick(&window, Qt::Key_T, Qt::ControlModifier);
    QPointer<TrimDialog> dialog;
    ASSERT_TRUE(waitFor([&] { return (dialog = window.findChild<TrimDialog*>()); }));
    QTest::keyClicks(dialog->findChild<QLineEdit*>("in"), "1:12");
    QTest::keyClick(dialog->findChild<QLineEdit*>("in"), Qt::Key_Return);
    EXPECT_TRUE(becomes(window, {36, 72}));
    EXPECT_TRUE(waitFor([&] { return !dialog; }));
  });
}

TEST_F(WindowTrimTest, ATrimThatIsRefusedKeepsWhatWasTypedThoughAnotherEditIsChosen) {
  script += "edit create Other\nuser add BEN\n";
  play([](MainWindow& window) {
    showReel(window);
    const QString reel = keyOf(window, "Reel");
    QTest::keyClick(&window, Qt::Key_T, Qt::ControlModifier);
    QPointer<TrimDialog> dialog;
    ASSERT_TRUE(waitFor([&] { return (dialog = window.findChild<TrimDialog*>()); }));
    QTest::keyClicks(dialog->findChild<QLineEdit*>("in"), "1:12");
    window.link().run("edit give " + reel + " BEN");
    ASSERT_TRUE(waitFor([&] { return window.objects().find(reel)->owner == "BEN"; }));
    showReel(window, "Other");
    QTest::keyClick(dialog->findChild<QLineEdit*>("in"), Qt::Key_Return);
    ASSERT_TRUE(waitFor([&] { return !dialog && window.findChild<TrimDialog*>(); }));
    const TrimDialog& again = *window.findChild<TrimDialog*>();
    EXPECT_TRUE(again.findChild<QLabel*>("reason")->text().contains("may not change it"))
        << again.findChild<QLabel*>("reason")->text().toStdString();
    EXPECT_EQ(again.findChild<QLineEdit*>("in")->text(), "00:00:01:12");
  });
}

TEST_F(WindowTrimTest, WhatBelongsToAnotherIsNotTrimmedAndThatIsSaid) {
  play([this](MainWindow& window) {
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    ASSERT_TRUE(ben.command("project enter Harbour")["ok"].asBool());
    ASSERT_TRUE(ben.command("edit import " + file_)["ok"].asBool());
    QString theirs;
    ASSERT_TRUE(waitFor([&] {
      for (const ObjectRow& row : window.objects().rows(ObjectKind::eEdits)) {
        if (row.owner == "BEN") theirs = row.key;
      }
      return !theirs.isEmpty();
    }));
    window.objects().choose(ObjectKind::eEdits, theirs);
    TimelineView& view = window.detail().view();
    ASSERT_TRUE(waitFor([&] { return view.timeline() && view.timeline()->cookie == theirs; }));
    ASSERT_TRUE(waitFor(
        [&] { return window.objects().model(ObjectKind::eEdits).mayChange(theirs) == false; }));
    dragOut(window, -40);
    EXPECT_TRUE(window.messages().isVisible());
    EXPECT_NE(window.messages().text().indexOf("belongs to BEN"), -1)
        << window.messages().text().toStdString();
    EXPECT_EQ(first(window), std::pair(24L, 72L));
    window.messages().hide();
    view.setFocus();
    QTest::keyClick(&view, Qt::Key_Left, Qt::ShiftModifier);
    EXPECT_TRUE(waitFor([&] { return window.messages().isVisible(); }, 2000));
  });
}

}  // namespace

}  // namespace korvel
