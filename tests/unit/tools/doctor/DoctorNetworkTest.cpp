#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "station/wire/MessageTable.h"
#include "tests/support/ToolRun.h"
#include "tools/base/ProcInfo.h"
#include "tools/doctor/Check.h"

using namespace korvel;

namespace {

std::string chain(const std::string& more, const std::string& name = "input") {
  return R"({"chain":{"family":"inet","table":"filter","name":")" + name + R"(","handle":1)" +
         more + "}}";
}

std::string inputChain(const std::string& policy) {
  return chain(R"(,"type":"filter","hook":"input","prio":0,"policy":")" + policy + R"(")");
}

std::string rule(const std::string& parts, const std::string& in = "input") {
  return R"({"rule":{"family":"inet","table":"filter","chain":")" + in +
         R"(","handle":2,"expr":[)" + parts + "]}}";
}

const std::string kUdpPort =
    R"({"match":{"op":"==","left":{"payload":{"protocol":"udp","field":"dport"}},"right":)";
const std::string kAccept = R"({"accept":null})";
const std::string kDrop = R"({"drop":null})";
const std::string kLoopback =
    R"({"match":{"op":"==","left":{"meta":{"key":"iifname"}},"right":"lo"}})";
const std::string kKnown =
    R"({"match":{"op":"in","left":{"ct":{"key":"state"}},"right":["established","related"]}})";

struct RuleRow {
  const char* what;
  std::string items;
  Passage passage;
};

TEST(DoctorFirewallTest, RulesAreReadAsTheKernelReadsThem) {
  const std::string dropping = inputChain("drop");
  const RuleRow rows[] = {
      {"no rules", R"({"metainfo":{}})", Passage::eOpen},
      {"accepting chain", inputChain("accept"), Passage::eOpen},
      {"dropping chain", dropping, Passage::eBlocked},
      {"its port let in", dropping + "," + rule(kUdpPort + "27015}}," + kAccept), Passage::eOpen},
      {"another port", dropping + "," + rule(kUdpPort + "53}}," + kAccept), Passage::eBlocked},
      {"a range", dropping + "," + rule(kUdpPort + R"({"range":[27000,27100]}}},)" + kAccept),
       Passage::eOpen},
      {"a set", dropping + "," + rule(kUdpPort + R"({"set":[53,27015]}}},)" + kAccept),
       Passage::eOpen},
      {"a named set", dropping + "," + rule(kUdpPort + R"("@ports"}},)" + kAccept),
       Passage::eUnsure},
      {"answers alone", dropping + "," + rule(kKnown + "," + kAccept), Passage::eBlocked},
      {"dropped before", inputChain("accept") + "," + rule(kUdpPort + "27015}}," + kDrop),
       Passage::eBlocked},
      {"counted, dropped",
       inputChain("accept") + "," +
           rule(kUdpPort + R"(27015}},{"counter":{"packets":0}},)" + kDrop),
       Passage::eBlocked},
      {"another protocol",
       inputChain("accept") + "," +
           rule(R"({"match":{"op":"==","left":{"payload":{"protocol":"tcp","field":"dport"}},)"
                R"("right":27015}},)" +
                kDrop),
       Passage::eOpen},
      {"a jump",
       dropping + "," + rule(R"({"jump":{"target":"mine"}})") + "," + chain("", "mine") + "," +
           rule(kUdpPort + "27015}}," + kAccept, "mine"),
       Passage::eOpen},
      {"a goto, behind which no rule is asked",
       dropping + "," + rule(R"({"goto":{"target":"mine"}})") + "," +
           rule(kUdpPort + "27015}}," + kAccept) + "," + chain("", "mine"),
       Passage::eBlocked},
      {"some addresses",
       dropping + "," +
           rule(R"({"match":{"op":"==","left":{"payload":{"protocol":"ip",)"
                R"("field":"saddr"}},"right":"10.0.0.1"}},)" +
                kAccept),
       Passage::eUnsure},
      {"a verdict map",
       inputChain("accept") + "," +
           rule(R"({"vmap":{"key":{"ct":{"key":"state"}},"data":{"set":[)"
                R"(["new",{"drop":null}],["established",{"accept":null}]]}}})"),
       Passage::eBlocked},
  };
  for (const RuleRow& row : rows) {
    const auto rules = parseJson(R"({"nftables":[)" + row.items + "]}");
    ASSERT_TRUE(rules) << row.what;
    const FirewallRuling ruling = ruleOn(*rules, Way::eIn, 27015);
    EXPECT_EQ(ruling.passage, row.passage) << row.what;
    EXPECT_EQ(ruling.chain.empty(), row.passage == Passage::eOpen) << row.what;
    EXPECT_EQ(ruleOn(*rules, Way::eOut, 27015).passage, Passage::eOpen) << row.what;
  }
}

