#include <fstream>

#include "tests/share/SharedStations.h"

using namespace korvel;

namespace {

/// Names as people type them, as words of a command.
const std::vector<std::string> kNames{"two words",
                                      "it's \\\"quoted\\\"",
                                      "\xC3\x84 \xC3\xB6\xC3\xBC\xC3\x9F",
                                      "20 \xE2\x82\xAC",
                                      std::string(300, 'n'),
                                      "a/b",
                                      ".hidden",
                                      "..",
                                      "#1",
                                      "-x"};

/// A name as it is shown, which is without the backslashes of the command's word.
std::string plain(std::string name) {
  std::erase(name, '\\');
  return name;
}

/// Two stations, of which anna is given what nobody should.
class BadInputTest : public SharedStations {
 protected:
  BadInputTest() : SharedStations("/dev/shm") {
    anna_ = &start("ANNA", 11);
    ben_ = &start("BEN", 12);
    project_ = run(*anna_, "project create Film").asString();
    for (StationProcess* station : {anna_, ben_}) run(*station, "project enter Film");
  }

  [[nodiscard]] std::string inProject(const std::string& name) const {
    return folder_ / ("projects/" + project_ + "/" + name);
  }

  /// How a list shows the object with this cookie, null when it does not.
  static JsonValue listed(StationProcess& station, const std::string& command,
                          const std::string& cookie) {
    const JsonValue all = run(station, command);
    for (const JsonValue& each : all.elements()) {
      if (each["cookie"].asString() == cookie) return each;
    }
    return {};
  }
};

TEST_F(BadInputTest, ObjectsOfEveryKindMayBeCalledWhateverPeopleType) {
  for (const std::string kind : {"edit", "log", "bin", "rack", "filter"}) {
    const std::string list = kind == "log" ? "edit list" : kind + " list";
    for (const std::string& name : kNames) {
      SCOPED_TRACE(kind + " " + name);
      const std::string text = kind == "filter" ? " text" : "";
      const std::string cookie = run(*anna_, kind + " create \"" + name + "\"" + text).asString();
      settle(*ben_);
      for (StationProcess* station : {anna_, ben_}) {
        EXPECT_EQ(listed(*station, list, cookie)["name"].asString(), plain(name));
      }
    }
    EXPECT_NE(refusal(*anna_, kind + " create \"\"" + (kind == "filter" ? " x" : "")), "");
  }
}

TEST_F(BadInputTest, ProjectsMayBeCalledWhateverPeopleType) {
  for (const std::string& name : kNames) {
    SCOPED_TRACE(name);
    const std::string cookie = run(*anna_, "project create \"" + name + "\"").asString();
    EXPECT_EQ(listed(*ben_, "project list", cookie)["name"].asString(), plain(name));
    EXPECT_EQ(run(*ben_, "project enter \"" + name + "\"")["cookie"].asString(), cookie);
  }
  for (const auto& each : std::filesystem::directory_iterator(folder_ / "projects")) {
    const std::string name = each.path().filename();
    EXPECT_TRUE(name[0] == 'P' || name.ends_with(".cli") || name == ".stations") << name;
  }
}

TEST_F(BadInputTest, MediaFilesMayBeCalledWhateverPeopleType) {
  for (const std::string name :
       {"two words.mov", "it's.mov", "\xC3\x84\xC3\xB6 20 \xE2\x82\xAC.mov", ".hidden.mov",
        "-x.mov", "#1.mov"}) {
    SCOPED_TRACE(name);
    const std::string file = folder_ / name;
    std::ofstream(file) << "frames";
    const std::string cookie = run(*anna_, "media add \"" + file + "\"").asString();
    await(*ben_, "received", {{"type_name", "AddMaterial"}});
    run(*anna_, "media remove \"" + file + "\"");
    EXPECT_EQ(run(*anna_, "media list").elements().size(), 0U) << cookie;
  }
  for (const std::string& name : {std::string("missing.mov"), std::string(300, 'n')}) {
    EXPECT_NE(refusal(*anna_, "media add \"" + (folder_ / name) + "\""), "") << name;
  }
}

TEST_F(BadInputTest, EditFilesThatAreNoneAreSetAsideAndTheOthersGoOn) {
  const std::string good = run(*anna_, "edit create Good").asString();
  const std::string bad =
      run(*anna_, "edit import \"" + sample("simple_cut.otio") + "\"").asString();
  std::ifstream file(inProject(bad + ".otio"));
  const std::string whole((std::istreambuf_iterator<char>(file)), {});
  for (const std::string& content :
       {whole.substr(0, whole.size() / 2), std::string(),
        std::string(R"({"OTIO_SCHEMA": "Gap.1"})"), std::string("\0\0\0\0", 4),
        std::string("[[[[[["), std::string("\xFF\xFE")}) {
    SCOPED_TRACE(content.substr(0, 40));
    std::ofstream(inProject(bad + ".otio"), std::ios::binary) << content;
    StationProcess& carla = start("CARLA", 13);
    run(carla, "project enter Film");
    EXPECT_EQ(listed(carla, "edit list", good)["name"].asString(), "Good");
    EXPECT_NE(refusal(carla, "edit show " + bad), "");
    EXPECT_NE(refusal(carla, "edit open " + bad), "");
    EXPECT_EQ(run(carla, "edit show Good")["name"].asString(), "Good");
    bool isReported = false;
    for (const JsonValue& event : carla.events("log")) {
      isReported = isReported || event["text"].asString().find(bad) != std::string::npos;
    }
    EXPECT_TRUE(isReported);
    EXPECT_EQ(carla.quit(), 0);
    std::ifstream after(inProject(bad + ".otio"), std::ios::binary);
    EXPECT_EQ(std::string((std::istreambuf_iterator<char>(after)), {}), content);
  }
}

TEST_F(BadInputTest, ImportsOfWhatIsNoEditAreRefusedByName) {
  for (const std::string& content : {std::string(), std::string("{"), std::string("{}"),
                                     std::string(R"({"OTIO_SCHEMA": "Clip.1"})")}) {
    const std::string file = folder_ / "import.otio";
    std::ofstream(file) << content;
    const std::string said = refusal(*anna_, "edit import \"" + file + "\"");
    EXPECT_NE(said.find("import.otio"), std::string::npos) << said;
  }
  EXPECT_NE(refusal(*anna_, "edit import /nowhere.otio").find("/nowhere.otio"), std::string::npos);
  EXPECT_NE(refusal(*anna_, "edit import \"" + folder_.path() + "\""), "");
  EXPECT_TRUE(run(*anna_, "edit list").elements().empty());
}

}  // namespace
