#include "host/ui/Glob.h"

#include <gtest/gtest.h>

#include <limits>

#include "host/ui/Glib.h"
#include "station/ui/Desktop.h"
#include "tests/unit/station/ui/UiScene.h"

using namespace korvel;

namespace {

using Texts = std::vector<std::string>;

std::unique_ptr<RecordingGlob> sized(double width, double height) {
  auto glob = std::make_unique<RecordingGlob>();
  glob->resize(width, height);
  return glob;
}

TEST(Glob, ATopRightChildStaysInTheCorner) {
  Glob parent;
  parent.resize(100, 50);
  const Glob* child = parent.addChild(sized(30, 10), Glob::UserTopRight(5, 2));
  EXPECT_EQ(child->position(), (XY{65, 2}));
  parent.resize(200, 50);
  EXPECT_EQ(child->position(), (XY{165, 2}));
}

TEST(Glob, AChildBelowFollowsItsSiblingWithAGapAndRightEdgesInLine) {
  Glob parent;
  parent.resize(100, 50);
  Glob* upper = parent.addChild(sized(30, 10), Glob::UserTopRight(0, 0));
  const Glob* lower = parent.addChild(sized(60, 10), Glob::Below(upper, 4));
  EXPECT_EQ(lower->position(), (XY{40, 14}));
  upper->resize(30, 20);
  parent.reshape();
  EXPECT_EQ(lower->position(), (XY{40, 24}));
}

TEST(Glob, RootPositionsAddUp) {
  Glob root;
  Glob* child = root.addChild(sized(10, 10));
  Glob* grandchild = child->addChild(sized(1, 1));
  grandchild->setPosition({3, 4});
  child->setPosition({10, 20});
  root.setupRootPos();
  EXPECT_EQ(grandchild->rootRect(), (Rect{{13, 24}, {1, 1}}));
}

TEST(Glob, ASizeThatIsNoneCountsAsZero) {
  Glob glob;
  for (const double wish :
       {-1.0, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
    glob.resize(wish, 7);
    EXPECT_EQ(glob.size(), (Size{0, 7})) << wish;
  }
}

TEST(Glob, ReshapeAndDrawKeepsThePositionForItsValueAndMovesForAnyOther) {
  Glob glob;
  glob.setPosition({5, 6});
  glob.reshapeAndDraw({-1234, -1234});
  EXPECT_EQ(glob.rootRect().position, (XY{5, 6}));
  glob.reshapeAndDraw({-1234, 0});
  EXPECT_EQ(glob.rootRect().position, (XY{-1234, 0}));
}

TEST(Glob, DrawingReachesTheScreenOnceWhenTheLastDeferrerGoes) {
  Glob glob;
  const auto before = Screen::instance().updates();
  {
    const Glib::UpdateDeferrer outer;
    {
      const Glib::UpdateDeferrer inner;
      glob.draw();
      glob.draw();
    }
    EXPECT_EQ(Screen::instance().updates(), before);
  }
  EXPECT_EQ(Screen::instance().updates(), before + 1);
  glob.draw();
  EXPECT_EQ(Screen::instance().updates(), before + 2);
}

TEST(Glob, ATextGoesUpUntilItIsTaken) {
  UiScene scene;
  auto* parent = scene.desktop.addChild(std::make_unique<RecordingGlob>());
  auto* child = parent->addChild(std::make_unique<RecordingGlob>());
  parent->answer = RecordingGlob::eTake;
  Glob::sendMsg(child, "one", child);
  EXPECT_EQ(child->texts, Texts{"one"});
  EXPECT_EQ(parent->texts, Texts{"one"});
  EXPECT_EQ(scene.events.notifications, Texts{});
}

TEST(Glob, ATextThatNobodyTakesBecomesANotification) {
  UiScene scene;
  auto* child = scene.desktop.addChild(std::make_unique<RecordingGlob>());
  Glob::sendMsg(child, "hello", nullptr);
  RecordingGlob loose;
  Glob::sendMsg(&loose, "anybody?", nullptr);
  Glob::sendMsg(nullptr, "to nobody", nullptr);
  EXPECT_EQ(scene.events.notifications, (Texts{"hello", "anybody?"}));
}

TEST(Glob, AHandlerMayDestroyItsParents) {
  struct Destroyer : Glob {
    Glob* root = nullptr;
    bool handleMessageEvent(const LightweightString<char>&, Glob*) override {
      root->destroyChildren();
      return false;
    }
  };
  UiScene scene;
  Glob root;
  Glob* parent = root.addChild(std::make_unique<RecordingGlob>());
  auto* child = parent->addChild(std::make_unique<Destroyer>());
  child->root = &root;
  Glob::sendMsg(child, "boom", nullptr);
  EXPECT_TRUE(root.children().empty());
  EXPECT_EQ(scene.events.notifications, Texts{"boom"});
}

TEST(Glob, FindGivesTheOldestOfItsNameAndNullForAStranger) {
  EXPECT_EQ(GlobManager::find("a"), nullptr);
  const RecordingGlob first("a");
  {
    const RecordingGlob second("a");
    EXPECT_EQ(GlobManager::find("a"), &first);
  }
  EXPECT_EQ(GlobManager::find("a"), &first);
  EXPECT_EQ(GlobManager::find("b"), nullptr);
}

TEST(Glob, AChildGivenBackBelongsToTheCaller) {
  Glob parent;
  Glob* child = parent.addChild(sized(1, 1));
  EXPECT_EQ(parent.takeChild(&parent), nullptr);
  const std::unique_ptr<Glob> taken = parent.takeChild(child);
  EXPECT_EQ(taken.get(), child);
  EXPECT_EQ(taken->parent(), nullptr);
  EXPECT_TRUE(parent.children().empty());
}

TEST(Glob, ADestroyedWidgetHasNoFocusAndIsNotFound) {
  auto glob = std::make_unique<RecordingGlob>("a");
  glob->setFocus();
  EXPECT_TRUE(glob->hasFocus());
  glob.reset();
  EXPECT_EQ(Screen::instance().focus(), nullptr);
  EXPECT_EQ(GlobManager::find("a"), nullptr);
}

}  // namespace
