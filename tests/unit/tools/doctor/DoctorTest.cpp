#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>

#include "station/os/SharedFiles.h"
#include "tests/support/ToolRun.h"
#include "tools/base/ProcInfo.h"
#include "tools/base/ToolHost.h"
#include "tools/doctor/Check.h"
#include "tools/doctor/ProbeFolder.h"

using namespace korvel;

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLong(60'000);

Check shareCheck(const char* name, Role role, milliseconds limit, std::function<Findings()> look) {
  return {"share", name, Touches::eShare, role, limit, std::move(look)};
}

Findings run(const std::vector<Check>& checks) {
  Findings all;
  runChecks(checks, [&all](const Finding& finding) { all.push_back(finding); });
  return all;
}

Findings hang() {
  for (;;) ::pause();
}

TEST(DoctorCheckTest, ACheckThatHangsIsEndedAtItsLimitAndSaysSo) {
  const auto start = std::chrono::steady_clock::now();
  const Findings found = run({shareCheck("slow", Role::eOrdinary, milliseconds(50), hang)});
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].verdict, Verdict::eFail);
  EXPECT_EQ(found[0].check, "slow");
  EXPECT_EQ(found[0].text, "no answer within 0.05 s: the share hangs");
  EXPECT_FALSE(found[0].fix.empty());
}

TEST(DoctorCheckTest, AfterTheShareHungWhatTouchesItIsLeftOut) {
  const auto passes = [] { return Findings{pass("fine")}; };
  const Findings found =
      run({shareCheck("slow", Role::eOrdinary, milliseconds(50), hang),
           shareCheck("next", Role::eOrdinary, kLong, passes),
           {"network", "port", Touches::eMachine, Role::eOrdinary, kLong, passes}});
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[1].check, "port");
  EXPECT_EQ(found[1].verdict, Verdict::ePass);
}

TEST(DoctorCheckTest, OnlyAFailedGateEndsTheChecksOfTheShare) {
  const auto fails = [] { return Findings{fail("broken", "mend it")}; };
  const auto passes = [] { return Findings{pass("fine")}; };
  const Check last = shareCheck("last", Role::eOrdinary, kLong, passes);
  EXPECT_EQ(run({shareCheck("gate", Role::eGate, kLong, fails), last}).size(), 1u);
  EXPECT_EQ(run({shareCheck("other", Role::eOrdinary, kLong, fails), last}).size(), 2u);
}

TEST(DoctorCheckTest, ACheckThatEndsWithoutAnAnswerIsAFailure) {
  const Findings died =
      run({shareCheck("x", Role::eOrdinary, kLong, []() -> Findings { ::_exit(3); })});
  const Findings threw = run({shareCheck(
      "x", Role::eOrdinary, kLong, []() -> Findings { throw std::runtime_error("no luck"); })});
  EXPECT_EQ(worstOf(died), Verdict::eFail);
  ASSERT_EQ(threw.size(), 1u);
  EXPECT_EQ(threw[0].text, "the check stopped: no luck");
}

TEST(DoctorCheckTest, AFindingOfAnyTextComesWholeAndReachesNoTerminalRaw) {
  const std::string text = "a\nb\x1B[2J " + std::string(100'000, 'x');
  const Findings found =
      run({shareCheck("x", Role::eOrdinary, kLong, [&] { return Findings{warn(text, "f\x07")}; })});
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].text.size(), text.size());
  const std::string lines = linesOf(found[0]);
  EXPECT_EQ(lines.find('\x1B'), std::string::npos);
  EXPECT_EQ(lines.find('\x07'), std::string::npos);
  EXPECT_NE(lines.find("\n      fix: f?"), std::string::npos);
}

std::string mountLine(const std::string& point, const std::string& type, const std::string& own,
                      const std::string& super) {
  return "36 35 98:0 / " + point + " " + own + " shared:1 - " + type + " server:/p " + super + "\n";
}

