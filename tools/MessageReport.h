#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "station/base/Json.h"

/// Sets a text in an object: under `key`, or in hex under `key` followed by "_hex" where its bytes
/// are not UTF-8.
void setText(JsonValue& object, const std::string& key, const std::string& bytes);

/// What a datagram says, as one object: type, type_name, project, cookie, data, target, source,
/// container, modification, valid, warnings. The texts are the fields as they stand on the wire.
JsonValue describeMessage(const std::string& wireText);

/// What stations make of a datagram that is not what it should be, a sentence each.
std::vector<std::string> warningsAbout(const std::string& wireText);

/// Bytes as pairs of lower-case hex digits.
std::string hexOf(std::string_view bytes);
