#include "station/wire/MessageMembers.h"

#include "station/base/TextMember.h"

namespace korvel {

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

}  // namespace korvel
