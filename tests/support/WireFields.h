#pragma once

#include <algorithm>
#include <string>

#include "ProjectShare/NetMessage.h"

namespace korvel {

/// A wire text from one in which "|" stands for the separator byte.
inline std::string wire(std::string text) {
  std::replace(text.begin(), text.end(), '|', '\xAC');
  return text;
}

inline LightweightString<char> lightweight(const std::string& text) {
  return LightweightString<char>(std::string_view(text));
}

/// A record in one line: "type project cookie", then each field that is not empty.
inline std::string summary(const NetMessage& message) {
  std::string text = std::to_string(static_cast<int>(message.type)) + " " +
                     message.projectCookie.asString(false).str() + " " +
                     message.cookie.asString(false).str();
  const auto add = [&text](const char* name, const std::string& value, const char* unset) {
    if (value != unset) text += std::string(" ") + name + "=" + value;
  };
  add("data", message.data.str(), "");
  add("target", message.target.str(), "");
  add("source", message.source.str(), "");
  add("container", message.containerModification.asString().str(), "0");
  add("modification", message.editModification.asString().str(), "0;0;0;;");
  return text;
}

}  // namespace korvel
