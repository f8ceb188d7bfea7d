#include "ProjectShare/Messager.h"

#include <gtest/gtest.h>

#include "host/ui/GenIcon.h"
#include "host/ui/UifStd.h"
#include "station/ui/Desktop.h"
#include "tests/unit/ProjectShare/MessagerScene.h"

using namespace korvel;

namespace {

/// How often a widget that is drawn tells the screen so.
int drawings = 1;

/// The colours of a host that is not as dark as most.
const Palette kLight(Palette::eLight);

}  // namespace

extern "C" void __real__ZN4Glob4drawEv(Glob* widget);
extern "C" void __wrap__ZN4Glob4drawEv(Glob* widget) {
  for (int i = 0; i < drawings; ++i) __real__ZN4Glob4drawEv(widget);
}

// A reference and a pointer are the same to the linker.
extern "C" const Palette* __wrap__ZN6UifStd10getPaletteEv() { return &kLight; }

namespace {

using Lines = MessagerScene::Lines;

/// Draws the desktop whenever it is asked for the users, which happens while a panel is built.
class DrawingPermissions : public FakePermissions {
 public:
  explicit DrawingPermissions(Desktop& desktop) : desktop_(desktop) {}
  const Vector<Text>& getUserList() override {
    desktop_.draw();
    return FakePermissions::getUserList();
  }

 private:
  Desktop& desktop_;
};

class MessagerTest : public testing::Test {
 protected:
  void open() { ASSERT_TRUE(scene.hands.open()); }

  /// A panel as the host makes it from what it saved.
  std::unique_ptr<Messager> created(int restore, int sizeState) const {
    GlobCreationInfo info{"Messager", restore, sizeState, {700, 300}};
    return std::unique_ptr<Messager>(dynamic_cast<Messager*>(Messager::create(&info)));
  }

