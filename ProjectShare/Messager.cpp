#include "ProjectShare/Messager.h"

#include <memory>

#include "ProjectShare/Broadcaster.h"
#include "ProjectShare/HostEntry.h"
#include "ProjectShare/NetMessage.h"
#include "host/base/Log.h"
#include "host/base/Text.h"
#include "host/project/iPermissionsManager.h"
#include "host/ui/GenIcon.h"
#include "host/ui/Glib.h"
#include "host/ui/ResourceStrings.h"
#include "host/ui/UifStd.h"

namespace {

constexpr const char* kTypeName = "Messager";
constexpr const char* kIconFile = "tool_messager_on.png";
constexpr const char* kReturnEvent = "LinecanvasReturnPressed";
constexpr const wchar_t* kEverybody = L"<All>";
constexpr const wchar_t* kPrompt = L"[ type here ]";
constexpr char kVersionMarker = 'd';

constexpr unsigned kTitleText = 12027;
constexpr unsigned kRecipientText = 12028;

constexpr Size kPanelSize{200, 400};
constexpr Size kIconSize{48, 35};
constexpr double kLogHeight = 140;
constexpr double kRoomForBoxes = 40;

constexpr unsigned kPanelWidgets = 7;
constexpr unsigned kAllWidgets = 39;

TitleMenuButton::Items recipients() {
  TitleMenuButton::Items names{kEverybody};
  iPermissionsManager* permissions = iPermissionsManager::instance();
  if (!permissions) return names;
  for (const auto& user : permissions->getUserList()) {
    if (user != iPermissionsManager::kNoOwner) names.push_back(user);
  }
  return names;
}

// Required: a fixed place, which readers of logs know; not this file's line.
void reportUnfinishedPath() { assertionFailed("false", "ProjectShare/Messager line 294"); }

}  // namespace

Messager::Messager() : GenIcon(IconSet(kIconFile), kPanelSize) {}

Messager::Messager(const GlobCreationInfo& info) : GenIcon(IconSet(kIconFile), info, kPanelSize) {
  setContextString(resourceStrW(kTitleText));
  if (info.restore == 0) {
    setSizeFlag(eIconState);
    StandardPanel::resize(kIconSize.width, kIconSize.height);
  } else if (sizeState() == eExpandedState) {
    Messager::setSizeState(eExpandedState);
  }
}

Messager::~Messager() = default;

void Messager::registerTypes() {
  guardedEntry("Messager::registerTypes",
               [] { GlobManager::registerUiComponentType(kTypeName, &Messager::create); });
}

Glob* Messager::create(GlobCreationInfo* info) {
  return guardedEntry("Messager::create", static_cast<Glob*>(nullptr),
                      [info] { return new Messager(*info); });
}

LightweightString<char> Messager::idstring() const { return kTypeName; }

void Messager::reloadIcon() { reInit(IconSet(kIconFile)); }

Size Messager::calcSize() { return kPanelSize; }

void Messager::setSizeState(int state) {
  const bool lacksContent = state == eExpandedState && !messageLog;
  if (state == sizeState() && !lacksContent) return;
  // The content is rebuilt widget by widget; the screen is to see the result alone.
  const Glib::UpdateDeferrer deferrer;
  if (state == eIconState) becomeIcon();
  if (state == eExpandedState) becomePanel();
  setupRootPos();
  reshapeAndDraw(kKeepPosition);
}

void Messager::becomeIcon() {
  setSizeFlag(eIconState);
  // The widgets are destroyed with the content below; nothing may reach them through these.
  recipientButton = nullptr;
  messageLog = nullptr;
  messageEntry = nullptr;
  removeStandardWidgets(kAllWidgets, true);
  clearMenu();
  StandardPanel::resize(kIconSize.width, kIconSize.height);
  setContextString(resourceStrW(kTitleText));
  const XY mouse = getMousePos();
  setPosition({mouse.x - kIconSize.width / 2, mouse.y - kIconSize.height / 2});
}

void Messager::becomePanel() {
  setSizeFlag(eExpandedState);
  setPosition(getMaximisedPos(calcSize()));
  setBorder(UifStd::getBorder());
  setTitle(resourceStrW(kTitleText), UifStd::getTitleFont());
  addStandardWidgets(kPanelWidgets);
  setColour(palette().button());
  StandardPanel::resize(kPanelSize.width, kPanelSize.height);
  buildContent();
  setContextString({}, {});
}

