#include <algorithm>

#include "host/ui/GlobManager.h"
#include "host/ui/TextBox.h"
#include "station/base/HostParts.h"
#include "station/ui/Desktop.h"
#include "station/wire/MessageTable.h"

using namespace korvel;

namespace korvel {

// How texts find their widget. A source of its own, so that a test can put its own register of
// widgets and its own way of sending in place of these.

namespace {

bool isInToolbox(const Glob* widget) {
  for (; widget; widget = widget->parent()) {
    if (dynamic_cast<const Toolbox*>(widget)) return true;
  }
  return false;
}

/// Whether the text of another station's message equals what a box of this screen sends for a key.
/// It is delivered as a text: a handler would take it for the key.
bool isForgedCallback(const LightweightString<char>& text) {
  const ReceivedMessage* const message = currentMessage();
  if (!message || text.view() != message->fields.data) return false;
  return std::ranges::any_of(Screen::instance().widgets(), [&text](const Glob* widget) {
    const auto* const box = dynamic_cast<const TextBox*>(widget);
    return box && box->sendsCallback(text);
  });
}

}  // namespace

}  // namespace korvel

void Glob::sendMsg(Glob* target, const LightweightString<char>& text, Glob* sender) {
  if (!target) return;
  if (isForgedCallback(text)) {
    if (Desktop* const desktop = hostParts().desktop) desktop->handleMessageEvent(text, sender);
    return;
  }
  Glob* last = nullptr;
  for (Glob* widget = target; widget;) {
    last = widget;
    Glob* next = widget->parent();
    if (widget->handleMessageEvent(text, sender)) return;
    widget = Screen::instance().isAlive(next) ? next : nullptr;
  }
  // A widget outside of the desktop has no parent that leads there. Its texts must not be lost.
  Desktop* desktop = hostParts().desktop;
  if (desktop && last != desktop) desktop->handleMessageEvent(text, sender);
}

Glob* GlobManager::find(const LightweightString<char>& id) {
  Glob* inToolbox = nullptr;
  for (Glob* widget : Screen::instance().widgets()) {
    if (widget->idstring() != id) continue;
    // A tool on the desktop goes before its icon in the toolbox, which has the same name.
    if (!isInToolbox(widget)) return widget;
    if (!inToolbox) inToolbox = widget;
  }
  return inToolbox;
}