  MessagerScene scene;
};

TEST_F(MessagerTest, ItsTypeIsRegisteredUnderItsName) {
  EXPECT_EQ(ComponentTypes::instance().names().size(), 1u);
  EXPECT_EQ(ComponentTypes::instance().names()[0], "Messager");
  EXPECT_EQ(scene.panel()->idstring(), "Messager");
}

TEST_F(MessagerTest, ANewOneIsAnIconWithATooltip) {
  const auto panel = created(0, eExpandedState);
  EXPECT_EQ(panel->sizeState(), eIconState);
  EXPECT_EQ(panel->size(), (Size{48, 35}));
  EXPECT_EQ(panel->tooltip(), L"Messages");
  EXPECT_EQ(panel->icon().fileName(), "tool_messager_on.png");
  EXPECT_TRUE(panel->children().empty());
}

TEST_F(MessagerTest, OneSavedOpenReopensWithItsWidgetsWhereItWas) {
  const auto panel = created(1, eExpandedState);
  EXPECT_EQ(panel->sizeState(), eExpandedState);
  EXPECT_EQ(panel->rootRect(), (Rect{{700, 300}, {200, 400}}));
  EXPECT_EQ(panel->children().size(), 5u) << "three widgets and two boxes";
  EXPECT_TRUE(panel->tooltip().empty());
}

TEST_F(MessagerTest, OneSavedAsAnIconIsOne) {
  const auto panel = created(1, eIconState);
  EXPECT_EQ(panel->size(), (Size{48, 35}));
  EXPECT_EQ(panel->tooltip(), L"Messages");
  EXPECT_TRUE(panel->children().empty());
}

TEST_F(MessagerTest, OneWithoutCreationInformationIsAnIconThatOpens) {
  Messager panel;
  EXPECT_EQ(panel.sizeState(), eIconState);
  EXPECT_EQ(panel.calcSize(), (Size{200, 400}));
  panel.generateTool();
  EXPECT_EQ(panel.size(), (Size{200, 400}));
}

TEST_F(MessagerTest, TheOpenPanelIsLaidOutByItsNumbers) {
  open();
  const Messager& panel = *scene.panel();
  const double height = UifStd::getButtonHeight();
  const double gap = UifStd::getWidgetGap();
  const double inner = 200 - 2 * UifStd::getBorder().thickness;
  const XY corner = panel.userArea().position;
  EXPECT_EQ(panel.size(), (Size{200, 400}));
  EXPECT_EQ(panel.innerWidth(), inner);
  const auto* to = scene.child<TitleMenuButton>();
  EXPECT_EQ(to->position(), (XY{corner.x + 40, corner.y}));
  EXPECT_EQ(to->size(), (Size{inner - 40, height}));
  const auto* log = scene.child<ScrollableTextBoxBase>();
  EXPECT_EQ(log->position(), (XY{corner.x, corner.y + height + gap}));
  EXPECT_EQ(log->size(), (Size{inner, 140}));
  const auto* entry = scene.child<TitleTextBox>();
  EXPECT_EQ(entry->position(), (XY{corner.x, log->position().y + 140 + gap}));
  EXPECT_EQ(entry->size(), (Size{inner, height}));
}

TEST_F(MessagerTest, TheOpenPanelLooksLikeTheHostsPanels) {
  open();
  const Messager& panel = *scene.panel();
  EXPECT_EQ(panel.title(), L"Messages");
  EXPECT_EQ(panel.titleFont(), UifStd::getTitleFont());
  EXPECT_EQ(panel.border(), UifStd::getBorder());
  EXPECT_EQ(panel.standardWidgets(), 7u);
  EXPECT_EQ(panel.colour(), panel.palette().button());
  EXPECT_TRUE(panel.tooltip().empty());
  EXPECT_EQ(panel.palette(), kLight);
  EXPECT_EQ(scene.child<ScrollableTextBoxBase>()->palette(), kLight);
  EXPECT_EQ(scene.child<TitleMenuButton>()->label(), L"To");
  EXPECT_EQ(scene.child<TitleTextBox>()->textBox().prompt(), L"[ type here ]");
}

TEST_F(MessagerTest, RecipientsAreEverybodyThenTheUsersInOrderWithoutNobody) {
  scene.permissions->users = {L"ZOE", iPermissionsManager::kNoOwner, L"ANNA", L"", L"ZOE"};
  open();
  EXPECT_EQ(scene.recipients(), (Lines{"<All>", "ZOE", "ANNA", "", "ZOE"}));
}

TEST_F(MessagerTest, FiveThousandUsersAreAllOffered) {
  scene.permissions->users.clear();
  for (int i = 0; i < 5000; ++i)
    scene.permissions->users.push_back(wideText("USER" + std::to_string(i)));
  open();
  EXPECT_EQ(scene.recipients().size(), 5001u);
  ASSERT_TRUE(scene.hands.say("USER4999", "hi"));
  EXPECT_EQ(scene.host.network.sent.back(), wire("d|10|P0001|anna|USER4999|hi|"));
}

TEST_F(MessagerTest, WithoutUsersOrAPermissionsServiceEverybodyIsStillOffered) {
  scene.permissions->users.clear();
  open();
  EXPECT_EQ(scene.recipients(), Lines{"<All>"});
  scene.permissions.reset();
  ASSERT_TRUE(scene.hands.close());
  open();
  EXPECT_EQ(scene.recipients(), Lines{"<All>"});
}

TEST_F(MessagerTest, UsersAddedLaterAreOfferedAtTheNextOpening) {
  open();
  scene.permissions->addUser(L"CAROL");
  EXPECT_EQ(scene.recipients(), (Lines{"<All>", "ANNA", "BOB"}));
  ASSERT_TRUE(scene.hands.close());
  open();
  EXPECT_EQ(scene.recipients(), (Lines{"<All>", "ANNA", "BOB", "CAROL"}));
}

TEST_F(MessagerTest, CollapsingMakesAnIconCentredOnTheMouse) {
  open();
  scene.panel()->addStandardWidgets(StandardPanel::eSizeBox);
  Screen::instance().moveMouse({300, 200});
  scene.panel()->handleFlipSize();
  EXPECT_EQ(scene.panel()->rootRect(), (Rect{{276, 182.5}, {48, 35}}));
  EXPECT_EQ(scene.panel()->tooltip(), L"Messages");
  EXPECT_EQ(scene.panel()->standardWidgets(), 0u);
  EXPECT_TRUE(scene.panel()->children().empty());
}

TEST_F(MessagerTest, AskingForTheStateItHasChangesNothing) {
  open();
  scene.hand("d|10|P0001|bob|ANNA|hello|");
  const auto* log = scene.child<ScrollableTextBoxBase>();
  const auto updates = Screen::instance().updates();
  scene.panel()->setSizeState(eExpandedState);
  EXPECT_EQ(scene.child<ScrollableTextBoxBase>(), log);
  EXPECT_EQ(scene.lines(), Lines{"bob : hello"});
  EXPECT_EQ(Screen::instance().updates(), updates);
}

TEST_F(MessagerTest, AnIconAskedToBeAnIconStaysWhereItIs) {
  scene.panel()->setPosition({11, 12});
  Screen::instance().moveMouse({300, 200});
  const auto updates = Screen::instance().updates();
  scene.panel()->handleFlipSize();
  EXPECT_EQ(scene.panel()->position(), (XY{11, 12}));
  EXPECT_EQ(Screen::instance().updates(), updates);
}

TEST_F(MessagerTest, OpenedInTheToolboxItIsDroppedOnTheDesktopFirst) {
  Screen::instance().moveMouse({300, 200});
  Messager* const panel = scene.panel();
  ASSERT_EQ(panel->dragSource(), &scene.desktop.toolbox());
  panel->generateTool();
  EXPECT_EQ(panel->parent(), &scene.desktop);
  EXPECT_EQ(panel->dragSource(), nullptr);
  EXPECT_EQ(DragDropManager::dragged(), nullptr);
  EXPECT_EQ(panel->sizeState(), eExpandedState);
}

TEST_F(MessagerTest, EachChangeOfStateUpdatesTheScreenOnce) {
  open();
  auto updates = Screen::instance().updates();
  scene.panel()->handleFlipSize();
  EXPECT_EQ(Screen::instance().updates(), ++updates);
  scene.panel()->generateTool();
  EXPECT_EQ(Screen::instance().updates(), ++updates);
}

TEST_F(MessagerTest, WhatIsDrawnWhileAPanelIsBuiltUpdatesTheScreenOnceItIsBuilt) {
  scene.permissions.reset();
  scene.permissions = std::make_unique<DrawingPermissions>(scene.desktop);
  Messager panel;
  const auto updates = Screen::instance().updates();
  panel.setSizeState(eExpandedState);
  EXPECT_EQ(Screen::instance().updates(), updates + 1);
}

TEST_F(MessagerTest, AnIconOpensWhereTheHostPlacesAPanelOfItsSize) {
  Messager panel;
  panel.setPosition({500, 300});
  const XY centre{500 + panel.size().width / 2, 300 + panel.size().height / 2};
  panel.setSizeState(eExpandedState);
  EXPECT_EQ(panel.position(), (XY{centre.x - 100, centre.y - 200}));
}

TEST_F(MessagerTest, AConversationDoesNotSurviveCollapsing) {
  open();
  scene.hand("d|10|P0001|bob|ANNA|hello|");
  ASSERT_TRUE(scene.hands.close());
  open();
  EXPECT_EQ(scene.lines(), Lines{});
}

TEST_F(MessagerTest, AnUnknownStateOnlyAppliesThePositionAgain) {
  open();
  scene.panel()->setPosition({11, 12});
  const auto updates = Screen::instance().updates();
  scene.panel()->setSizeState(2);
  EXPECT_EQ(scene.panel()->sizeState(), eExpandedState);
  EXPECT_EQ(scene.panel()->rootRect(), (Rect{{11, 12}, {200, 400}}));
  EXPECT_EQ(Screen::instance().updates(), updates + 1);
}

TEST_F(MessagerTest, AnIconKeepsItsSizeAndAPanelTakesANewOne) {
  scene.panel()->resize(500, 600);
  EXPECT_EQ(scene.panel()->size(), (Size{48, 35}));
  open();
  scene.panel()->resize(500, 600);
  EXPECT_EQ(scene.panel()->size(), (Size{500, 600}));
}

TEST_F(MessagerTest, ItOffersNoMenu) {
  open();
  scene.panel()->addMenuItem(L"Paste", [] {});
  Event event;
  scene.panel()->reviewMenu(&event);
  EXPECT_TRUE(scene.panel()->menuItems().empty());
  scene.panel()->addMenuItem(L"Paste", [] {});
  scene.panel()->handleFlipSize();
  EXPECT_TRUE(scene.panel()->menuItems().empty());
}

TEST_F(MessagerTest, DrawingUpdatesTheScreenOnceHoweverMuchIsDrawn) {
  const auto updates = Screen::instance().updates();
  drawings = 3;
  scene.panel()->draw();
  drawings = 1;
  EXPECT_EQ(Screen::instance().updates(), updates + 1);
}

TEST_F(MessagerTest, AReloadedIconIsReadAgainAndDrawn) {
  const auto updates = Screen::instance().updates();
  scene.panel()->reInit(IconSet());
  scene.panel()->reloadIcon();
  EXPECT_TRUE(scene.panel()->icon().isValid());
  EXPECT_EQ(scene.panel()->icon().fileName(), "tool_messager_on.png");
  EXPECT_EQ(Screen::instance().updates(), updates + 2);
}

TEST_F(MessagerTest, PuttingItAwayAsksForTheToolboxToBeFilled) {
  open();
  scene.desktop.putAway(*scene.panel());
  ASSERT_NE(scene.panel(), nullptr);
  EXPECT_EQ(scene.panel()->dragSource(), &scene.desktop.toolbox());
  EXPECT_TRUE(scene.panel()->handlePoot());
}

TEST_F(MessagerTest, AMissingIconFileIsReportedAndThePanelWorks) {
  scene.host.configure("resources", "/nowhere");
  const auto panel = created(0, eIconState);
  EXPECT_FALSE(panel->icon().isValid());
  EXPECT_EQ(panel->size(), (Size{48, 35}));
  EXPECT_NE(scene.host.logLines.back().find("/nowhere/tool_messager_on"), std::string::npos);
  panel->generateTool();
  EXPECT_EQ(panel->size(), (Size{200, 400}));
}

}  // namespace
