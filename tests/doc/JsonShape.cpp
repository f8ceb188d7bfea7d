#include "tests/doc/JsonShape.h"

#include <fstream>
#include <map>
#include <sstream>

#include "station/base/Json.h"

namespace korvel {

namespace {

std::string kindOf(const JsonValue& value) {
  switch (value.kind()) {
    case JsonValue::Kind::eBool:
      return "boolean";
    case JsonValue::Kind::eNumber:
      return "number";
    case JsonValue::Kind::eString:
      return "text";
    case JsonValue::Kind::eArray:
      return "list";
    case JsonValue::Kind::eObject:
      return "object";
    default:
      return "null";
  }
}

using Kinds = std::map<std::string, std::string>;

/// Notes the kind of every value by its path; that of the whole is not noted, nor are objects that
/// are elements.
void collect(const JsonValue& value, const std::string& path, Kinds& kinds) {
  const bool isElement = path.ends_with("[]") && value.isObject();
  if (!path.empty() && !isElement) kinds[path] = kindOf(value);
  for (const JsonValue& element : value.elements()) collect(element, path + "[]", kinds);
  for (const auto& [key, member] : value.members()) {
    std::string name = key;
    if (name.ends_with("_hex")) name.resize(name.size() - 4);
    collect(member, path.empty() ? name : path + "." + name, kinds);
  }
}

}  // namespace

JsonShape JsonShape::ofSection(const std::string& heading) {
  JsonShape shape;
  std::ifstream page(KV_SOURCE_DIR "/docs/kv-share-json.md");
  bool isInside = false;
  for (std::string line; std::getline(page, line);) {
    if (line.rfind("##", 0) == 0) isInside = line.substr(line.find(' ') + 1) == heading;
    if (!isInside || line.rfind("| `", 0) != 0) continue;
    const std::size_t end = line.find('`', 3);
    const std::size_t kind = end + 4;
    const std::string words = line.substr(kind, line.find(" |", kind) - kind);
    shape.rows_.push_back({line.substr(3, end - 3), words.substr(0, words.find(',')),
                           words.find("not always") == words.npos});
  }
  return shape;
}

std::string JsonShape::differences(const std::string& output) const {
  std::string found;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    const auto value = parseJson(line);
    if (!value) return "no JSON: " + line + "\n";
    Kinds kinds;
    collect(*value, "", kinds);
    for (const Row& row : rows_) {
      const auto given = kinds.find(row.path);
      if (given == kinds.end()) {
        if (row.isAlways) found += row.path + " is not there\n";
        continue;
      }
      if (given->second != row.kind) found += row.path + " is " + given->second + "\n";
      kinds.erase(given);
    }
    for (const auto& [path, kind] : kinds) found += path + " (" + kind + ") is not documented\n";
  }
  return found;
}

}  // namespace korvel
