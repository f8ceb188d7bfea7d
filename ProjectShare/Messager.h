#pragma once

#include "host/base/LightweightString.h"
#include "host/ui/GenIcon.h"
#include "host/ui/GlobManager.h"
#include "host/ui/MenuGlob.h"
#include "host/ui/TextBox.h"

class NetMessage;

/// The panel through which users of the shared projects write to each other.
///
///     +---------------------------+
///     | Messages                  |
///     | [x][-] [To: <All>       v]|  recipientButton
///     | +-----------------------+ |
///     | |  : what I wrote       | |  messageLog
///     | | ANNA : what she wrote | |
///     | +-----------------------+ |
///     | [ type here ]             |  messageEntry
///     +---------------------------+
///
/// A tool icon that opens into this panel and closes to the icon again. The conversation begins
/// anew with each opening. It takes two kinds of text: the entry box's return event, and whole wire
/// texts of messages. The receiver hands it a message's words alone: most are not taken, and become
/// notifications. User-interface thread.
class Messager : public GenIcon {
 public:
  /// An icon.
  Messager();

  /// A tool as the host places or restores it: an icon, or the open panel if it was saved open.
  explicit Messager(const GlobCreationInfo& info);
  ~Messager() override;

  /// Registers the panel with the host's toolkit. The host calls it when it sets up its types of
  /// component.
  KV_HOST_API static void registerTypes();

  /// A new panel; the caller's. Null when it cannot be made.
  static Glob* create(GlobCreationInfo* info);

  [[nodiscard]] LightweightString<char> idstring() const override;
  void reloadIcon() override;
  Size calcSize() override;
  void setSizeState(int sizeState) override;
  void generateTool() override;
  void handleFlipSize() override;
  bool handlePoot() override;
  void resize(double width, double height) override;
  void reshape() override;
  void reviewMenu(Event* event) override;
  void draw() override;

  /// Sends what is in the entry box, for the return event; shows a user message, for a wire text.
  /// True when the text was one of either; false otherwise, and when the panel is an icon and has
  /// no conversation to show a message in.
  bool handleMessageEvent(const LightweightString<char>& text, Glob* sender) override;

 private:
  void becomeIcon();
  void becomePanel();
  void buildContent();
  bool sendEntry();
  bool handleWireText(const LightweightString<char>& wireText);
  bool showMessage(const NetMessage& message);

  // Owned by the panel as its children; null while it is an icon.
  TitleMenuButton* recipientButton = nullptr;
  ScrollableTextBox<MultiLineTextBox>* messageLog = nullptr;
  TitleTextBox* messageEntry = nullptr;
};
