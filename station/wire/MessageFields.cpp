#include "station/wire/MessageFields.h"

#include <array>
#include <cstdlib>

namespace korvel {

namespace {

using Member = std::string MessageFields::*;

/// The fields that follow a type's head, in their order on the wire.
struct Layout {
  const char* name;
  std::array<Member, 3> members;
  std::size_t needed;  ///< how many of them a receiver asks for
};

constexpr Layout kLayouts[] = {
    {"None", {}, 0},
    {"EditModification", {&MessageFields::cookie, &MessageFields::modification}, 2},
    {"EditSaved", {&MessageFields::cookie}, 1},
    {"EditDeleted", {&MessageFields::cookie}, 1},
    {"ProjdbRecChange", {&MessageFields::cookie}, 1},
    {"PermissionsChange", {&MessageFields::cookie, &MessageFields::data}, 2},
    {"RoomChange", {&MessageFields::cookie}, 1},
    {"ContainerModification", {&MessageFields::cookie, &MessageFields::container}, 2},
    {"AddMaterial", {&MessageFields::data}, 1},
    {"RemoveMaterial", {&MessageFields::data}, 1},
    {"UserMessage", {&MessageFields::source, &MessageFields::target, &MessageFields::data}, 3},
    {"BinTransfer", {&MessageFields::source, &MessageFields::target, &MessageFields::cookie}, 1},
    {"ClipTransfer", {&MessageFields::source, &MessageFields::target, &MessageFields::cookie}, 1},
    {"ActionRequest", {&MessageFields::source, &MessageFields::target, &MessageFields::data}, 3},
    {"EditCreated", {&MessageFields::cookie}, 1},
    {"FilterModification", {&MessageFields::cookie, &MessageFields::container}, 2},
};
constexpr int kTypes = std::size(kLayouts);
constexpr std::size_t kHeadFields = 3;

bool isNamed(int type) { return type >= 0 && type < kTypes; }

long numberAtStart(const std::string& text) { return std::strtol(text.c_str(), nullptr, 10); }

/// Container values of 4 and more make receivers drop the message; negative ones wrap to such.
bool isContainerValue(const std::string& text) {
  const auto value = static_cast<unsigned>(numberAtStart(text));
  return value < 4;
}

void readTypeFields(const std::vector<std::string>& fields, MessageFields& message) {
  const Layout& layout = kLayouts[message.type];
  std::size_t field = kHeadFields;
  for (const Member member : layout.members) {
    if (member && field < fields.size()) message.*member = fields[field++];
  }
  message.valid =
      message.type != 0 && fields.size() >= kHeadFields + layout.needed &&
      (layout.members[1] != &MessageFields::container || isContainerValue(message.container));
}

}  // namespace

std::vector<std::string> splitFields(std::string_view text) {
  std::vector<std::string> fields;
  std::size_t start = text.size() > 1 && text.front() == kFieldSeparator ? 1 : 0;
  for (std::size_t end; (end = text.find(kFieldSeparator, start)) != text.npos; start = end + 1) {
    fields.emplace_back(text.substr(start, end - start));
  }
  if (start < text.size() || fields.empty()) fields.emplace_back(text.substr(start));
  return fields;
}

MessageFields readMessage(const std::string& wireText) {
  MessageFields message;
  message.typeName = messageTypeName(0);
  const auto fields = splitFields(std::string_view(wireText).substr(0, wireText.find('\0')));
  if (fields[0] != "d") return message;
  if (fields.size() > 1) message.type = static_cast<int>(numberAtStart(fields[1]));
  message.typeName = messageTypeName(message.type);
  if (fields.size() > 2) message.project = fields[2];
  if (isNamed(message.type)) readTypeFields(fields, message);
  return message;
}

const char* messageTypeName(int type) { return isNamed(type) ? kLayouts[type].name : "unknown"; }

const char* messageTypeNameOf(std::string_view wireText) {
  constexpr std::string_view kHead("d\xAC", 2);
  wireText = wireText.substr(0, wireText.find('\0'));
  if (wireText.starts_with(kFieldSeparator)) wireText.remove_prefix(1);
  if (!wireText.starts_with(kHead)) return messageTypeName(0);
  wireText.remove_prefix(kHead.size());
  const std::string type(wireText.substr(0, wireText.find(kFieldSeparator)));
  return messageTypeName(static_cast<int>(numberAtStart(type)));
}

std::string composeActionRequest(const std::string& project, const std::string& user, int machine,
                                 const std::string& command) {
  std::string text;
  for (const auto& field :
       {std::string("d"), std::string("13"), project, user, std::to_string(machine), command}) {
    text += field + kFieldSeparator;
  }
  return text;
}

}  // namespace korvel
