#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "station/wire/MessageTable.h"
#include "tests/support/ToolRun.h"
#include "tools/capture/CaptureFile.h"

#ifdef KV_TSHARK

using namespace korvel;

namespace {

struct Row {
  const char* message;  ///< with "|" for each separator
  const char* shown;    ///< type, name, project, cookie, source, target, data, value, container
  const char* malformed = "";
  int warnings = 0;
};

const Row kRows[] = {
    {"d|1|P0001|E0001|2;0;1.5;s;Reel%202|", "1|EditModification|P0001|E0001||||Reel%202|"},
    {"d|2|P0001|E0001|", "2|EditSaved|P0001|E0001|||||"},
    {"d|3|P0001|E0001|", "3|EditDeleted|P0001|E0001|||||"},
    {"d|4|P0001|E0001|", "4|ProjdbRecChange|P0001|E0001|||||"},
    {"d|5|P0001|E0001|BOB|", "5|PermissionsChange|P0001|E0001|||BOB||"},
    {"d|6|P0001|P0001|", "6|RoomChange|P0001|P0001|||||"},
    {"d|7|P0001|G0002|1|", "7|ContainerModification|P0001|G0002|||||1"},
    {"d|8|P0001|//store/a.mov|", "8|AddMaterial|P0001||||//store/a.mov||"},
    {"d|9|P0001|//store/a.mov|", "9|RemoveMaterial|P0001||||//store/a.mov||"},
    {"d|10|P0001|EDIT-1|<All>|lunch?|", "10|UserMessage|P0001||EDIT-1|<All>|lunch?||"},
    {"d|11|P0001|EDIT-1|BOB|G0002|", "11|BinTransfer|P0001|G0002|EDIT-1|BOB|||", "", 1},
    {"d|12|P0001|EDIT-1|BOB|E0001|", "12|ClipTransfer|P0001|E0001|EDIT-1|BOB|||", "", 1},
    {"d|13||EDIT-1|12|beep|", "13|ActionRequest|||EDIT-1|12|beep||"},
    {"d|14|P0001|E0004|", "14|EditCreated|P0001|E0004|||||"},
    {"d|15|P0001|F0003|3|", "15|FilterModification|P0001|F0003|||||3"},
    {"d|8|P0001|a|b|", "8|AddMaterial|P0001||||a||", "", 1},
    {"d|2|P0001|nonsense|", "2|EditSaved|P0001|nonsense|||||", "", 1},
    {"e|2|P0001|E0001|", "||||||||", "another version"},
    {"", "||||||||"},
    {"x", "||||||||", "another version"},
    {"d|2|P0001|", "2|EditSaved|P0001||||||", "too few fields (3, at least 4)"},
    {"d|10|P0001|EDIT-1|BOB|", "10|UserMessage|P0001||EDIT-1|BOB|||", "too few fields (5 of 6)"},
    {"d|16|P0001|E0001|", "16|unknown|P0001||||||", "there is no type 16"},
    {"|d|2|P0001|E0001|", "||||||||", "another version"},
    {"d|5|P0001|E0001|", "5|PermissionsChange|P0001|E0001|||||", "", 1},
    {"d|11|P0001|EDIT-1|BOB|", "11|BinTransfer|P0001||EDIT-1|BOB|||", "", 1},
    {"d|15|P0001|F0003|", "15|FilterModification|P0001|F0003|||||", "", 1},
    {"d|7|P0001|G0002|9|", "7|ContainerModification|P0001|G0002|||||9", "no container value"},
};

std::vector<std::string> messagesOfRows() {
  std::vector<std::string> messages;
  for (const Row& row : kRows) messages.emplace_back(row.message);
  return messages;
}

std::string writeCapture(const TestFolder& folder, const std::vector<std::string>& messages) {
  const std::string path = folder / "capture";
  PcapngWriter writer(::open(path.c_str(), O_WRONLY | O_CREAT, 0600), path);
  EXPECT_TRUE(writer.begin("port 27015"));
  for (std::string text : messages) {
    std::replace(text.begin(), text.end(), '|', '\xAC');
    EXPECT_TRUE(writer.write({1'000'000'000, {0x7F000001}, 41000, {0x7FFFFFFF}, 27015, 0, text}));
  }
  EXPECT_TRUE(writer.end(messages.size(), 0, 2'000'000'000));
  return path;
}

/// What the analyser prints of the capture, a line a packet.
std::vector<std::string> linesOf(const TestFolder& folder, const std::string& words,
                                 const std::vector<std::string>& messages = messagesOfRows()) {
  const std::string command = "'" KV_TSHARK "' -X lua_script:'" KV_DISSECTOR "' -n -r '" +
                              writeCapture(folder, messages) + "' " + words + " >'" +
                              folder / "shown" + "' 2>'" + folder / "errors" + "'";
  EXPECT_EQ(std::system(command.c_str()), 0) << contentOf(folder / "errors");
  std::istringstream shown(contentOf(folder / "shown"));
  std::vector<std::string> lines;
  for (std::string line; std::getline(shown, line);) lines.push_back(line);
  return lines;
}

std::string fieldWords() {
  std::string words = "-T fields -E separator='|' -E occurrence=f";
  for (const char* const name : {"type", "type_name", "project", "cookie", "source", "target",
                                 "data", "modification.value", "container", "malformed"}) {
    words += std::string(" -e projectshare.") + name;
  }
  return words + " -e _ws.expert.message";
}

TEST(Dissector, NamesEveryFieldOfEveryTypeAndMarksWhatIsMalformed) {
  const TestFolder folder;
  const auto lines = linesOf(folder, fieldWords());
  ASSERT_EQ(lines.size(), std::size(kRows)) << contentOf(folder / "errors");
  for (std::size_t index = 0; index < lines.size(); ++index) {
    const Row& row = kRows[index];
    const std::string& line = lines[index];
    const std::string mark = row.malformed[0] == '\0' ? "||" : "|1|";
    EXPECT_EQ(line.rfind(row.shown + mark, 0), 0u) << row.message << "\n" << line;
    EXPECT_NE(line.find(row.malformed), std::string::npos) << row.message << "\n" << line;
  }
  EXPECT_EQ(contentOf(folder / "errors").find("Lua"), std::string::npos);
}

TEST(Dissector, MarksAsMalformedWhatStationsDoNothingWith) {
  std::vector<std::string> messages;
  for (int type = 0; type <= MessageType::kLast + 1; ++type) {
    std::string text = "d|" + std::to_string(type) + "|";
    for (const char* const field : {"P0001|", "E0001|", "2|", "2|", "more|"}) {
      messages.push_back(text += field);
    }
  }
  const TestFolder folder;
  const auto lines = linesOf(folder, "-T fields -e projectshare.malformed", messages);
  ASSERT_EQ(lines.size(), messages.size()) << contentOf(folder / "errors");
  for (std::size_t index = 0; index < lines.size(); ++index) {
    std::string text = messages[index];
    std::replace(text.begin(), text.end(), '|', kFieldSeparator);
    EXPECT_EQ(lines[index].empty(), readMessage(text).valid) << messages[index];
  }
}

TEST(Dissector, FiltersByItsFieldsAndItsWarnings) {
  const TestFolder folder;
  const auto expected = std::count_if(std::begin(kRows), std::end(kRows),
                                      [](const Row& row) { return row.warnings > 0; });
  const auto lines = linesOf(folder, "-Y 'projectshare.warning || projectshare.type == 3'");
  EXPECT_EQ(lines.size(), static_cast<std::size_t>(expected) + 1);
}

}  // namespace

#endif
