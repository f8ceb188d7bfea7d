#include "station/wire/MessageTable.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "host/project/iProjectShare.h"
#include "station/base/Events.h"
#include "station/base/HostThread.h"
#include "station/base/Json.h"
#include "station/base/Log.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"

namespace korvel {

constexpr WireField kCookieField{"cookie", &MessageFields::cookie, "--cookie",
                                 "the object concerned"};
constexpr WireField kModificationField{"modification", &MessageFields::modification, "--data",
                                       "the change in its text form"};
constexpr WireField kDataField{"data", &MessageFields::data, "--data",
                               "the path, words or command"};
constexpr WireField kOwnerField{"data", &MessageFields::data, "--data", "the owner"};
constexpr WireField kContainerField{"container", &MessageFields::container, "--data",
                                    "the container value"};
constexpr WireField kSourceField{"source", &MessageFields::source, nullptr, nullptr};
constexpr WireField kTargetField{"target", &MessageFields::target, "--target", "whom it is for"};
constexpr WireField kMachineField{"target", &MessageFields::target, "--target",
                                  "the machine's number"};
constexpr WireField kTransferTargetField{"target", &MessageFields::target, "--target",
                                         "whom it is for"};
constexpr WireField kTransferCookieField{"cookie", &MessageFields::cookie, "--cookie",
                                         "the object concerned"};

namespace {

using Layout = decltype(MessageType::layout);
using Shown = decltype(MessageType::shown);

constexpr Layout kObject{&kCookieField};
constexpr Layout kMaterial{&kDataField};
constexpr Layout kContainer{&kCookieField, &kContainerField};
constexpr Layout kTransfer{&kSourceField, &kTransferTargetField, &kTransferCookieField};

constexpr Shown kObjectShown{{{"", &kCookieField}}};
constexpr Shown kMaterialShown{{{"", &kDataField}}};
constexpr Shown kContainerShown{{{"", &kCookieField}, {"  ", &kContainerField}}};
constexpr Shown kTransferShown{
    {{"", &kSourceField}, {" to ", &kTransferTargetField}, {": ", &kTransferCookieField}}};

constexpr const char* kTransferFewer = "stations log what there is of them";

// Required for messages with too few fields: type 5 is acted on with empty permissions, type 15
// with the value 0, and transfers are logged with the fields that are there.
constexpr MessageType kTypes[] = {
    {MessageType::eEditModification,
     "EditModification",
     {&kCookieField, &kModificationField},
     2,
     "stations report \"false\" (NetMessage line 149) and read an empty modification, which "
     "changes "
     "nothing",
     {{{"", &kCookieField}, {"  ", &kModificationField}}}},
    {MessageType::eEditSaved, "EditSaved", kObject, 1, nullptr, kObjectShown},
    {MessageType::eEditDeleted, "EditDeleted", kObject, 1, nullptr, kObjectShown},
    {MessageType::eProjdbRecChange, "ProjdbRecChange", kObject, 1, nullptr, kObjectShown},
    {MessageType::ePermissionsChange,
     "PermissionsChange",
     {&kCookieField, &kOwnerField},
     1,
     "stations report \"false\" (NetMessage line 142) and take empty permissions",
     {{{"", &kCookieField}, {"  owner ", &kOwnerField}}}},
    {MessageType::eRoomChange, "RoomChange", kObject, 1, nullptr, kObjectShown},
    {MessageType::eContainerModification, "ContainerModification", kContainer, 2,
     "stations report \"false\" (NetMessage line 166) and do nothing", kContainerShown},
    {MessageType::eAddMaterial, "AddMaterial", kMaterial, 1, nullptr, kMaterialShown},
    {MessageType::eRemoveMaterial, "RemoveMaterial", kMaterial, 1, nullptr, kMaterialShown},
    {MessageType::eUserMessage,
     "UserMessage",
     {&kSourceField, &kTargetField, &kDataField},
     3,
     "stations read none of them and deliver no words",
     {{{"", &kSourceField}, {" to ", &kTargetField}, {": ", &kDataField}}}},
    {MessageType::eBinTransfer, "BinTransfer", kTransfer, 1, kTransferFewer, kTransferShown},
    {MessageType::eClipTransfer, "ClipTransfer", kTransfer, 1, kTransferFewer, kTransferShown},
    {MessageType::eActionRequest,
     "ActionRequest",
     {&kSourceField, &kMachineField, &kDataField},
     3,
     "stations read none of them and run no command",
     {{{"", &kSourceField}, {" to machine ", &kMachineField}, {": ", &kDataField}}}},
    {MessageType::eEditCreated, "EditCreated", kObject, 1, nullptr, kObjectShown},
    {MessageType::eFilterModification, "FilterModification", kContainer, 1,
     "stations report \"false\" (NetMessage line 166) and read all filters again", kContainerShown},
};
static_assert(std::size(kTypes) == MessageType::kLast - MessageType::kFirst + 1);

}  // namespace

std::span<const WireField* const> MessageType::fields() const {
  const auto end = std::find(layout.begin(), layout.end(), nullptr);
  return {layout.data(), static_cast<std::size_t>(end - layout.begin())};
}

bool MessageType::has(const WireField& field) const {
  return std::ranges::find(layout, &field) != layout.end();
}

std::span<const MessageType> messageTypes() { return kTypes; }

const MessageType* messageType(int number) {
  if (number < MessageType::kFirst || number > MessageType::kLast) return nullptr;
  return &kTypes[number - MessageType::kFirst];
}

const char* messageTypeName(int number) {
  if (number == MessageType::eNone) return "None";
  const MessageType* const type = messageType(number);
  return type ? type->name : "unknown";
}

namespace {

using FieldViews = std::vector<std::string_view>;

constexpr std::size_t kUsualFields = kHeadFields + kMostTypeFields;

/// splitFields() without copies.
FieldViews viewFields(std::string_view text) {
  FieldViews fields;
  fields.reserve(kUsualFields);
  std::size_t start = text.size() > 1 && text.front() == kFieldSeparator ? 1 : 0;
  for (std::size_t end; (end = text.find(kFieldSeparator, start)) != text.npos; start = end + 1) {
    fields.push_back(text.substr(start, end - start));
  }
  if (start < text.size() || fields.empty()) fields.push_back(text.substr(start));
  return fields;
}

void readTypeFields(const FieldViews& fields, const MessageType& type, MessageFields& message) {
  std::size_t at = kHeadFields;
  for (const WireField* const field : type.fields()) {
    if (at < fields.size()) message.*field->text = fields[at++];
  }
  message.valid = fields.size() >= kLeastFields && fields.size() >= kHeadFields + type.actedFrom &&
                  isContainerValue(message.container);
}

}  // namespace

bool MessageFields::isCut() const {
  const MessageType* const row = messageType(type);
  return row && count > kHeadFields + row->fields().size();
}

std::vector<std::string> splitFields(std::string_view text) {
  const FieldViews fields = viewFields(text);
  return {fields.begin(), fields.end()};
}

MessageFields readMessage(std::string_view wireText) {
  MessageFields message;
  message.typeName = messageTypeName(MessageType::eNone);
  // Other stations read up to the first zero byte. A seal stands behind one.
  wireText = wireText.substr(0, wireText.find('\0'));
  // The version is looked for before the text is split: splitting ignores a separator at the head,
  // and such a text has no version.
  if (!wireText.starts_with(kWireVersion)) return message;
  const FieldViews fields = viewFields(wireText);
  message.count = fields.size();
  if (fields[0] != kWireVersion) return message;
  if (fields.size() > 1) message.type = static_cast<int>(numberAtStart(std::string(fields[1])));
  message.typeName = messageTypeName(message.type);
  if (fields.size() > 2) message.project = fields[2];
  if (const MessageType* const type = messageType(message.type)) {
    readTypeFields(fields, *type, message);
  }
  return message;
}

int typeOnWire(std::string_view wireText) {
  wireText = wireText.substr(0, wireText.find('\0'));
  const std::size_t versionEnd = wireText.find(kFieldSeparator);
  if (versionEnd == wireText.npos || wireText.substr(0, versionEnd) != kWireVersion) {
    return MessageType::eNone;
  }
  wireText.remove_prefix(versionEnd + 1);
  return static_cast<int>(
      numberAtStart(std::string(wireText.substr(0, wireText.find(kFieldSeparator)))));
}

long numberAtStart(const std::string& text) { return std::strtol(text.c_str(), nullptr, 10); }

bool isContainerValue(const std::string& text) {
  return static_cast<unsigned>(numberAtStart(text)) < kContainerValues.size();
}

namespace {

std::string composed(MessageType::Number type, std::initializer_list<std::string> fields) {
  std::string text;
  text += kWireVersion;
  text += kFieldSeparator + std::to_string(type) + kFieldSeparator;
  for (const std::string& field : fields) text += field + kFieldSeparator;
  return text;
}

}  // namespace

std::string composeActionRequest(const std::string& project, const std::string& user, int machine,
                                 const std::string& command) {
  return composed(MessageType::eActionRequest, {project, user, std::to_string(machine), command});
}

std::string composeUserMessage(const std::string& project, const std::string& user,
                               const std::string& to, const std::string& words) {
  return composed(MessageType::eUserMessage, {project, user, to, words});
}

std::vector<JsonValue::Member> messageMembers(const MessageFields& message) {
  std::vector<JsonValue::Member> members{{"type", message.type}, {"type_name", message.typeName}};
  members.push_back(textMember("project", message.project));
  for (const WireField* const field : {&kCookieField, &kTargetField, &kDataField}) {
    members.push_back(textMember(field->name, message.*field->text));
  }
  for (const WireField* const field : {&kSourceField, &kModificationField, &kContainerField}) {
    const std::string& text = message.*field->text;
    if (!text.empty()) members.push_back(textMember(field->name, text));
  }
  return members;
}

std::vector<JsonValue::Member> datagramMembers(const std::string& wireText) {
  std::vector<JsonValue::Member> members{{"text_hex", hexText(wireText.substr(0, kMostHexBytes))}};
  if (wireText.size() > kMostHexBytes) members.emplace_back("text_bytes", wireText.size());
  return members;
}

namespace {

/// Bytes that live on after their delivery, in case the plug-in keeps them.
class HeldBytes : public iMemHolder {
 public:
  explicit HeldBytes(std::string bytes) : bytes_(std::move(bytes)) {}
  [[nodiscard]] const char* bytes() const override { return bytes_.data(); }
  [[nodiscard]] std::size_t size() const override { return bytes_.size(); }

