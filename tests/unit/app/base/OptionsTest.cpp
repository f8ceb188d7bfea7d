#include "app/base/Options.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "station/base/Strings.h"

using namespace korvel;

namespace {

namespace fs = std::filesystem;

/// Reads command lines with a configuration folder of its own.
class OptionsTest : public testing::Test {
 protected:
  OptionsTest() {
    fs::create_directories(folder_ / "korvel");
    ::setenv("XDG_CONFIG_HOME", folder_.c_str(), 1);
  }
  ~OptionsTest() override { fs::remove_all(folder_); }

  static std::variant<Options, ProgramEnd> read(std::vector<std::string> words) {
    std::vector<const char*> arguments{"kv-station"};
    for (const std::string& word : words) arguments.push_back(word.c_str());
    return readOptions(static_cast<int>(arguments.size()), arguments.data());
  }

  /// The options of a line that is to be usable, behind "--projects /p".
  static Options options(std::vector<std::string> words) {
    words.insert(words.begin(), {"--projects", "/p"});
    auto read = OptionsTest::read(words);
    if (const ProgramEnd* end = std::get_if<ProgramEnd>(&read)) {
      ADD_FAILURE() << end->text;
      return {};
    }
    return std::get<Options>(read);
  }

  static ProgramEnd end(const std::vector<std::string>& words) {
    auto read = OptionsTest::read(words);
    const ProgramEnd* found = std::get_if<ProgramEnd>(&read);
    if (!found) ADD_FAILURE() << "the line was taken";
    return found ? *found : ProgramEnd{};
  }

  std::string writeConfig(const std::string& text) {
    const fs::path file = folder_ / "korvel" / "station.conf";
    std::ofstream(file) << text;
    return file.string();
  }

  fs::path folder_ = fs::temp_directory_path() / ("kv-options-" + std::to_string(::getpid()));
};

TEST_F(OptionsTest, TheDefaultsAreThoseOfAWorkstation) {
  const Options given = options({"--host", "edit1"});
  EXPECT_EQ(given.station.projectsDirectory, "/p");
  EXPECT_EQ(given.station.machine, machineNumberFor("edit1"));
  EXPECT_TRUE(given.station.networkMode);
  EXPECT_TRUE(given.station.sendTo.empty());
  EXPECT_EQ(given.station.listen, "0.0.0.0");
  EXPECT_EQ(given.station.config.size(), 1U);
  EXPECT_TRUE(given.station.config.at("resources").ends_with("/resources"));
  EXPECT_EQ(fs::path(given.station.plugin).filename(), "ProjectShare.so");
  EXPECT_TRUE(given.script.empty() && given.events.empty() && !given.keepsGoing);
  EXPECT_FALSE(given.station.user.empty());
}

TEST_F(OptionsTest, EveryOptionReachesItsPlace) {
  const Options given = options({"--user",         "Anna",
                                 "--host",         "edit1",
                                 "--machine",      "12",
                                 "--network-mode", "off",
                                 "--port",         "4000",
                                 "--send-to",      "10.0.0.255,239.1.2.3",
                                 "--listen",       "127.0.0.1",
                                 "--media",        "/m/=//server/media/",
                                 "--media",        "/n=//server/n",
                                 "--set",          "Administrator=1",
                                 "--plugin",       "/x.so",
                                 "--script",       "-",
                                 "--events",       "-",
                                 "--share-heard",  "/heard/",
                                 "--log",          "/l.log",
                                 "--keep-going"});
  const StationSettings& station = given.station;
  EXPECT_EQ(station.user, "Anna");
  EXPECT_EQ(station.machine, 12);
  EXPECT_FALSE(station.networkMode);
  EXPECT_EQ(station.sendTo, (std::vector<std::string>{"10.0.0.255", "239.1.2.3"}));
  EXPECT_EQ(station.listen, "127.0.0.1");
  ASSERT_EQ(station.media.size(), 2u);
  EXPECT_EQ(station.media[0].local, "/m");
  EXPECT_EQ(station.media[0].unc, "//server/media");
  EXPECT_EQ(station.config.at("shared_projects_udp_port"), "4000");
  EXPECT_EQ(station.config.at("Administrator"), "1");
  EXPECT_EQ(station.plugin, "/x.so");
  EXPECT_EQ(station.shareHeard, "/heard");
  EXPECT_EQ(station.logFile, "/l.log");
  EXPECT_EQ(given.script + given.events, "--");
  EXPECT_TRUE(given.keepsGoing);
}

TEST_F(OptionsTest, WhatCannotBeUsedIsAUsageErrorOfOneLine) {
  struct Row {
    std::vector<std::string> words;
    const char* part;
  };
  const Row rows[] = {
      {{"--port", "0"}, "--port: \"0\" is no port"},
      {{"--port", "65536"}, "from 1 to 65535"},
      {{"--port", "27015x"}, "no port"},
      {{"--set", "shared_projects_udp_port=abc"}, "no port"},
      {{"--set", "Administrator=yes"}, "no whole number"},
      {{"--set", "novalue"}, "no KEY=VALUE"},
      {{"--set", "=x"}, "no KEY=VALUE"},
      {{"--machine", "0"}, "no machine number"},
      {{"--machine", "twelve"}, "no machine number"},
      {{"--network-mode", "maybe"}, "neither \"on\" nor \"off\""},
      {{"--send-to", "10.0.0.255,nowhere"}, "\"nowhere\", which is no IPv4 address"},
      {{"--send-to", ""}, "no IPv4 address"},
      {{"--listen", "::1"}, "no IPv4 address"},
      {{"--share-heard", "/p/heard"}, "outside of the projects directory"},
      {{"--share-heard", "/p"}, "outside of the projects directory"},
      {{"--media", "/m"}, "no DIR=UNC"},
      {{"--media", "=//server"}, "no DIR=UNC"},
      {{"--media", "/m=/"}, "no DIR=UNC"},
      {{"--user", ""}, "no user name"},
      {{"--user", "a/b"}, "leave the \"/\" out"},
      {{"--user", std::string(201, 'a')}, "1 to 200 bytes"},
      {{"--host", ""}, "no host name"},
      {{"--host", std::string(201, 'h')}, "1 to 200 bytes"},
      {{"--config", "/nowhere"}, "/nowhere cannot be read"},
      {{"--script", ""}, "--script"},
      {{"--projcets", "/q"}, "--projcets"},
      {{"stray"}, "stray"},
      {{"--user"}, "--user"},
  };
  for (const Row& row : rows) {
    std::vector<std::string> words{"--projects", "/p"};
    words.insert(words.end(), row.words.begin(), row.words.end());
    const ProgramEnd found = end(words);
    EXPECT_EQ(found.status, 2) << row.words[0];
    EXPECT_NE(found.text.find(row.part), std::string::npos) << row.part << ": " << found.text;
    EXPECT_EQ(found.text.find('\n'), std::string::npos) << found.text;
  }
}

TEST_F(OptionsTest, WithoutAProjectsDirectoryItSaysHowToNameOne) {
  const ProgramEnd found = end({});
  EXPECT_EQ(found.status, 2);
  EXPECT_NE(found.text.find("--projects DIR"), std::string::npos) << found.text;
}

TEST_F(OptionsTest, HelpAndVersionEndWellAndNameEveryOption) {
  const ProgramEnd help = end({"--help"});
  EXPECT_EQ(help.status, 0);
  std::istringstream lines(help.text);
  for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80u) << line;
  for (const OptionSpec& option : optionTable()) {
    EXPECT_NE(help.text.find("--" + std::string(option.name)), std::string::npos) << option.name;
  }
  EXPECT_EQ(end({"--version"}).status, 0);
  EXPECT_NE(end({"--version"}).text.find("14.5.0"), std::string::npos);
}

