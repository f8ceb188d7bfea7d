#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "tests/doc/SourceText.h"
#include "tests/share/SharedStations.h"

using namespace korvel;

// The pages name every command and option that the programs have, and none that they have not.

namespace {

using Names = std::set<std::string>;

/// A page's lines without the formatter's marks: "\fB\-\-port\fR \fIN\fR" is "--port N".
std::vector<std::string> plainLines(const std::string& page) {
  const std::string marked = readText(std::string(KV_SOURCE_DIR) + "/docs/man/" + page);
  std::istringstream text(std::regex_replace(
      std::regex_replace(marked, std::regex(R"(\\f[BIR])"), ""), std::regex(R"(\\-)"), "-"));
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  EXPECT_FALSE(lines.empty()) << page;
  return lines;
}

/// What the tagged paragraphs of a section are about.
Names tagsOf(const std::string& page, const std::string& section) {
  Names tags;
  std::string in;
  std::string before;
  for (const std::string& line : plainLines(page)) {
    if (line.starts_with(".SH ")) in = line.substr(4);
    if (before == ".TP" && in == section) tags.insert(line);
    before = line;
  }
  return tags;
}

/// The long options in a text.
void addOptions(const std::string& text, Names& options) {
  static const std::regex kOption("--[a-z][a-z-]*");
  for (std::sregex_iterator each(text.begin(), text.end(), kOption), end; each != end; ++each) {
    options.insert(each->str());
  }
}

/// The options that a page's section about a command lists, by the command's name.
std::map<std::string, Names> sharePage() {
  std::map<std::string, Names> commands;
  std::string command;
  std::string before;
  for (const std::string& line : plainLines("kv-share.1")) {
    if (line.starts_with(".SH ")) command.clear();
    if (line.starts_with(".SS kv-share ")) {
      command = line.substr(13, line.find(' ', 13) - 13);
      commands[command];
    }
    if (before == ".TP" && !command.empty()) addOptions(line, commands[command]);
    before = line;
  }
  return commands;
}

/// The words that begin the lines of a help text's list, below its heading.
Names listed(const std::string& words, const std::regex& heading, const std::regex& entry) {
  Names names;
  bool isIn = false;
  for (const std::string& line : linesOf(KV_SHARE " help " + words)) {
    if (!line.starts_with(" ")) isIn = std::regex_search(line, heading);
    std::smatch found;
    if (isIn && std::regex_search(line, found, entry)) names.insert(found[1]);
  }
  return names;
}

TEST(ManPages, TheStationsOptionsAreThoseOfItsHelp) {
  static const std::regex kOption("^  (?:-h, )?(--[a-z-]+(?: [^ ]+)?)");
  Names options;
  for (const std::string& line : linesOf(KV_STATION " --help")) {
    std::smatch found;
    if (std::regex_search(line, found, kOption)) options.insert(found[1]);
  }
  ASSERT_TRUE(options.count("--projects DIR"));
  ASSERT_EQ(options.erase("--help"), 1u);
  options.insert("-h, --help");
  EXPECT_EQ(disagreement(tagsOf("kv-station.1", "OPTIONS"), options), "");
}

class StationManPage : public SharedStations {};

TEST_F(StationManPage, ItsCommandsAreThoseThatHelpLists) {
  Names commands;
  const JsonValue help = run(start("ANNA", 11), "help");
  for (const JsonValue& row : help.elements()) {
    commands.insert(row["command"].asString());
  }
  EXPECT_EQ(disagreement(tagsOf("kv-station.1", "COMMANDS"), commands), "");
}

TEST(ManPages, TheAdministratorsCommandsAndTheirOptionsAreThoseOfHelp) {
  const auto page = sharePage();
  Names documented;
  for (const auto& [command, options] : page) documented.insert(command);
  const Names commands = listed("", std::regex("ommands:"), std::regex("^  ([a-z]+)"));
  ASSERT_GT(commands.size(), 5u);
  EXPECT_EQ(disagreement(documented, commands), "");
  for (const auto& [command, documentedOptions] : page) {
    Names options =
        listed(command, std::regex("^Options:"), std::regex("^  +(?:-., ?)?(--[a-z-]+)"));
    EXPECT_EQ(options.erase("--help"), 1u) << command;
    EXPECT_EQ(disagreement(documentedOptions, options), "") << "kv-share " << command;
  }
}

}  // namespace