 private:
  std::string bytes_;
};

}  // namespace

bool isForThisUser(const MessageFields& message) {
  if (message.type != MessageType::eUserMessage || !message.valid) return false;
  if (!settings().networkMode) return false;
  iProjectShare* const share = iProjectShare::instance();
  return message.target == kEverybody ||
         (share && utf8Text(share->getCurrentUser()) == message.target);
}

ReceivedMessage receivedMessage(std::string wireText) {
  MessageFields fields = readMessage(wireText);
  Notification words{{}, fields.data, fields.source, fields.isCut(), false};
  std::string by = fields.source;
  return {std::move(wireText), std::move(fields), std::move(words), false, std::move(by)};
}

void deliverAfterWait(iNetMessageReceiver& receiver, const ReceivedMessage& message) {
  const WaitedScope waited;
  deliverMessage(receiver, message);
}

void deliverMessage(iNetMessageReceiver& receiver, const ReceivedMessage& message) {
  const RemoteChangeScope scope(&message);
  const AuthorScope author(message.by);
  const LogSourceScope source(message.from);
  const ActivityScope activity("the message " + message.fields.typeName);
  events().received(message.wireText, message.fields);
  const std::uint64_t shownBefore = textsShown();
  receiver.receive(Kv::Ptr<iMemHolder>(new HeldBytes(message.wireText)), nullptr);
  // The panel takes a text that looks like one of its own messages, and shows nothing of it.
  if (textsShown() == shownBefore && isForThisUser(message.fields)) notifyUser(message.words);
}

}  // namespace korvel
