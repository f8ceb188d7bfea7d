#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "ProjectShare/NetMessage.h"
#include "host/base/Text.h"
#include "tests/fakes/FakeServices.h"
#include "tests/support/WireFields.h"

using namespace korvel;

// Checks the examples of docs/wire-format.md byte by byte.

namespace {

/// One example: a datagram as the page gives it.
struct Example {
  int type = 0;
  std::string bytes;
  std::vector<std::string> fields;
};

/// A line's columns, which two blanks or more part.
std::vector<std::string> columns(const std::string& line) {
  std::vector<std::string> found;
  for (std::size_t begin = 0; begin < line.size();) {
    const std::size_t end = std::min(line.find("  ", begin), line.size());
    found.push_back(line.substr(begin, end - begin));
    begin = std::min(line.find_first_not_of(' ', end), line.size());
  }
  return found;
}

std::string bytesOf(const std::string& hex) {
  std::istringstream digits(hex);
  std::string bytes;
  for (unsigned byte = 0; digits >> std::hex >> byte;) bytes += static_cast<char>(byte);
  EXPECT_TRUE(digits.eof()) << hex;
  return bytes;
}

/// Adds a line "64 AC   d   version" to an example.
void addField(Example& example, const std::string& line) {
  const auto parts = columns(line);
  ASSERT_EQ(parts.size(), 3u) << line;
  EXPECT_EQ(bytesOf(parts[0]), parts[1] + '\xAC') << line;
  example.bytes += bytesOf(parts[0]);
  example.fields.push_back(parts[1]);
}

/// What a heading begins with that has an example below it.
constexpr std::string_view kTypeHeading = "### Type ";

std::vector<Example> examples() {
  std::ifstream page(KV_SOURCE_DIR "/docs/wire-format.md");
  EXPECT_TRUE(page.is_open());
  std::vector<Example> found;
  int type = 0;
  bool inside = false;
  for (std::string line; std::getline(page, line);) {
    if (line.starts_with(kTypeHeading)) type = std::stoi(line.substr(kTypeHeading.size()));
    if (inside && line != "```") addField(found.back(), line);
    if (line == "```wire") found.push_back({type, {}, {}});
    inside = line == "```wire" || (inside && line != "```");
  }
  return found;
}

/// The record that a station builds for an example, from the example's fields.
NetMessage built(const Example& example) {
  const auto type = static_cast<NetMessage::Type>(example.type);
  const auto text = [&](std::size_t i) { return lightweight(example.fields.at(i)); };
  const auto cookie = [&](std::size_t i) { return Cookie(example.fields.at(i).c_str(), false); };
  switch (type) {
    case NetMessage::eEditModification:
      return {cookie(3), EditModification(text(4))};
    case NetMessage::ePermissionsChange:
      return {type, cookie(3), text(4)};
    case NetMessage::eContainerModification:
      return {cookie(3), ContainerModification(text(4))};
    case NetMessage::eAddMaterial:
    case NetMessage::eRemoveMaterial:
      return {type, text(3)};
    case NetMessage::eUserMessage:
    case NetMessage::eActionRequest:
      return {type, text(4), text(5)};
    case NetMessage::eBinTransfer:
    case NetMessage::eClipTransfer:
      return {type, text(4), cookie(5)};
    default:
      break;
  }
  NetMessage message(type, cookie(3));
  if (type == NetMessage::eFilterModification)
    message.containerModification = ContainerModification(text(4));
  return message;
}

class WireFormatDocTest : public testing::Test {
 protected:
  FakeHost host_;
  FakeProjectShare share_{L"EDIT-1"};
};

TEST_F(WireFormatDocTest, EveryTypeHasAnExample) {
  std::map<int, int> examplesOf;
  for (const Example& example : examples()) {
    EXPECT_EQ(example.fields.at(1), std::to_string(example.type));
    ++examplesOf[example.type];
  }
  std::ifstream page(KV_SOURCE_DIR "/docs/wire-format.md");
  int last = 0;
  for (std::string line; std::getline(page, line);) {
    if (!line.starts_with(kTypeHeading)) continue;
    EXPECT_EQ(std::stoi(line.substr(kTypeHeading.size())), ++last) << line;
    EXPECT_EQ(examplesOf[last], 1) << line;
  }
  EXPECT_EQ(examplesOf.size(), static_cast<std::size_t>(last));
  EXPECT_GE(last, NetMessage::eFilterModification);
}

TEST_F(WireFormatDocTest, AStationWritesEachExampleByteForByte) {
  for (const Example& example : examples()) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(built(example).asString().str(), example.bytes) << "type " << example.type;
    const bool reports = !testing::internal::GetCapturedStdout().empty();
    EXPECT_EQ(reports, example.type == 4) << "type " << example.type;
  }
}

TEST_F(WireFormatDocTest, AStationReadsEachExampleAsThePageSays) {
  for (const Example& example : examples()) {
    SCOPED_TRACE(example.type);
    NetMessage expected = built(example);
    if (example.fields.at(3) == "EDIT-1") expected.source = "EDIT-1";
    if (example.type == 11 || example.type == 12) {
      expected.cookie = Cookie(expected.target.c_str(), false);
      expected.target.clear();
    }
    testing::internal::CaptureStdout();
    EXPECT_EQ(summary(NetMessage(lightweight(example.bytes))), summary(expected));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  }
}

}  // namespace
