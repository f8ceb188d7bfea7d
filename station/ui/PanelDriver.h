#pragma once

#include <string>
#include <vector>

#include "host/ui/GenIcon.h"
#include "host/ui/GlobManager.h"
#include "host/ui/MenuGlob.h"
#include "host/ui/TextBox.h"
#include "station/base/Json.h"
#include "station/base/Result.h"
#include "station/ui/Desktop.h"

namespace korvel {

/// The name of the message panel's type, and of the panel.
inline constexpr const char* kMessagePanelId = "Messager";

/// The lines of a box as UTF-8.
std::vector<std::string> utf8Lines(const ScrollableTextBoxBase& box);

/// Drives the message panel as a user's hands would: with the mouse and the keyboard, through the
/// desktop. Knows the panel by its widgets alone. Texts are UTF-8; bytes that are not go through
/// unchanged. Host thread.
class PanelDriver {
 public:
  explicit PanelDriver(Desktop& desktop) : desktop_(desktop) {}

  /// Opens the panel from the desktop's icon or out of the toolbox; nothing when it is open.
  Result<void> open();

  /// Makes the panel an icon; nothing when it is one.
  Result<void> close();

  /// Closes the panel and opens it again, so that its menu offers who was added since; the
  /// conversation stays.
  Result<void> reopen();

  /// Chooses a recipient: "<All>" or a user of the menu, in the menu's spelling or in any case.
  Result<void> chooseRecipient(const std::string& user);

  /// Types a text at the entry box's caret, and presses return there.
  Result<void> type(const std::string& text);
  Result<void> pressReturn();

  /// The three together, opening the panel if need be. What was in the entry box before is gone.
  Result<void> say(const std::string& user, const std::string& text);

  /// The conversation.
  Result<std::vector<std::string>> lines() const;

  /// Everything that the panel shows, as one object.
  Result<JsonValue> show() const;

 private:
  struct Widgets {
    GenIcon* panel = nullptr;
    TitleMenuButton* recipient = nullptr;
    ScrollableTextBoxBase* log = nullptr;
    TitleTextBox* entry = nullptr;
  };

  [[nodiscard]] Result<GenIcon*> findPanel() const;
  [[nodiscard]] Result<Widgets> findOpenPanel() const;
  void click(const Glob& widget);
  void press(Event::eKey key);
  void focusEntry(const Widgets& widgets);

  Desktop& desktop_;
};

}  // namespace korvel
