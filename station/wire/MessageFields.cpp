#include "station/wire/MessageFields.h"

#include <cstdlib>

namespace korvel {

namespace {

void readTypeFields(const std::vector<std::string>& fields, const MessageType& type,
                    MessageFields& message) {
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
  std::vector<std::string> fields;
  std::size_t start = text.size() > 1 && text.front() == kFieldSeparator ? 1 : 0;
  for (std::size_t end; (end = text.find(kFieldSeparator, start)) != text.npos; start = end + 1) {
    fields.emplace_back(text.substr(start, end - start));
  }
  if (start < text.size() || fields.empty()) fields.emplace_back(text.substr(start));
  return fields;
}

MessageFields readMessage(std::string_view wireText) {
  MessageFields message;
  message.typeName = messageTypeName(MessageType::eNone);
  wireText = wireText.substr(0, wireText.find('\0'));
  // A reader looks at the first byte before it splits: a leading separator is no version.
  if (!wireText.starts_with(kWireVersion)) return message;
  const auto fields = splitFields(wireText);
  message.count = fields.size();
  if (fields[0] != kWireVersion) return message;
  if (fields.size() > 1) message.type = static_cast<int>(numberAtStart(fields[1]));
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

std::string composeActionRequest(const std::string& project, const std::string& user, int machine,
                                 const std::string& command) {
  std::string text;
  for (const auto& field : {std::string(kWireVersion), std::to_string(MessageType::eActionRequest),
                            project, user, std::to_string(machine), command}) {
    text += field + kFieldSeparator;
  }
  return text;
}

}  // namespace korvel
