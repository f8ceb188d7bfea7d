#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/ui/GenIcon.h"
#include "host/ui/GlobManager.h"
#include "station/base/StationSettings.h"
#include "station/ui/Desktop.h"
#include "tests/support/RecordedEvents.h"

namespace korvel {

/// A widget that keeps the texts and events it gets, and takes them if told to.
class RecordingGlob : public Glob {
 public:
  explicit RecordingGlob(const std::string& name = {}) : name_(name) {}

  std::vector<std::string> texts;
  std::vector<Event::eType> handled;
  enum eAnswer { eDecline, eTake } answer = eDecline;

  [[nodiscard]] LightweightString<char> idstring() const override { return name_.c_str(); }
  bool handleMessageEvent(const LightweightString<char>& text, Glob*) override {
    texts.push_back(text.str());
    return answer == eTake;
  }
  bool handleEvent(const Event& event) override {
    handled.push_back(event.type);
    return answer == eTake;
  }
  [[nodiscard]] bool takesFocus() const override { return true; }

 private:
  std::string name_;
};

/// A tool that opens to 200 by 100.
class TestTool : public GenIcon {
 public:
  explicit TestTool(const GlobCreationInfo& info) : GenIcon(IconSet(), info, {200, 100}) {
    if (sizeState() == eExpandedState) open();
  }
  static Glob* create(GlobCreationInfo* info) { return new TestTool(*info); }

  [[nodiscard]] LightweightString<char> idstring() const override { return "tool"; }
  void generateTool() override {
    DragDropManager::beginDrag(this);
    DragDropManager::drop();
    open();
  }
  void handleFlipSize() override {
    setSizeFlag(eIconState);
    removeStandardWidgets(39, true);
    StandardPanel::resize(48, 35);
  }
  bool handlePoot() override {
    requestToolboxRepopulate();
    return true;
  }

 private:
  void open() {
    setSizeFlag(eExpandedState);
    setPosition(getMaximisedPos(calcSize()));
    setBorder({4});
    addStandardWidgets(7);
    StandardPanel::resize(200, 100);
  }
};

/// A desktop with one type of tool.
class UiScene {
 public:
  UiScene() {
    installSettings(StationSettings{});
    GlobManager::registerUiComponentType("tool", &TestTool::create);
  }

  [[nodiscard]] TestTool* tool() const {
    return dynamic_cast<TestTool*>(GlobManager::find("tool"));
  }

  bool press(const XY& place, Event::eButton button = Event::eLeftButton) {
    Event event;
    event.type = Event::eMousePress;
    event.position = place;
    event.button = button;
    return desktop.dispatch(event);
  }
  bool press(const Glob& widget) {
    const Rect rect = widget.rootRect();
    return press({rect.position.x + rect.size.width / 2, rect.position.y + rect.size.height / 2});
  }
  bool key(Event::eKey which) {
    Event event;
    event.type = Event::eKeyPress;
    event.key = which;
    return desktop.dispatch(event);
  }
  bool type(const wchar_t* text) {
    Event event;
    event.type = Event::eTextInput;
    event.text = text;
    return desktop.dispatch(event);
  }

  RecordedEvents events;
  Desktop desktop;
};

}  // namespace korvel
