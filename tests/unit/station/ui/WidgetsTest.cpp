#include <gtest/gtest.h>

#include "host/ui/MenuGlob.h"
#include "host/ui/ResourceStrings.h"
#include "host/ui/TextBox.h"
#include "tests/unit/station/ui/UiScene.h"

using namespace korvel;

namespace {

using Texts = std::vector<std::string>;

class WidgetsTest : public testing::Test {
 protected:
  template <typename Widget, typename... Arguments>
  Widget* add(const Arguments&... arguments) {
    Widget* widget = scene.desktop.addChild(std::make_unique<Widget>(arguments...));
    widget->reshapeAndDraw({500, 500});
    return widget;
  }

  UiScene scene;
};

TEST_F(WidgetsTest, TypingGoesInAtTheCaret) {
  auto* box = add<TitleTextBox>(L"", 100.0, 20.0);
  scene.press(*box);
  scene.type(L"held");
  scene.key(Event::eLeft);
  scene.type(L"lo worl");
  EXPECT_EQ(box->getText(), L"hello world");
  scene.key(Event::eHome);
  scene.key(Event::eDelete);
  scene.key(Event::eEnd);
  scene.key(Event::eBackspace);
  EXPECT_EQ(box->getText(), L"ello worl");
}

TEST_F(WidgetsTest, KeysAtTheEndsOfATextDoNothing) {
  auto* box = add<TitleTextBox>(L"", 100.0, 20.0);
  scene.press(*box);
  for (const Event::eKey key : {Event::eLeft, Event::eRight, Event::eBackspace, Event::eDelete}) {
    EXPECT_TRUE(scene.key(key));
    EXPECT_TRUE(box->getText().empty());
    EXPECT_EQ(box->textBox().caret(), 0u);
  }
}

TEST_F(WidgetsTest, LineEndsBecomeOneBlankEach) {
  auto* box = add<TitleTextBox>(L"", 100.0, 20.0);
  scene.press(*box);
  scene.type(L"a\r\nb\nc\rd");
  EXPECT_EQ(box->getText(), L"a b c d");
}

TEST_F(WidgetsTest, APromptIsNoPartOfTheText) {
  auto* box = add<TitleTextBox>(L"", 100.0, 20.0);
  box->textBox().setPrompt(L"[ type here ]");
  EXPECT_TRUE(box->getText().empty());
  EXPECT_EQ(box->textBox().prompt(), L"[ type here ]");
}

TEST_F(WidgetsTest, EachCallbackIsSentToItsHandler) {
  RecordingGlob handler;
  handler.answer = RecordingGlob::eTake;
  auto* box = add<TitleTextBox>(L"", 100.0, 20.0);
  box->requestCallback("changed", &handler, TextBox::eTextChanged);
  box->requestCallback("escape", &handler, TextBox::eEscapePressed);
  box->requestCallback("other", &handler, TextBox::eReturnPressed);
  box->requestCallback("return", &handler, 3);
  box->requestCallback("never", &handler, 17);
  scene.press(*box);
  scene.type(L"x");
  scene.key(Event::eEscape);
  scene.key(Event::eReturn);
  box->setText(L"set");
  EXPECT_EQ(handler.texts, (Texts{"changed", "escape", "return"}));
}

TEST_F(WidgetsTest, ATitleTakesRoomFromTheBox) {
  const auto* plain = add<TitleTextBox>(L"", 100.0, 20.0);
  EXPECT_EQ(plain->textBox().rootRect(), (Rect{{500, 500}, {100, 20}}));
  const auto* titled = add<TitleTextBox>(L"Name", 100.0, 20.0);
  EXPECT_LT(titled->textBox().size().width, 90);
  EXPECT_EQ(titled->textBox().position().x + titled->textBox().size().width, 100);
}

TEST_F(WidgetsTest, AMenuSelectsItsFirstItemAndWhatIsClicked) {
  auto* menu =
      add<TitleMenuButton>(L"To", TitleMenuButton::Items{L"a", L"b", L"b", L""}, 100.0, 20.0);
  EXPECT_EQ(menu->getSelectedItemName(), L"a");
  EXPECT_TRUE(scene.press(*menu));
  EXPECT_TRUE(menu->isMenuOpen());
  EXPECT_TRUE(scene.press({550, 565}));
  EXPECT_EQ(menu->selectedItem(), 2u);
  EXPECT_FALSE(menu->isMenuOpen());
  scene.press(*menu);
  EXPECT_FALSE(scene.press({700, 700})) << "a click elsewhere closes and chooses nothing";
  EXPECT_FALSE(menu->isMenuOpen());
  EXPECT_EQ(menu->selectedItem(), 2u);
}

TEST_F(WidgetsTest, AMenuIsDrivenByKeys) {
  auto* menu = add<TitleMenuButton>(L"To", TitleMenuButton::Items{L"a", L"b", L"c"}, 100.0, 20.0);
  menu->setFocus();
  for (const Event::eKey key : {Event::eDown, Event::eDown, Event::eReturn}) scene.key(key);
  EXPECT_EQ(menu->getSelectedItemName(), L"b");
  for (const Event::eKey key : {Event::eReturn, Event::eEnd, Event::eDown, Event::eEscape})
    scene.key(key);
  EXPECT_EQ(menu->getSelectedItemName(), L"b");
  for (const Event::eKey key : {Event::eReturn, Event::eHome, Event::eUp, Event::eReturn})
    scene.key(key);
  EXPECT_EQ(menu->getSelectedItemName(), L"a");
}

TEST_F(WidgetsTest, AnEmptyMenuHasNoItemAndDoesNotOpen) {
  auto* menu = add<TitleMenuButton>(L"To", TitleMenuButton::Items{}, 100.0, 20.0);
  scene.press(*menu);
  menu->selectItem(0);
  EXPECT_FALSE(menu->isMenuOpen());
  EXPECT_EQ(menu->selectedItem(), TitleMenuButton::kNoItem);
  EXPECT_TRUE(menu->getSelectedItemName().empty());
}

TEST_F(WidgetsTest, ALogFollowsItsEndUnlessSomebodyReadsFurtherUp) {
  auto* box = add<ScrollableTextBox<MultiLineTextBox>>(100.0, 48.0);
  ASSERT_EQ(box->visibleLines(), 3u);
  ScrollableTextBoxBase::Lines lines(5, L"x");
  box->setStrings(lines);
  EXPECT_EQ(box->firstVisibleLine(), 2u);
  scene.press(*box);
  scene.key(Event::eUp);
  lines.push_back(L"new");
  box->setStrings(lines);
  EXPECT_EQ(box->firstVisibleLine(), 1u);
  scene.key(Event::eEnd);
  EXPECT_EQ(box->firstVisibleLine(), 3u);
  box->setStrings({});
  EXPECT_EQ(box->firstVisibleLine(), 0u);
}

TEST_F(WidgetsTest, ContextMenusAreShownWhenThereIsSomethingInThem) {
  auto* glob = add<MenuGlob>();
  glob->resize(20, 20);
  EXPECT_FALSE(scene.press({505, 505}, Event::eRightButton));
  int runs = 0;
  glob->addMenuItem(L"Clear", [&] {
    ++runs;
    glob->clearMenu();
  });
  EXPECT_TRUE(scene.press({505, 505}, Event::eRightButton));
  EXPECT_TRUE(glob->isMenuShown());
  glob->chooseMenuItem(1);
  glob->chooseMenuItem(0);
  glob->chooseMenuItem(0);
  EXPECT_EQ(runs, 1);
}

TEST_F(WidgetsTest, APanelHoldsItsContentInsideBorderAndTitle) {
  auto* panel = add<StandardPanel>();
  panel->setBorder({4});
  panel->addStandardWidgets(7);
  panel->resize(200, 400);
  EXPECT_EQ(panel->userArea(), (Rect{{4, 24}, {192, 372}}));
  auto child = std::make_unique<RecordingGlob>();
  child->resize(152, 20);
  const Glob* content = panel->addChild(std::move(child), Glob::UserTopRight(0, 0));
  panel->resize(300, 400);
  EXPECT_EQ(content->size(), (Size{252, 20})) << "the distances to both sides are kept";
  EXPECT_EQ(content->position(), (XY{44, 24}));
  panel->resize(1, 1);
  EXPECT_EQ(panel->size(), (Size{100, 60}));
  panel->removeStandardWidgets(7, true);
  EXPECT_TRUE(panel->children().empty());
}

TEST_F(WidgetsTest, RemovingStandardWidgetsCanSpareTheContent) {
  auto* panel = add<StandardPanel>();
  panel->addStandardWidgets(7);
  panel->addStandardWidgets(7);
  panel->addChild(std::make_unique<RecordingGlob>());
  EXPECT_EQ(panel->children().size(), 3u);
  panel->removeStandardWidgets(39, false);
  EXPECT_EQ(panel->children().size(), 1u);
  EXPECT_EQ(panel->standardWidgets(), 0u);
}

TEST_F(WidgetsTest, ResourceTextsHaveNumbers) {
  EXPECT_EQ(resourceStrW(12027), L"Messages");
  EXPECT_EQ(resourceStrW(12028), L"To");
  EXPECT_TRUE(resourceStrW(1).empty());
  EXPECT_TRUE(scene.events.loggedThat("number 1"));
}

}  // namespace
