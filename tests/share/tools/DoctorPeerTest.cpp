#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/ToolRun.h"
#include "tools/doctor/PeerTest.h"

using namespace korvel;

// Two machines are two processes here that say they are two.

namespace {

using std::chrono::seconds;

OpenOutcome openWithoutLock(const std::string&) { return {{}, eFileError::eNone}; }

class DoctorPeerTest : public ::testing::Test {
 protected:
  DoctorPeerTest() {
    const int port = 20'000 + ::getpid() % 20'000;
    for (DoctorFacts* const facts : {&a_, &b_}) {
      facts->station.projectsDirectory = folder_.path();
      facts->station.sendTo = {"127.255.255.255"};
      facts->port = port;
    }
    a_.station.host = a_.station.user = "WSA";
    b_.station.host = b_.station.user = "WSB";
  }

  static Findings meet(const DoctorFacts& facts, const std::string& other, seconds patience) {
    ProbeFolder folder(facts.station.projectsDirectory);
    EXPECT_TRUE(folder.make());
    return PeerTest(facts, folder, {other, patience, seconds(40)}).hold();
  }

  /// What A finds while B runs the same.
  Findings meetEachOther() {
    const ChildProcess other([this](int) { meet(b_, "WSA", seconds(40)); });
    return meet(a_, "wsb", seconds(40));
  }

  /// The findings of a check as one text, with their verdicts.
  static std::string told(const Findings& findings, const std::string& check) {
    std::string text;
    for (const Finding& finding : findings) {
      if (finding.check != check) continue;
      text += std::string(verdictName(finding.verdict)) + " " + finding.text + "\n";
      if (!finding.fix.empty()) text += "fix: " + finding.fix + "\n";
    }
    return text;
  }

  /// As if the folder were mounted with these options.
  void mountWith(DoctorFacts& facts, const std::string& type, const std::string& options) {
    facts.mountInfo = folder_.write(
        "../" + folder_.path().substr(folder_.path().rfind('/') + 1) + "." + facts.station.host,
        "1 1 0:1 / / rw - " + type + " server:/p rw," + options + "\n");
    mountInfos_.push_back(facts.mountInfo);
  }

  ~DoctorPeerTest() override {
    for (const std::string& path : mountInfos_) ::unlink(path.c_str());
  }

  TestFolder folder_;
  DoctorFacts a_;
  DoctorFacts b_;
  std::vector<std::string> mountInfos_;
};

TEST_F(DoctorPeerTest, TwoThatLockAndHearEachOtherPassAndLeaveNothingBehind) {
  const Findings found = meetEachOther();
  EXPECT_EQ(worstOf(found), Verdict::ePass)
      << told(found, "exclusive open") << told(found, "datagrams");
  const std::string locks = told(found, "exclusive open");
  EXPECT_NE(locks.find("while WSA holds a file, WSB is refused"), std::string::npos) << locks;
  EXPECT_NE(locks.find("while WSB holds a file, WSA is refused"), std::string::npos) << locks;
  EXPECT_NE(locks.find("after the holder was killed"), std::string::npos) << locks;
  EXPECT_NE(told(found, "datagrams").find("hear each other"), std::string::npos);
}

TEST_F(DoctorPeerTest, ALockThatDoesNotLockIsFoundInBothOrdersWithTheOptionToBlame) {
  a_.open = openWithoutLock;
  b_.open = openWithoutLock;
  mountWith(a_, "nfs", "vers=3,nolock,local_lock=all");
  mountWith(b_, "cifs", "vers=3.1.1,nobrl");
  const std::string locks = told(meetEachOther(), "exclusive open");
  EXPECT_NE(locks.find("fail locks do not lock: while WSA holds a file, WSB takes it, too"),
            std::string::npos)
      << locks;
  EXPECT_NE(locks.find("fail locks do not lock: while WSB holds a file, WSA takes it, too"),
            std::string::npos)
      << locks;
  EXPECT_NE(locks.find("on WSA, mount it without nolock"), std::string::npos) << locks;
  EXPECT_NE(locks.find("on WSB, mount it without nobrl"), std::string::npos) << locks;
}

TEST_F(DoctorPeerTest, OneThatDoesNotHearTheOtherIsNamed) {
  a_.station.listen = "127.0.0.1";  // an address that no broadcast comes to
  const std::string heard = told(meetEachOther(), "datagrams");
  EXPECT_NE(heard.find("fail WSB hears WSA, but WSA does not hear WSB"), std::string::npos)
      << heard;
  EXPECT_NE(heard.find("fix: on WSA, let UDP port"), std::string::npos) << heard;
}

TEST_F(DoctorPeerTest, EqualUserNamesAndDifferentPortsAreFound) {
  b_.station.user = "wsa";
  b_.port = a_.port + 1;
  const Findings found = meetEachOther();
  EXPECT_NE(told(found, "names").find("have the same user name"), std::string::npos);
  EXPECT_NE(told(found, "datagrams").find("different ports"), std::string::npos);
}

TEST_F(DoctorPeerTest, OneThatDoesNotComeIsAFailureOnlyWhenItWasNamed) {
  const Findings named = meet(a_, "WSB", seconds(0));
  ASSERT_EQ(named.size(), 1u);
  EXPECT_EQ(named[0].verdict, Verdict::eFail);
  EXPECT_NE(named[0].fix.find("--with WSA"), std::string::npos) << named[0].fix;
  EXPECT_EQ(worstOf(meet(a_, "", seconds(1))), Verdict::eWarn);
  EXPECT_TRUE(meet(a_, "", seconds(0)).empty());
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

TEST_F(DoctorPeerTest, WhatAKilledTrialLeftBehindMeetsNobody) {
  const auto letter = objectOf(sideOf(b_));
  static_cast<void>(folder_.write(".kv-doctor/kvd-00000000-here", writeJson(letter)));
  static_cast<void>(folder_.write(".kv-doctor/kvd-00000001-here", "broken"));
  static_cast<void>(folder_.write(".kv-doctor/kvd-here", ""));
  const Findings found = meetEachOther();
  EXPECT_EQ(worstOf(found), Verdict::ePass) << told(found, "exclusive open");
}

TEST_F(DoctorPeerTest, WhoWaitsForALetterGivesTheFolderNewTimesForCachesToNotice) {
  namespace fs = std::filesystem;
  ProbeFolder folder(folder_.path());
  ASSERT_TRUE(folder.make());
  const FileMailbox mail(folder, newTrialId());
  const auto longAgo = fs::file_time_type::clock::now() - std::chrono::hours(1);
  for (int times = 0; times < 2; ++times) {
    fs::last_write_time(folder.path(), longAgo);
    EXPECT_FALSE(mail.await("00000000", "here", std::chrono::milliseconds(700)));
    EXPECT_GT(fs::last_write_time(folder.path()), longAgo + std::chrono::minutes(50));
  }
}

}  // namespace