TEST(DoctorFirewallTest, ALoopOfJumpsEnds) {
  const auto rules = parseJson(R"({"nftables":[)" + inputChain("drop") + "," +
                               rule(R"({"jump":{"target":"input"}})") + "]}");
  EXPECT_EQ(ruleOn(*rules, Way::eIn, 27015).passage, Passage::eBlocked);
}

TEST(DoctorFirewallTest, TheFixIsInTheWordsOfTheProgramThatMadeTheRules) {
  const auto fix = [](const std::string& items) {
    return judgeFirewall(R"({"nftables":[)" + items + "]}", "", 27015)[0].fix;
  };
  EXPECT_NE(
      fix(inputChain("drop")).find("nft insert rule inet filter input udp dport 27015 accept"),
      std::string::npos);
  EXPECT_NE(fix(inputChain("drop") + "," + chain("", "ufw-user-input")).find("ufw allow 27015/udp"),
            std::string::npos);
}

TEST(DoctorFirewallTest, RulesThatCannotBeReadAreAWarning) {
  for (const char* text : {"", "sh: 1: nft: not found\n", "Operation not permitted", "{}"}) {
    const Findings found = judgeFirewall(text, "", 27015);
    ASSERT_EQ(found.size(), 1u) << text;
    EXPECT_EQ(found[0].verdict, Verdict::eWarn) << text;
    EXPECT_NE(found[0].text.find("could not read"), std::string::npos) << text;
  }
}

struct LegacyRow {
  const char* what;
  std::string rules;  ///< below a chain that drops what comes in
  Verdict verdict;
};

TEST(DoctorFirewallTest, LegacyRulesAreReadAsWell) {
  const LegacyRow rows[] = {
      {"dropping chain", "", Verdict::eFail},
      {"the port let in", "-A INPUT -p udp -m udp --dport 27015 -j ACCEPT", Verdict::ePass},
      {"another port", "-A INPUT -p udp -m udp --dport 53 -j ACCEPT", Verdict::eFail},
      {"another protocol", "-A INPUT -p tcp -j ACCEPT", Verdict::eFail},
      {"any but it", "-A INPUT ! -p tcp -j ACCEPT", Verdict::ePass},
      {"several ports", "-A INPUT -p udp -m multiport --dports 53,27000:27100 -j ACCEPT",
       Verdict::ePass},
      {"answers alone", "-A INPUT -m conntrack --ctstate RELATED,ESTABLISHED -j ACCEPT",
       Verdict::eFail},
      {"the loopback", "-A INPUT -i lo -j ACCEPT", Verdict::eFail},
      {"some network", "-A INPUT -s 10.0.0.0/8 -m comment --comment \"a b\" -j ACCEPT",
       Verdict::eWarn},
      {"a log, a jump", "-A INPUT -j LOG --log-prefix \"x \"\n-A INPUT -j in\n-A in -j ACCEPT",
       Verdict::ePass},
      {"broadcasts", "-A INPUT -m pkttype --pkt-type broadcast -j ACCEPT", Verdict::ePass},
  };
  for (const LegacyRow& row : rows) {
    const std::string saved =
        "# made by a program\n*filter\n:INPUT DROP [0:0]\n:in - [0:0]\n" + row.rules + "\nCOMMIT\n";
    const Findings found = judgeFirewall(R"({"nftables":[]})", saved, 27015);
    EXPECT_EQ(found[0].verdict, row.verdict) << row.what << ": " << found[0].text;
    if (row.verdict == Verdict::ePass) continue;
    EXPECT_NE(found[0].text.find("iptables filter INPUT"), std::string::npos) << found[0].text;
    EXPECT_NE(found[0].fix.find("iptables-legacy -I INPUT -p udp --dport 27015 -j ACCEPT"),
              std::string::npos)
        << found[0].fix;
  }
  const Findings unread = judgeFirewall(R"({"nftables":[]})", "Permission denied\n", 27015);
  EXPECT_EQ(unread.back().text, "could not read the rules of legacy iptables (Permission denied)");
}

