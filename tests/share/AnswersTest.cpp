#include <fstream>

#include "tests/share/SharedStations.h"

using namespace korvel;

namespace {

/// What a person reads who types at a station or asks the administrator's tool.
class AnswersTest : public SharedStations {
 protected:
  /// A station's words after these lines, problems among them.
  std::string answers(const std::string& lines) {
    const ProgramRun run = runProgram(
        stationWords({"--user", "ANNA", "--host", "ANNA", "--machine", "11", "--keep-going"}),
        lines);
    return run.output + run.errors;
  }

  [[nodiscard]] std::string share(const std::string& command) const {
    return runProgram({KV_SHARE, command, folder_ / "projects"}).output;
  }
};

TEST_F(AnswersTest, TheHelpFitsATerminalOf80ColumnsAndSaysHowToLeave) {
  const std::string help = answers("help\n");
  for (std::size_t begin = 0, end; (end = help.find('\n', begin)) != help.npos; begin = end + 1) {
    EXPECT_LE(end - begin, 80u) << help.substr(begin, end - begin);
  }
  EXPECT_NE(help.find("wait EVENT [KEY=VALUE...] [--timeout S]\n"), help.npos) << help;
  EXPECT_NE(help.find("Ctrl-C"), help.npos) << help;
}

TEST_F(AnswersTest, ACommandSaysWhatItDid) {
  answers("project create Film\n");
  const std::string enter = "project enter Film\n";
  const std::pair<std::string, std::string> rows[] = {
      {"room create Sound", "There is now a room \"Sound\"."},
      {"room enter Sound", "You are in the room \"Sound\"."},
      {"room enter Sound\nroom leave", "Left the room."},
      {"project leave", "Left the project;"},
      {"request 4711 identify", "Machine 4711 was asked to run \"identify\"."},
      {"user add BEN", "\"BEN\" is on this station's list until it ends"},
      {"edit import \"" + sample("simple_cut.otio") + "\"", "  Figure 1 - Simple Cut List\n"},
  };
  for (const auto& [line, answer] : rows) {
    const std::string said = answers(enter + line + "\n");
    EXPECT_NE(said.find(answer), said.npos) << line << ": " << said;
  }
}

TEST_F(AnswersTest, APersonReadsTimecodeAndAScriptSeconds) {
  answers("project create Film\nproject enter Film\nedit import \"" + sample("simple_cut.otio") +
          "\"\n");
  const std::string said = answers(
      "project enter Film\nedit trim \"Figure 1 - Simple Cut List\" Clip-001 "
      "0:02 0:06\nedit show \"Figure 1 - Simple Cut List\"\nquit --discard\n");
  EXPECT_NE(said.find("00:00:00:02  00:00:00:06  00:00:00:04  24"), said.npos) << said;
  StationProcess& ben = start("BEN", 12);
  run(ben, "project enter Film");
  const JsonValue clip =
      run(ben, "edit show \"Figure 1 - Simple Cut List\"")["clips"].elements()[0];
  EXPECT_EQ(writeJson(clip["start"]) + " " + writeJson(clip["rate"]), "0.125 24.0");
}

TEST_F(AnswersTest, WhoMakesAProjectOfAKnownNameIsWarned) {
  const std::string once = answers("project create Film\n");
  EXPECT_EQ(once.find("already"), once.npos) << once;
  const std::string cookie = once.substr(0, once.find('\n'));
  const std::string twice = answers("project create Film\n");
  EXPECT_NE(twice.find("There was a project called \"Film\" already: " + cookie), twice.npos);
}

/// The line of a list that holds this word.
std::string lineWith(const std::string& word, const std::string& list) {
  const std::size_t found = list.find(word);
  const std::size_t begin = list.rfind('\n', found) + 1;
  return found == list.npos ? "" : list.substr(begin, list.find('\n', found) - begin);
}

TEST_F(AnswersTest, ASharedProjectIsNotCalledFreeInLists) {
  answers("project create Film\nproject create Secret --private\n");
  for (const std::string& list : {answers("project list\n"), share("locks")}) {
    EXPECT_NE(lineWith("Film", list).find("open to all"), list.npos) << list;
    EXPECT_NE(lineWith("Secret", list).find("free"), list.npos) << list;
  }
  const JsonValue projects = run(start("BEN", 12), "project list");
  ASSERT_EQ(projects.elements().size(), 2u);
  for (const JsonValue& project : projects.elements()) {
    EXPECT_EQ(project["lock"].asString(), "free");
    EXPECT_EQ(writeJson(project["occupied"]), "false");
  }
}

TEST_F(AnswersTest, WhoWritesAMessageThatArrivesCutIsWarnedAndItIsSentAsItIs) {
  StationProcess& anna = start("ANNA", 11);
  run(anna, "say <All> \"ten euros\"");
  EXPECT_TRUE(anna.events("log").empty() ||
              writeJson(anna.events("log").back()).find("carry") == std::string::npos);
  run(anna, "say <All> \"10 \xE2\x82\xAC, please\"");
  bool isWarned = false;
  for (const JsonValue& log : anna.events("log")) {
    isWarned = isWarned || log["text"].asString().find("others see it cut") != std::string::npos;
  }
  EXPECT_TRUE(isWarned);
  EXPECT_NE(anna.events("sent").back()["text_hex"].asString().find("313020e282ac2c20706c"),
            std::string::npos);
}

TEST_F(AnswersTest, WhoBeginsAMessageAsStationsDoIsWarned) {
  const std::string said = answers("panel open\npanel type dinner?\npanel type Dinner?\n");
  EXPECT_NE(said.find("begins with a small \"d\""), said.npos) << said;
  EXPECT_EQ(said.find("begins with a small"), said.rfind("begins with a small")) << said;
}

TEST_F(AnswersTest, ABinIsShownWithTheNamesOfWhatIsInIt) {
  const std::string said = answers(
      "project create Film\nproject enter Film\nedit create Reel\nbin create Dailies\n"
      "bin show Dailies\nbin add Dailies Reel\nbin show Dailies\n");
  EXPECT_NE(said.find("\nDailies is empty.\n"), said.npos) << said;
  const std::size_t shown = said.find("\nDailies:\n");
  ASSERT_NE(shown, said.npos) << said;
  EXPECT_NE(said.find("  Reel\n", shown), said.npos) << said;
}

TEST_F(AnswersTest, AMessageWithTwoFaultsIsWarnedOfBoth) {
  const std::string said = answers("panel open\npanel type \"dinner for 10 \xE2\x82\xAC?\"\n");
  EXPECT_NE(said.find("begins with a small \"d\""), said.npos) << said;
  EXPECT_NE(said.find("others see it cut"), said.npos) << said;
}

TEST_F(AnswersTest, WhoWritesToNobodyKnownLearnsHowToAddAUser) {
  const std::string said = answers("say CARL hello\n");
  EXPECT_NE(said.find("There is no user \"CARL\" to write to"), said.npos) << said;
  EXPECT_NE(said.find("\"user add NAME\""), said.npos) << said;
}

TEST_F(AnswersTest, WhoIsAtWorkIsWrittenToWithoutAUserList) {
  StationProcess& anna = start("ANNA", 11);
  StationProcess& ben = start("BEN", 12);
  run(anna, "say <All> first");
  StationProcess& carla = start("CARLA", 13);
  run(anna, "say ben second");
  await(ben, "notification", {{"text", "second"}, {"source", "ANNA"}});
  run(anna, "say CARLA third");
  await(carla, "notification", {{"text", "third"}});
  const JsonValue lines = run(anna, "panel lines");
  ASSERT_EQ(lines.elements().size(), 3u) << writeJson(lines);
  EXPECT_EQ(lines.elements()[0].asString(), " : first") << "the conversation stays";
  run(anna, "user add DORA");
  run(anna, "say DORA fourth");
  EXPECT_FALSE(anna.command("say GHOST boo")["ok"].asBool());
}

TEST_F(AnswersTest, WhoWritesToAUserOfOtherCapitalsIsTold) {
  StationProcess& anna = start("ANNA", 11);
  start("ben", 12);
  run(anna, "say ben hello");
  bool isTold = false;
  for (const JsonValue& log : anna.events("log")) {
    isTold = isTold || log["text"].asString().find("--user \"BEN\"") != std::string::npos;
  }
  EXPECT_TRUE(isTold);
}

TEST_F(AnswersTest, WhoWritesToANameThatIsNotAsciiIsTold) {
  start("J\xC3\x9CRGEN", 12);
  const std::string said = answers("user add j\xC3\xBCrgen\nsay J\xC3\x9CRGEN hello\n");
  EXPECT_NE(said.find("holds letters that are not ASCII: its station shows your message as a "
                      "notification alone"),
            said.npos)
      << said;
}

TEST_F(AnswersTest, WhoWritesToHimselfIsTold) {
  const std::string said = answers("user add ANNA\nsay anna hello\nsay <All> hello\n");
  const std::string advice = "You write to yourself";
  EXPECT_NE(said.find(advice), said.npos) << said;
  EXPECT_EQ(said.find(advice), said.rfind(advice)) << said;
}

TEST_F(AnswersTest, AUserWhoseNameDiffersInCapitalsAloneIsAnother) {
  start("CARL", 13);
  StationProcess& small = start("carl", 12);
  run(small, "user add CARL");
  run(small, "say CARL hello");
  for (const JsonValue& log : small.events("log")) {
    EXPECT_EQ(log["text"].asString().find("You write to yourself"), std::string::npos);
  }
}

TEST_F(AnswersTest, WhoWritesToAUserWhoIsNotAtWorkIsTold) {
  start("BEN", 12);
  const std::string said = answers("user add CARL\nuser add BEN\nsay CARL hello\nsay BEN hello\n");
  EXPECT_NE(said.find("Nobody of the name \"CARL\" is at work"), said.npos) << said;
  EXPECT_EQ(said.find("Nobody of the name \"BEN\""), said.npos) << said;
}

TEST_F(AnswersTest, LinesOfTheUserListThatNoStationIsCalledAreNoted) {
  std::ofstream(folder_ / "projects/userlist.dat") << "BEN\n\nCARL \nANNA\n";
  const std::string said = share("users");
  ASSERT_NE(said.find("note: "), said.npos) << said;
  EXPECT_EQ(said.substr(said.find("note: ")),
            "note: userlist.dat line 2 is empty: no station has that name\n"
            "note: userlist.dat line 3 has blanks at an end, which become a part of the name: no "
            "station has that name\n");
}

TEST_F(AnswersTest, AnEmptyUserListSaysWhereItWasLookedFor) {
  const std::string said = share("users");
  EXPECT_EQ(said, "no users: " + folder_ / "projects" +
                      " has no userlist.dat with names, and no marker (*.cli)\n");
}

TEST_F(AnswersTest, AWordForSeveralThingsListsThemShortly) {
  StationProcess& anna = start("ANNA", 11);
  for (int each = 0; each < 17; ++each)
    run(anna, "project create \"Film " + std::to_string(each) + "\"");
  run(anna, "project enter \"Film 0\"");
  for (int each = 0; each < 17; ++each)
    run(anna, "edit create \"Reel " + std::to_string(each) + "\"");
  // The letter of a kind, and a beginning that two of seventeen cookies must share.
  const std::string projects = refusal(anna, "project enter P");
  EXPECT_NE(projects.find("Several projects begin with \"P\""), projects.npos) << projects;
  EXPECT_NE(projects.find("(Film "), projects.npos) << projects;
  EXPECT_NE(projects.find(" and 9 more"), projects.npos) << projects;
  for (const char* command : {"edit open E", "edit show e"}) {
    const std::string said = refusal(anna, command);
    EXPECT_NE(said.find("Several objects begin with"), said.npos) << said;
    EXPECT_NE(said.find("(Reel "), said.npos) << said;
  }
  run(anna, "edit create \"Reel 0\"");
  const std::string same = refusal(anna, "edit open \"Reel 0\"");
  EXPECT_NE(same.find("Several objects are called \"Reel 0\""), same.npos) << same;
  EXPECT_EQ(same.find(" more"), same.npos) << same;
  std::size_t listed = 0;
  const JsonValue all = run(anna, "edit list");
  for (const JsonValue& edit : all.elements()) {
    const std::string cookie = edit["cookie"].asString();
    EXPECT_EQ(same.find(cookie), same.npos) << "short ones only: " << same;
    listed += same.find(cookie.substr(0, 8)) != same.npos ? 1 : 0;
  }
  EXPECT_GE(listed, 2u) << same;
}

TEST_F(AnswersTest, GivingToTheOwnerGivesNothing) {
  StationProcess& anna = start("ANNA", 11);
  run(anna, "project create Film");
  run(anna, "project enter Film");
  run(anna, "edit create Reel");
  run(anna, "edit rename Reel Roll");
  const auto sent = anna.events("sent").size();
  EXPECT_EQ(run(anna, "edit give Roll anna").asString(),
            "The edit \"Roll\" belongs to ANNA already.");
  EXPECT_EQ(anna.events("sent").size(), sent);
  const JsonValue state = run(anna, "state");
  EXPECT_EQ(state["steps"]["undo"].asString(), "Undo rename of Reel to Roll");
  EXPECT_TRUE(state["edits"].elements()[0]["dirty"].asBool()) << "nothing was saved for it";
}

TEST_F(AnswersTest, WhoSaysThatItCouldNotLook) {
  StationProcess& anna = start("ANNA", 11);
  EXPECT_EQ(run(anna, "who").elements().size(), 1u);
  std::filesystem::rename(folder_ / "projects", folder_ / "away");
  EXPECT_NE(refusal(anna, "who").find("projects"), std::string::npos);
  std::filesystem::create_directory(folder_ / "projects");
  EXPECT_NE(refusal(anna, "who").find("mounted"), std::string::npos);
  std::filesystem::remove(folder_ / "projects");
  std::filesystem::rename(folder_ / "away", folder_ / "projects");
  EXPECT_EQ(run(anna, "who").elements().size(), 1u);
}

TEST_F(AnswersTest, OfTwoOfOneNameItSaysWhich) {
  StationProcess& anna = start("ANNA", 11);
  run(anna, "project create Film");
  run(anna, "project enter Film");
  const std::string reel = run(anna, "edit create Reel").asString().substr(0, 8);
  run(anna, "edit create Reel");
  const std::string alone = run(anna, "edit create Roll").asString().substr(0, 8);
  run(anna, "edit rename " + reel + " Tape");
  EXPECT_NE(run(anna, "undo").asString().find("rename of Reel (" + reel), std::string::npos);
  run(anna, "edit rename Roll Scene");
  EXPECT_EQ(run(anna, "undo").asString().find(alone), std::string::npos);
  run(anna, "edit rename Roll Reel");
  const std::string unsaved = refusal(anna, "project leave");
  EXPECT_NE(unsaved.find("\"Reel\" (" + alone), std::string::npos) << unsaved;
}

}  // namespace