void Messager::buildContent() {
  const double height = UifStd::getButtonHeight();
  const double gap = UifStd::getWidgetGap();
  recipientButton =
      addChild(std::make_unique<TitleMenuButton>(resourceStrW(kRecipientText), recipients(),
                                                 innerWidth() - kRoomForBoxes, height),
               UserTopRight(0, 0));
  messageLog =
      addChild(std::make_unique<ScrollableTextBox<MultiLineTextBox>>(innerWidth(), kLogHeight),
               Below(recipientButton, gap));
  messageLog->setPalette(palette());
  messageEntry =
      addChild(std::make_unique<TitleTextBox>(LightweightString<wchar_t>(), innerWidth(), height),
               Below(messageLog, gap));
  messageEntry->textBox().setPrompt(kPrompt);
  messageEntry->requestCallback(kReturnEvent, this, TextBox::eReturnPressed);
}

void Messager::generateTool() {
  guardedEntry("Messager::generateTool", [this] {
    if (dragSource()) {
      DragDropManager::beginDrag(this);
      DragDropManager::drop();
    }
    setSizeState(eExpandedState);
  });
}

void Messager::handleFlipSize() {
  guardedEntry("Messager::handleFlipSize", [this] { setSizeState(eIconState); });
}

bool Messager::handlePoot() {
  guardedEntry("Messager::handlePoot", [this] { requestToolboxRepopulate(); });
  return true;
}

void Messager::resize(double width, double height) {
  if (sizeState() != eIconState) StandardPanel::resize(width, height);
}

void Messager::reshape() { GenIcon::reshape(); }

void Messager::reviewMenu(Event*) { clearMenu(); }

void Messager::draw() {
  const Glib::UpdateDeferrer deferrer;
  GenIcon::draw();
}

bool Messager::handleMessageEvent(const LightweightString<char>& text, Glob*) {
  // Report the return event as handled even if sending throws, so that it does not become a
  // notification.
  const bool isOwnReturn = text == kReturnEvent && messageEntry;
  return guardedEntry("Messager::handleMessageEvent", isOwnReturn, [&] {
    if (text == kReturnEvent) return sendEntry();
    if (text.empty() || text[0] != kVersionMarker) return false;
    return handleWireText(text);
  });
}

bool Messager::sendEntry() {
  // An icon has no entry box. The text then is a message that happens to read like the event, and
  // goes on to the desktop.
  if (!messageEntry) return false;
  const LightweightString<char> text = toUTF8(messageEntry->getText());
  messageEntry->setText({});
  // Required: an empty text is sent all the same.
  const LightweightString<char> recipient = toUTF8(recipientButton->getSelectedItemName());
  const NetMessage message(NetMessage::eUserMessage, recipient, text);
  showMessage(message);
  messageEntry->draw();
  ProjectSharing::Broadcaster::broadcastMessage(message);
  return true;
}

bool Messager::handleWireText(const LightweightString<char>& wireText) {
  // Required: read as a whole wire text, although the receiver hands over the words alone.
  const NetMessage message(wireText);
  switch (message.type) {
    case NetMessage::eUserMessage:
      return showMessage(message);
    case NetMessage::eBinTransfer:
    case NetMessage::eClipTransfer:
      LogBoth("bin/clip for %s: (%s)\n", message.target, message.cookie.asString(false));
      // Required: transfers are announced and no more; the report marks the unfinished path.
      reportUnfinishedPath();
      return true;
    default:
      reportUnfinishedPath();
      return true;
  }
}

/// False when there is no conversation, so that the message goes on to the desktop unlost.
bool Messager::showMessage(const NetMessage& message) {
  if (!messageLog) return false;
  // Required: a message of one's own has no source and reads " : text"; bytes are widened one by
  // one, so that other letters than ASCII's appear as several.
  const LightweightString<char> line = message.source + " : " + message.data;
  auto lines = messageLog->getStrings();
  lines.push_back(Kv::WStringFromAscii(line));
  messageLog->setStrings(lines);
  messageLog->draw();
  return true;
}