TEST(DoctorNetworkTest, ChainsThatJumpToEachOtherInManyWaysTakeNoTime) {
  constexpr int kChains = 14;
  std::string rules = inputChain("accept");
  for (int each = 0; each < kChains; ++each) {
    rules += "," + chain("", "c" + std::to_string(each));
    const std::string jump = R"({"jump":{"target":"c)" + std::to_string(each) + R"("}})";
    const std::string from = each == 0 ? "input" : "c" + std::to_string(each - 1);
    // Six jumps a chain: followed one by one they would be 6^14.
    for (int times = 0; times < 6; ++times) rules += "," + rule(jump, from);
  }
  rules += "," + rule(kUdpPort + "27015}}," + kDrop, "c" + std::to_string(kChains - 1));
  const Findings found = judgeFirewall(R"({"nftables":[)" + rules + "]}", "", 27015);
  EXPECT_EQ(found[0].verdict, Verdict::eFail) << found[0].text;
}

TEST(DoctorNetworkTest, ASmallBufferIsWarnedOf) {
  EXPECT_EQ(worstOf(judgeBuffer(8 << 20)), Verdict::ePass);
  EXPECT_EQ(worstOf(judgeBuffer(212'992)), Verdict::eWarn);
}

TEST(DoctorNetworkTest, NoStationTakesATrialForAMessage) {
  EXPECT_FALSE(readMessage(trialDatagram("12345678")).valid);
  EXPECT_EQ(readMessage(trialDatagram("12345678")).type, 0);
}

TEST(DoctorNetworkTest, ThePortsProgramsAreFoundByTheirSockets) {
  const TestFolder proc;
  static_cast<void>(proc.write(
      "net/udp",
      "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout "
      "inode ref pointer drops\n"
      "  1: 00000000:6987 00000000:0000 07 00000000:00000000 00:00000000 00000000 0 0 4711 2 0 0\n"
      "  2: 00000000:6987 00000000:0000 07 00000000:00000000 00:00000000 00000000 0 0 4712 2 0 0\n"
      "  3: 00000000:0035 00000000:0000 07 00000000:00000000 00:00000000 00000000 0 0 4713 2 0 0\n"
      "broken\n"));
  static_cast<void>(proc.write("311/comm", "dnsmasq\n"));
  std::filesystem::create_directories(proc / "311/fd");
  std::filesystem::create_symlink("socket:[4711]", proc / "311/fd/5");
  const auto users = usersOfPort(27015, proc.path());
  EXPECT_EQ(users.size(), 2u);
  EXPECT_EQ(namesOf(users), "dnsmasq (process 311), 1 that this user may not see");
  EXPECT_TRUE(usersOfPort(1, proc.path()).empty());
}

TEST(DoctorStationTest, NamesThatOthersSeeCutOrNotAtAllAreFound) {
  const std::pair<std::string, Verdict> rows[] = {
      {"ANNA", Verdict::ePass},
      {"Zo\u00EB", Verdict::eWarn},
      {"", Verdict::eFail},
      {"a\u20ACb", Verdict::eFail},  // its UTF-8 holds AC
      {"a\x1B[2J", Verdict::eFail},
      {"a/b", Verdict::eFail},
      {std::string(200, 'x'), Verdict::ePass},
      {std::string(201, 'x'), Verdict::eWarn}};
  for (const auto& [name, verdict] : rows) {
    const Findings found = judgeName("user name", name);
    EXPECT_EQ(worstOf(found), verdict) << name;
    EXPECT_EQ(found[0].fix.empty(), verdict == Verdict::ePass) << name;
  }
}

TEST(DoctorStationTest, AStationThatMessagesToItsUserDoNotReachIsWarned) {
  const UserList list = readUserList("ANNA\nBEN\n");
  struct Row {
    const char* user;
    const char* host;
    Verdict verdict;
    const char* part;
  };
  const Row rows[] = {{"ANNA", "anna", Verdict::ePass, "arrive"},
                      {"J\u00DCRGEN", "j\u00FCrgen", Verdict::eWarn, "beyond ASCII"},
                      {"anna", "anna", Verdict::eWarn, "not the host's name in capitals, \"ANNA\""},
                      {"ANNA", "edit-1", Verdict::eWarn, "\"EDIT-1\""},
                      {"CARLA", "carla", Verdict::eWarn, "not in userlist.dat"},
                      {"<All>", "anna", Verdict::eFail, "a meaning of its own"},
                      {"RENDER", "render", Verdict::eFail, "a meaning of its own"},
                      {"ANNA", "render", Verdict::eFail, "RENDER"},
                      {"<NOBODY>", "x", Verdict::eFail, "<NOBODY>"}};
  for (const Row& row : rows) {
    const Findings found = judgeUser(row.user, row.host, list);
    EXPECT_EQ(worstOf(found), row.verdict) << row.user << " " << found[0].text;
    EXPECT_NE(found[0].text.find(row.part), std::string::npos) << found[0].text;
    EXPECT_EQ(found[0].fix.empty(), row.verdict == Verdict::ePass) << row.user;
  }
}

TEST(DoctorStationTest, LinesOfTheUserListThatNoStationIsCalledAreNamed) {
  struct Row {
    const char* text;
    const char* part;
  };
  const Row rows[] = {{"\xEF\xBB\xBF"
                       "ANNA\n",
                       "line 1 begins with a byte-order mark"},
                      {"ANNA\r\nBEN \r\n", "line 2 has blanks at an end"},
                      {"ANNA\n\nBEN\n", "line 2 is empty"},
                      {"J\u00DCRGEN\n", "line 1 holds letters beyond ASCII"},
                      {"ANNA\rBEN\r<all>", "line 3 is \"<All>\""}};
  for (const Row& row : rows) {
    const Findings found = judgeUserList(readUserList(row.text));
    ASSERT_EQ(found.size(), 1u) << row.text;
    EXPECT_EQ(found[0].verdict, Verdict::eWarn);
    EXPECT_NE(found[0].text.find(row.part), std::string::npos) << found[0].text;
  }
  EXPECT_EQ(worstOf(judgeUserList(readUserList("ANNA\r\nBEN\n"))), Verdict::ePass);
}

TEST(DoctorStationTest, FindingsAreCountedByHowTheyCameOut) {
  FindingCounts counts;
  counts.add(pass("a"));
  EXPECT_EQ(counts.text(), "1 passed");
  counts.add(warn("b", "c"));
  counts.add(fail("d", "e"));
  counts.add(fail("f", "g"));
  EXPECT_EQ(counts.text(), "1 passed, 1 warning, 2 failed");
}

TEST(DoctorStationTest, AMarkerWithoutAStationHereIsAnothersOrAKilledOnes) {
  EXPECT_EQ(worstOf(judgeMarker("ANNA", -1, StationHere::eNone)), Verdict::ePass);
  EXPECT_EQ(worstOf(judgeMarker("ANNA", 10, StationHere::eRuns)), Verdict::ePass);
  EXPECT_EQ(worstOf(judgeMarker("ANNA", 10, StationHere::eNone)), Verdict::eWarn);
}

}  // namespace