TEST_F(OptionsTest, TheConfigFileOfTheUserIsReadWhenThereIsOne) {
  writeConfig("projects = /shared\nuser = Anna\nAdministrator = 1\nport = 4001\n");
  auto read = OptionsTest::read({});
  ASSERT_TRUE(std::holds_alternative<Options>(read)) << std::get<ProgramEnd>(read).text;
  const StationSettings station = std::get<Options>(read).station;
  EXPECT_EQ(station.projectsDirectory, "/shared");
  EXPECT_EQ(station.user, "Anna");
  EXPECT_EQ(station.config.at("Administrator"), "1");
  EXPECT_EQ(station.config.at("shared_projects_udp_port"), "4001");
}

TEST_F(OptionsTest, TheCommandLineWinsOverTheConfigFile) {
  writeConfig("user = Anna\nport = 4001\nsend-to = 10.0.0.255\nAdministrator = 1\n");
  const Options given = options({"--user", "Ben", "--set", "shared_projects_udp_port=4002",
                                 "--send-to", "127.255.255.255", "--set", "Administrator=0"});
  EXPECT_EQ(given.station.user, "Ben");
  EXPECT_EQ(given.station.config.at("shared_projects_udp_port"), "4002");
  EXPECT_EQ(given.station.config.at("Administrator"), "0");
  EXPECT_EQ(given.station.sendTo, std::vector<std::string>{"127.255.255.255"});
}

TEST_F(OptionsTest, AWrongConfigLineIsReportedWithFileAndLine) {
  struct Row {
    const char* text;
    const char* part;
  };
  for (const Row& row :
       {Row{"user = Anna\nrubbish\n", ":2: \"rubbish\" has no"},
        Row{"projcts = /p\n", ":1: projcts is no option; did you mean \"projects\""},
        Row{"accept_station = ANNA\n",
            ":1: accept_station is no option; did you mean \"accept_stations\""},
        Row{"\nport = many\n", ":2: port: \"shared_projects_udp_port=many\" is no port"},
        Row{"machine = x\n", ":1: machine: \"x\" is no machine number"},
        Row{"script = /s\n", ":1: script may stand on the command line alone"}}) {
    const std::string file = writeConfig(row.text);
    const ProgramEnd found = end({"--projects", "/p"});
    EXPECT_EQ(found.status, 2) << row.text;
    EXPECT_NE(found.text.find(file + row.part), std::string::npos) << found.text;
  }
}

TEST_F(OptionsTest, WhatIsSaidOfAWrongLineMovesNoCursor) {
  writeConfig("sen\x1B-\xFFo = 1\n");
  const ProgramEnd found = end({"--projects", "/p"});
  EXPECT_EQ(found.text, shownText(found.text));
  EXPECT_NE(found.text.find(":1: sen?-?o is no option"), std::string::npos) << found.text;
}

TEST_F(OptionsTest, KeysThatAreNoOptionAreHostConfigurationValues) {
  writeConfig("receive_from = 10.0.0.0/8\n");
  EXPECT_EQ(options({}).station.config.at("receive_from"), "10.0.0.0/8");
}

}  // namespace
