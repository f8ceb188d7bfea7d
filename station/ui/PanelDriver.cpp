#include "station/ui/PanelDriver.h"

#include <algorithm>

#include "station/base/Strings.h"
#include "station/ui/Desktop.h"

namespace korvel {

namespace {

Error notOpen() {
  return {ErrorCode::eUsage, "The message panel is closed: open it with \"panel open\"", ""};
}

template <typename Widget>
Widget* childOf(const Glob& panel) {
  for (const auto& child : panel.children()) {
    if (auto* widget = dynamic_cast<Widget*>(child.get())) return widget;
  }
  return nullptr;
}

const PanelBox* collapseBoxOf(const Glob& panel) {
  for (const auto& child : panel.children()) {
    const auto* box = dynamic_cast<const PanelBox*>(child.get());
    if (box && box->which() == StandardPanel::eCollapseBox) return box;
  }
  return nullptr;
}

/// The item that a user means: of exactly this text, else of this text in upper case.
std::size_t itemFor(const TitleMenuButton& menu, LightweightString<wchar_t> text) {
  const auto& items = menu.items();
  auto found = std::ranges::find(items, text);
  if (found == items.end()) {
    Kv::toUpper(text);
    found = std::ranges::find(items, text);
  }
  if (found == items.end()) return TitleMenuButton::kNoItem;
  return static_cast<std::size_t>(found - items.begin());
}

/// A text that may hold bytes that are no UTF-8, as a script can read it: each such byte is shown
/// as the replacement character.
std::string readableText(const LightweightString<wchar_t>& text) {
  std::wstring readable = text.str();
  std::ranges::replace_if(
      readable, [](wchar_t letter) { return letter >= 0xDC00 && letter <= 0xDFFF; },
      wchar_t{0xFFFD});
  return utf8Text(LightweightString<wchar_t>(std::wstring_view(readable)));
}

JsonValue textList(const std::vector<LightweightString<wchar_t>>& texts) {
  JsonValue list = JsonValue::array();
  for (const auto& text : texts) list.append(readableText(text));
  return list;
}

JsonValue rectValue(const Rect& rect) {
  return JsonValue::object({{"x", rect.position.x},
                            {"y", rect.position.y},
                            {"width", rect.size.width},
                            {"height", rect.size.height}});
}

}  // namespace

std::vector<std::string> utf8Lines(const ScrollableTextBoxBase& box) {
  std::vector<std::string> lines;
  lines.reserve(box.getStrings().size());
  for (const auto& line : box.getStrings()) lines.push_back(utf8Text(line));
  return lines;
}

Result<GenIcon*> PanelDriver::findPanel() const {
  auto* panel = dynamic_cast<GenIcon*>(GlobManager::find(kMessagePanelId));
  if (panel) return panel;
  return Error{ErrorCode::eNotFound,
               "This station has no message panel: its plug-in did not register one", ""};
}

Result<PanelDriver::Widgets> PanelDriver::findOpenPanel() const {
  const Result<GenIcon*> panel = findPanel();
  if (!panel) return panel.error();
  const Widgets found{*panel, childOf<TitleMenuButton>(**panel),
                      childOf<ScrollableTextBoxBase>(**panel), childOf<TitleTextBox>(**panel)};
  if (!found.recipient || !found.log || !found.entry) return notOpen();
  return found;
}

void PanelDriver::click(const Glob& widget) {
  const Rect rect = widget.rootRect();
  Event event;
  event.position = {rect.position.x + rect.size.width / 2, rect.position.y + rect.size.height / 2};
  event.button = Event::eLeftButton;
  event.type = Event::eMousePress;
  desktop_.dispatch(event);
  event.type = Event::eMouseRelease;
  desktop_.dispatch(event);
}

void PanelDriver::press(Event::eKey key) {
  Event event;
  event.type = Event::eKeyPress;
  event.position = Glob::getMousePos();
  event.key = key;
  desktop_.dispatch(event);
}

Result<void> PanelDriver::open() {
  const Result<GenIcon*> panel = findPanel();
  if (!panel) return panel.error();
  if ((*panel)->sizeState() == eIconState) click(**panel);
  const Result<Widgets> opened = findOpenPanel();
  return opened ? Result<void>() : opened.error();
}

Result<void> PanelDriver::close() {
  const Result<GenIcon*> panel = findPanel();
  if (!panel) return panel.error();
  if (const PanelBox* box = collapseBoxOf(**panel)) click(*box);
  return {};
}

Result<void> PanelDriver::reopen() {
  const Result<Widgets> before = findOpenPanel();
  if (!before) return open();
  const Vector<LightweightString<wchar_t>> lines = before->log->getStrings();
  if (auto closed = close(); !closed) return closed;
  if (auto opened = open(); !opened) return opened;
  const Result<Widgets> again = findOpenPanel();
  if (!again) return again.error();
  again->log->setStrings(lines);
  return {};
}

Result<void> PanelDriver::chooseRecipient(const std::string& user) {
  const Result<Widgets> widgets = findOpenPanel();
  if (!widgets) return widgets.error();
  TitleMenuButton& menu = *widgets->recipient;
  const std::size_t item = itemFor(menu, wideText(user));
  if (item == TitleMenuButton::kNoItem) {
    return Error{ErrorCode::eNotFound,
                 "There is no user " + inQuotes(user) +
                     " to write to: \"users\" lists the known, \"user add NAME\" adds one. "
                     "Who was added since the panel was opened is in its menu after \"panel "
                     "close\".",
                 ""};
  }
  menu.selectItem(item);
  return {};
}

void PanelDriver::focusEntry(const Widgets& widgets) {
  TextBox& box = widgets.entry->textBox();
  click(box);
  // Another widget may lie over the box and take the click. The keyboard reaches the box all the
  // same.
  if (!box.hasFocus()) box.setFocus();
}

Result<void> PanelDriver::type(const std::string& text) {
  const Result<Widgets> widgets = findOpenPanel();
  if (!widgets) return widgets.error();
  focusEntry(*widgets);
  Event event;
  event.type = Event::eTextInput;
  event.position = Glob::getMousePos();
  event.text = wideText(text);
  desktop_.dispatch(event);
  return {};
}

Result<void> PanelDriver::pressReturn() {
  const Result<Widgets> widgets = findOpenPanel();
  if (!widgets) return widgets.error();
  focusEntry(*widgets);
  press(Event::eReturn);
  return {};
}

Result<void> PanelDriver::say(const std::string& user, const std::string& text) {
  if (Result<void> opened = open(); !opened) return opened;
  if (Result<void> chosen = chooseRecipient(user); !chosen) return chosen;
  const Result<Widgets> widgets = findOpenPanel();
  if (!widgets) return widgets.error();
  // What a user began to type must not become part of this text.
  widgets->entry->setText({});
  if (Result<void> typed = type(text); !typed) return typed;
  return pressReturn();
}

Result<std::vector<std::string>> PanelDriver::lines() const {
  const Result<Widgets> widgets = findOpenPanel();
  if (!widgets) return widgets.error();
  return utf8Lines(*widgets->log);
}

Result<JsonValue> PanelDriver::show() const {
  const Result<GenIcon*> panel = findPanel();
  if (!panel) return panel.error();
  JsonValue shown = JsonValue::object();
  const Result<Widgets> widgets = findOpenPanel();
  shown.set("open", static_cast<bool>(widgets));
  shown.set("in_toolbox", (*panel)->dragSource() != nullptr);
  shown.set("icon", (*panel)->icon().fileName().str());
  shown.set("tooltip", utf8Text((*panel)->tooltip()));
  shown.set("rect", rectValue((*panel)->rootRect()));
  if (!widgets) return shown;
  shown.set("title", utf8Text((*panel)->title()));
  shown.set("recipient_label", utf8Text(widgets->recipient->label()));
  shown.set("recipients", textList(widgets->recipient->items()));
  shown.set("recipient", readableText(widgets->recipient->getSelectedItemName()));
  shown.set("lines", textList(widgets->log->getStrings()));
  shown.set("entry", readableText(widgets->entry->getText()));
  shown.set("prompt", utf8Text(widgets->entry->textBox().prompt()));
  return shown;
}

}  // namespace korvel
