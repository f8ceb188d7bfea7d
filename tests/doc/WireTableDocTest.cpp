#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>

#include "station/wire/MessageTable.h"

using namespace korvel;

// Compares what the dissector and docs/wire-format.md say of each type with the table of the wire.

namespace {

/// A file's text with every run of blanks and line ends as one blank.
std::string wordsOf(const std::string& file) {
  std::ifstream stream(std::string(KV_SOURCE_DIR) + "/" + file);
  EXPECT_TRUE(stream.is_open()) << file;
  std::string words;
  for (std::string word; stream >> word;) words += word + ' ';
  return words;
}

/// The names of a type's fields, each between two marks.
std::string fieldsOf(const MessageType& type, const char* mark) {
  std::string names;
  for (const WireField* const field : type.fields()) {
    names += (names.empty() ? "" : ", ") + (mark + std::string(field->name) + mark);
  }
  return names;
}

std::size_t countOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1)) ++count;
  return count;
}

TEST(WireTable, IsWhatTheDissectorKnows) {
  std::string script = wordsOf("tools/dissector/projectshare.lua");
  // A sentence may go on in the next line.
  for (std::size_t at; (at = script.find("' .. '")) != script.npos;) script.erase(at, 6);
  for (const MessageType& type : messageTypes()) {
    const std::string fewer = type.fewer ? std::string(", fewer = '") + type.fewer + "'" : "";
    const std::string row = "[" + std::to_string(type.number) + "] = { name = \"" + type.name +
                            "\", fields = { " + fieldsOf(type, "\"") +
                            " }, acted = " + std::to_string(type.actedFrom) + fewer + " },";
    EXPECT_NE(script.find(row), script.npos) << row;
  }
  EXPECT_EQ(countOf(script, "] = { name = "), messageTypes().size());
  std::string values;
  for (std::size_t value = 0; value < kContainerValues.size(); ++value) {
    values += (value ? ", " : " ") + (value ? std::string() : "[0] = ") + "\"" +
              kContainerValues[value] + "\"";
  }
  EXPECT_NE(script.find("local CONTAINER = {" + values + " }"), script.npos) << values;
}

TEST(WireTable, IsWhatThePageSays) {
  const std::string page = wordsOf("docs/wire-format.md");
  for (const MessageType& type : messageTypes()) {
    const std::string fewer = type.fewer ? std::string(type.fewer) + " " : "";
    const std::string row = "| " + std::to_string(type.number) + " | " + type.name + " | " +
                            fieldsOf(type, "") + " | " +
                            std::to_string(kHeadFields + type.actedFrom) + " | " + fewer + "|";
    EXPECT_NE(page.find(row), page.npos) << row;
    const std::string example = "### Type " + std::to_string(type.number) + ":";
    EXPECT_EQ(countOf(page, example), 1u) << example;
  }
  EXPECT_EQ(countOf(page, "### Type "), messageTypes().size());
  const std::string range = "as decimal, 1 to " + std::to_string(MessageType::kLast) + ".";
  EXPECT_NE(page.find(range), page.npos) << range;
}

}  // namespace
