#include "station/ui/Desktop.h"

#include <gtest/gtest.h>

#include "station/base/Events.h"
#include "tests/unit/station/ui/UiScene.h"

using namespace korvel;

namespace {

using Texts = std::vector<std::string>;

Glob* nullFactory(GlobCreationInfo*) { return nullptr; }
Glob* plainFactory(GlobCreationInfo*) { return new RecordingGlob("plain"); }

const PanelBox* boxOf(const Glob& panel, StandardPanel::eStandardWidget which) {
  for (const auto& child : panel.children()) {
    const auto* box = dynamic_cast<const PanelBox*>(child.get());
    if (box && box->which() == which) return box;
  }
  return nullptr;
}

class DesktopTest : public testing::Test {
 protected:
  UiScene scene;
};

TEST_F(DesktopTest, TheToolboxOffersEveryTypeOnce) {
  ASSERT_NE(scene.tool(), nullptr);
  EXPECT_EQ(scene.tool()->dragSource(), &scene.desktop.toolbox());
  EXPECT_EQ(scene.tool()->rootRect(), (Rect{{6, 6}, {48, 35}}));
  scene.desktop.toolbox().populate();
  EXPECT_EQ(scene.desktop.toolbox().children().size(), 1u);
}

TEST_F(DesktopTest, AClickOnAnIconInTheToolboxTakesTheToolToTheDesktop) {
  TestTool* tool = scene.tool();
  EXPECT_TRUE(scene.press({10, 10}));
  EXPECT_EQ(tool->parent(), &scene.desktop);
  EXPECT_EQ(tool->dragSource(), nullptr);
  EXPECT_EQ(tool->sizeState(), eExpandedState);
  EXPECT_TRUE(scene.desktop.toolbox().children().empty());
  EXPECT_EQ(tool->rootRect(), (Rect{{0, 0}, {200, 100}})) << "moved onto the desktop";
}

TEST_F(DesktopTest, TheCollapseBoxMakesAnIconAndReturnOpensItAgain) {
  scene.press({10, 10});
  TestTool* tool = scene.tool();
  EXPECT_TRUE(scene.press(*boxOf(*tool, StandardPanel::eCollapseBox)));
  EXPECT_EQ(tool->sizeState(), eIconState);
  EXPECT_TRUE(tool->children().empty());
  tool->setFocus();
  EXPECT_TRUE(scene.key(Event::eReturn));
  EXPECT_EQ(tool->sizeState(), eExpandedState);
}

TEST_F(DesktopTest, TheCloseBoxPutsTheToolBackIntoTheToolbox) {
  scene.press({10, 10});
  EXPECT_TRUE(scene.press(*boxOf(*scene.tool(), StandardPanel::eCloseBox)));
  EXPECT_EQ(scene.desktop.children().size(), 1u) << "the toolbox alone";
  ASSERT_NE(scene.tool(), nullptr);
  EXPECT_EQ(scene.tool()->dragSource(), &scene.desktop.toolbox());
}

TEST_F(DesktopTest, FindPrefersTheDesktopToTheToolbox) {
  RecordingGlob onDesktop("tool");
  EXPECT_EQ(GlobManager::find("tool"), &onDesktop);
}

TEST_F(DesktopTest, ToolsAreRestoredAsTheyWere) {
  scene.desktop.restoreTools({{"tool", eExpandedState, {300, 400}}});
  TestTool* tool = scene.tool();
  EXPECT_EQ(tool->rootRect(), (Rect{{300, 400}, {200, 100}}));
  EXPECT_TRUE(scene.desktop.toolbox().children().empty());
  const auto saved = scene.desktop.savedTools();
  ASSERT_EQ(saved.size(), 1u);
  EXPECT_EQ(saved[0].typeName, "tool");
  EXPECT_EQ(saved[0].sizeState, eExpandedState);
  EXPECT_EQ(saved[0].position, (XY{300, 400}));
}

TEST_F(DesktopTest, ARestoredIconStaysOne) {
  scene.desktop.restoreTools({{"tool", eIconState, {30, 40}}});
  EXPECT_EQ(scene.tool()->rootRect(), (Rect{{30, 40}, {48, 35}}));
}

TEST_F(DesktopTest, WhatCannotBeMadeIsReportedAndLeftOut) {
  GlobManager::registerUiComponentType("none", &nullFactory);
  GlobManager::registerUiComponentType("plain", &plainFactory);
  scene.desktop.restoreTools({{"unknown", eExpandedState, {}}});
  for (const char* name : {"none", "plain", "unknown"}) {
    EXPECT_TRUE(scene.events.loggedThat("\"" + std::string(name) + "\"")) << name;
  }
  EXPECT_EQ(scene.desktop.toolbox().children().size(), 1u);
}

TEST_F(DesktopTest, ClosingAllToolsForgetsTheirTypes) {
  scene.press({10, 10});
  scene.desktop.closeTools();
  EXPECT_EQ(scene.tool(), nullptr);
  EXPECT_TRUE(ComponentTypes::instance().names().empty());
  scene.desktop.toolbox().populate();
  EXPECT_EQ(scene.tool(), nullptr);
}

TEST_F(DesktopTest, MouseEventsGoToTheTopmostWidgetAndUpwards) {
  auto* lower = scene.desktop.addChild(std::make_unique<RecordingGlob>());
  auto* upper = scene.desktop.addChild(std::make_unique<RecordingGlob>());
  auto* inner = upper->addChild(std::make_unique<RecordingGlob>());
  for (Glob* each : {static_cast<Glob*>(lower), static_cast<Glob*>(upper)}) {
    each->resize(50, 50);
    each->reshapeAndDraw({500, 500});
  }
  inner->resize(10, 10);
  EXPECT_FALSE(scene.press({505, 505}));
  EXPECT_EQ(inner->handled.size(), 1u);
  EXPECT_EQ(upper->handled.size(), 1u);
  EXPECT_EQ(lower->handled.size(), 0u);
  EXPECT_TRUE(inner->hasFocus());
}

TEST_F(DesktopTest, TabMovesTheKeyboardAlongAndAround) {
  auto* first = scene.desktop.addChild(std::make_unique<RecordingGlob>());
  auto* second = scene.desktop.addChild(std::make_unique<RecordingGlob>());
  first->setFocus();
  EXPECT_TRUE(scene.key(Event::eTab));
  EXPECT_TRUE(second->hasFocus());
  EXPECT_TRUE(scene.key(Event::eTab));
  EXPECT_TRUE(scene.tool()->hasFocus());
  EXPECT_FALSE(scene.type(L"x"));
}

TEST_F(DesktopTest, NotificationsOutliveTheDesktopAndAreBounded) {
  for (std::size_t i = 0; i < kMostNotifications + 5; ++i) notifyUser(std::to_string(i));
  {
    Desktop another;
    Glob::sendMsg(&another, "\xFFlast", nullptr);
  }
  EXPECT_EQ(notifications().size(), kMostNotifications);
  EXPECT_EQ(notifications().front().text, "6");
  EXPECT_EQ(notifications().back().text, "\xFFlast");
  EXPECT_EQ(notifications().back().timeText().size(), std::string("2024-05-31 12:00:00").size());
}

}  // namespace