Findings judge(const std::string& type, const std::string& options) {
  const auto mount =
      mountOf(mountLine("/srv/projects", type, "rw,relatime", options), "/srv/projects");
  return mount ? judgeMount(*mount) : Findings();
}

struct OptionRow {
  const char* type;
  const char* options;
  Verdict verdict;
  const char* named;  ///< in the worst finding; null for no finding beside the description
};

TEST(DoctorMountTest, OptionsThatBreakOrWeakenLocksAreNamed) {
  const OptionRow rows[] = {
      {"nfs4", "rw,vers=4.2,hard,local_lock=none", Verdict::ePass, nullptr},
      {"nfs", "rw,vers=3,hard,nolock,local_lock=all", Verdict::eFail, "nolock"},
      {"nfs", "rw,vers=3,local_lock=posix", Verdict::eFail, "local_lock=posix"},
      {"nfs", "rw,vers=3,local_lock=flock", Verdict::ePass, nullptr},
      {"nfs", "ro,vers=3", Verdict::eFail, "option ro"},
      {"nfs4", "rw,soft", Verdict::eWarn, "option soft"},
      {"nfs4", "rw,nocto", Verdict::eWarn, "nocto"},
      {"nfs4", "rw,noac", Verdict::eWarn, "noac"},
      {"nfs4", "rw,acregmax=600", Verdict::eWarn, "acregmax=600"},
      {"nfs4", "rw,acregmax=60", Verdict::ePass, nullptr},
      {"cifs", "rw,vers=3.1.1,nobrl", Verdict::eFail, "nobrl"},
      {"cifs", "rw,soft,vers=3.1.1,cache=strict", Verdict::ePass, nullptr},
      {"cifs", "rw,cache=loose", Verdict::eWarn, "cache=loose"},
      {"fuse.sshfs", "rw", Verdict::eFail, "keeps no locks"},
      {"ext4", "rw,nolock", Verdict::ePass, nullptr},
  };
  for (const OptionRow& row : rows) {
    const Findings found = judge(row.type, row.options);
    ASSERT_FALSE(found.empty()) << row.options;
    EXPECT_EQ(worstOf(found), row.verdict) << row.type << " " << row.options;
    EXPECT_EQ(found.size() > 1, row.named != nullptr) << row.type << " " << row.options;
    if (row.named && found.size() > 1) {
      EXPECT_NE(found[1].text.find(row.named), std::string::npos) << found[1].text;
      EXPECT_FALSE(found[1].fix.empty()) << row.options;
    }
  }
}

TEST(DoctorMountTest, TheMountIsTheInnermostAndTheLastAtItsPoint) {
  const std::string info = mountLine("/", "ext4", "rw", "rw") +
                           mountLine("/srv", "nfs", "rw", "rw,nolock") +
                           mountLine("/srv/my\\040share", "nfs4", "rw", "rw") +
                           mountLine("/srv", "nfs4", "rw", "rw,vers=4.2") + "broken line\n";
  EXPECT_EQ(mountOf(info, "/home")->type, "ext4");
  EXPECT_EQ(mountOf(info, "/srvX")->point, "/");
  EXPECT_EQ(mountOf(info, "/srv/p")->type, "nfs4");
  EXPECT_EQ(mountOf(info, "/srv/my share/p")->point, "/srv/my share");
  EXPECT_FALSE(mountOf("", "/srv"));
}

struct SpaceRow {
  unsigned long long bytes, files, allFiles;
  Verdict verdict;
};

TEST(DoctorShareTest, LittleSpaceWarnsAndNoneFails) {
  constexpr unsigned long long kGibibyte = 1ULL << 30U;
  const SpaceRow rows[] = {{50 * kGibibyte, 100, 1000, Verdict::ePass},
                           {50 * kGibibyte, 0, 0, Verdict::ePass},
                           {50 * kGibibyte, 0, 1000, Verdict::eFail},
                           {kGibibyte / 2, 100, 1000, Verdict::eWarn},
                           {0, 100, 1000, Verdict::eFail}};
  for (const SpaceRow& row : rows) {
    EXPECT_EQ(worstOf(judgeSpace(row.bytes, row.files, row.allFiles)), row.verdict)
        << row.bytes << " " << row.files << " " << row.allFiles;
  }
}

