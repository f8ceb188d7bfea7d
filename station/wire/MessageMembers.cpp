#include "station/wire/MessageMembers.h"

#include "station/base/TextMember.h"
#include "station/wire/MessageFields.h"

namespace korvel {

std::vector<JsonValue::Member> messageMembers(const std::string& wireText) {
  const MessageFields fields = readMessage(wireText);
  std::vector<JsonValue::Member> members{{"type", fields.type}, {"type_name", fields.typeName}};
  members.push_back(textMember("project", fields.project));
  members.push_back(textMember("cookie", fields.cookie));
  members.push_back(textMember("target", fields.target));
  members.push_back(textMember("data", fields.data));
  const auto addUnlessEmpty = [&members](const char* key, const std::string& text) {
    if (!text.empty()) members.push_back(textMember(key, text));
  };
  addUnlessEmpty("source", fields.source);
  addUnlessEmpty("modification", fields.modification);
  addUnlessEmpty("container", fields.container);
  members.emplace_back("text_hex", hexText(wireText));
  return members;
}

}  // namespace korvel