TEST(DoctorShareTest, AFolderOfOneUserAloneIsWarnedOf) {
  const std::pair<unsigned, Verdict> rows[] = {{02775, Verdict::ePass}, {0777, Verdict::ePass},
                                               {02770, Verdict::ePass}, {0775, Verdict::eWarn},
                                               {0755, Verdict::eWarn},  {0700, Verdict::eWarn},
                                               {03775, Verdict::eWarn}, {01777, Verdict::eWarn}};
  for (const auto& [mode, verdict] : rows) {
    EXPECT_EQ(worstOf(judgeGroup(mode, "/p")), verdict) << std::oct << mode;
  }
}

TEST(DoctorShareTest, AClockThatIsOffSaysWhichWay) {
  EXPECT_EQ(worstOf(judgeClock(1.5)), Verdict::ePass);
  EXPECT_NE(judgeClock(90)[0].text.find("90 s before the share's"), std::string::npos);
  EXPECT_NE(judgeClock(-90)[0].text.find("90 s behind the share's"), std::string::npos);
}

TEST(DoctorProbeFolderTest, OneThatAnotherRemovesMeanwhileIsNotTakenForAFile) {
  const TestFolder projects;
  const auto comeAndGo = [&projects](int) {
    const std::string path = projects / ProbeFolder::kName;
    for (;;) {
      ::mkdir(path.c_str(), 0700);
      ::rmdir(path.c_str());
    }
  };
  const ChildProcess one(comeAndGo);
  for (int times = 0; times < 15; ++times) {
    ProbeFolder folder(projects.path());
    const auto made = folder.make();
    const ErrorCode met = made ? ErrorCode::eNotFound : made.error().code;
    EXPECT_EQ(met, ErrorCode::eNotFound);  // that it is no folder would be eBadContent
  }
}

TEST(DoctorProbeFolderTest, ATrialThatEndsTakesNoFolderFromOneThatGoesOn) {
  const TestFolder projects;
  ProbeFolder lasting(projects.path());
  ASSERT_TRUE(lasting.make());
  {
    ProbeFolder brief(projects.path());
    ASSERT_TRUE(brief.make());
  }
  EXPECT_TRUE(writeAtomically(lasting.file("12345678", "x"), "still there"));
  EXPECT_TRUE(removeFileAt(lasting.file("12345678", "x")));
}

TEST(DoctorClocksTest, ClocksMustAgreeWithinWhatSealsNeed) {
  struct Row {
    double seconds;
    ShareKeys keys;
    Verdict verdict;
    const char* part;
  };
  for (const Row& row :
       {Row{3, ShareKeys::eUsed, Verdict::ePass, "agrees with that of ANNA at SUITE1"},
        Row{-60, ShareKeys::eUsed, Verdict::ePass, "agrees"},
        Row{-90, ShareKeys::eUsed, Verdict::eWarn, "90 s behind this machine's: beyond 120 s"},
        Row{121, ShareKeys::eUsed, Verdict::eFail, "121 s before this machine's: what it sends"},
        Row{3600, ShareKeys::eNone, Verdict::eWarn, "times are shown wrong"}}) {
    const Findings found = judgeClocks({{"ANNA at SUITE1", row.seconds}}, row.keys);
    ASSERT_EQ(found.size(), 1U) << row.part;
    EXPECT_EQ(found[0].verdict, row.verdict) << found[0].text;
    EXPECT_NE(found[0].text.find(row.part), std::string::npos) << found[0].text;
  }
  EXPECT_EQ(judgeClocks({}, ShareKeys::eUsed).at(0).verdict, Verdict::ePass);
}

}  // namespace
