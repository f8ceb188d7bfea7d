#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>

#include "station/base/StationSettings.h"
#include "station/containers/Containers.h"
#include "station/edit/EditSummary.h"
#include "station/edit/OtioDocument.h"
#include "station/keep/RecoveryFolder.h"
#include "station/os/SharedFiles.h"
#include "station/project/ProjectFolder.h"
#include "station/project/Records.h"
#include "station/seal/KeyRing.h"
#include "tests/fakes/ScratchFolder.h"
#include "tools/doctor/Check.h"
#include "tools/doctor/PeerTest.h"
#include "tools/locks/LockList.h"

using namespace korvel;

namespace {

/// A text of so many bytes that takes forty times its size when it is read.
std::string hostileText(std::size_t size) {
  std::string text = R"({"name":"a","version":1,"nftables":[)";
  while (text.size() + 4 < size) text += "0,";
  return text + "0]}";
}

/// The most memory that this process has had, in MiB.
long mostMemory() {
  struct rusage used {};
  ::getrusage(RUSAGE_SELF, &used);
  return used.ru_maxrss / 1024;
}

/// What reading said, and how many MiB it took at most.
struct Reading {
  std::string answer;
  long memory = 0;
};

template <typename Read>
Reading reading(const Read& read) {
  const long before = mostMemory();
  const std::string answer = read();
  return {answer, mostMemory() - before};
}

template <typename Value>
std::string answerOf(const Result<Value>& result) {
  return result ? "read" : result.error().message;
}

/// Sanitizers keep what was freed, and shadows of all.
#ifdef KV_SANITIZED
constexpr long kTimes = 8;
#else
constexpr long kTimes = 1;
#endif

class MemoryBudget : public testing::Test {
 protected:
  MemoryBudget() {
    StationSettings settings;
    settings.projectsDirectory = folder_.path();
    installSettings(settings);
    std::filesystem::create_directory(folder_ / "P0001");
  }

  std::string written(const std::string& name, const std::string& bytes) const {
    const std::string path = folder_ / name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }

  const ScratchFolder folder_;
};

TEST_F(MemoryBudget, ABinOfAHundredThousandObjectsIsRead) {
  std::string text = R"({"name":"All","contents":[)";
  for (int object = 0; object < 100'000; ++object) {
    text += (object > 0 ? ",\n    \"E" : "\n    \"E") + std::string(32, 'a') +
            std::to_string(100'000 + object) + '"';
  }
  EXPECT_TRUE(readRecord(written("P0001/G0001.json", text + "]}")));
}

#ifndef KV_SANITIZED  // of which each value is slow, and memory is not what it is

TEST_F(MemoryBudget, ARecordOfTheLargestSizeThatIsNoneIsRefusedBeforeItTakesMemory) {
  const std::string path = written("P0001/G0001.json", hostileText(kLargestRecord));
  const Reading bin = reading([&] { return answerOf(readRecord(path)); });
  EXPECT_NE(bin.answer.find("takes more than 128 MiB of memory"), std::string::npos) << bin.answer;
  EXPECT_NE(bin.answer.find("repair it or move it away"), std::string::npos) << bin.answer;
  EXPECT_LT(bin.memory, 280);
}

TEST_F(MemoryBudget, RulesOfTheLargestSizeThatAreNoneAreTold) {
  const std::string text = hostileText(std::size_t{16} << 20);
  const Reading rules = reading([&] { return judgeFirewall(text, "", 27015).front().text; });
  EXPECT_EQ(rules.answer.find("could not read the firewall's rules"), 0u);
  EXPECT_LT(rules.answer.size(), 400u);
  EXPECT_LT(rules.memory, 280);
}

TEST_F(MemoryBudget, AnEditOfTheLargestSizeThatIsNoneIsRefusedBeforeItTakesMemory) {
  const std::string text = hostileText(std::size_t{12} << 20);
  const Reading edit = reading([&] { return answerOf(OtioDocument::parse(text)); });
  EXPECT_NE(edit.answer.find("takes more than 512 MiB of memory"), std::string::npos)
      << edit.answer;
  EXPECT_LT(edit.memory, 900);
}

TEST_F(MemoryBudget, WhatWasNotSavedIsReadWithinAnEditsBudget) {
  const std::string path = written("E0001.json", hostileText(std::size_t{12} << 20));
  const Reading state = reading([&] { return RecoveryFolder::read(path).problem; });
  EXPECT_NE(state.answer.find("takes more than 512 MiB of memory"), std::string::npos)
      << state.answer;
  EXPECT_NE(state.answer.find(path), std::string::npos) << state.answer;
  EXPECT_LT(state.memory, 900);
}

#endif

TEST_F(MemoryBudget, AnEditOfNothingButBracketsIsNotListed) {
  const std::string text = "{\"a\":" + std::string(std::size_t{16} << 20, '[');
  const Reading summary = reading([&] { return answerOf(readEditSummary(text)); });
  EXPECT_NE(summary.answer.find("cut off or no JSON"), std::string::npos) << summary.answer;
  EXPECT_LT(summary.memory, 40 * kTimes);
}

TEST_F(MemoryBudget, ListsOfMoreThanAQuarterMebibyteAreRefusedUnread) {
  const std::string text = hostileText(kLargestList + 10);
  written("P0001/project.json", text);
  written(".keyring", text);
  for (const std::string& answer : {answerOf(readProjectRecord(Cookie("P0001", false))),
                                    answerOf(KeyRing::read(folder_.path()))}) {
    EXPECT_NE(answer.find("larger than 256 KiB"), std::string::npos) << answer;
  }
}

TEST_F(MemoryBudget, ListsOfAQuarterMebibyteTakeAFewMebibytes) {
  const std::string text = hostileText(kLargestList);
  written("P0001/project.json", text);
  const Reading project =
      reading([] { return answerOf(readProjectRecord(Cookie("P0001", false))); });
  EXPECT_LT(project.memory, 40 * kTimes);
}

TEST_F(MemoryBudget, ALetterThatIsNoLetterIsNotWaitedForAndTakesAFewMebibytes) {
  ProbeFolder folder(folder_.path());
  ASSERT_TRUE(folder.make());
  const FileMailbox mail(folder, "1a2b3c4d");
  std::ofstream(folder.file("5e6f7a8b", "here")) << hostileText(std::size_t{16} << 20);
  const Reading letter = reading([&] {
    return mail.await("5e6f7a8b", "here", std::chrono::milliseconds(0)) ? "read" : "refused";
  });
  EXPECT_EQ(letter.answer, "refused");
  EXPECT_LT(letter.memory, 10 * kTimes);
}

TEST_F(MemoryBudget, AUserListOfManyNamesIsReadInAMoment) {
  std::string names;
  for (int user = 0; names.size() + 6 < kLargestList; ++user) names += std::to_string(user) + "\n";
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_GT(readUserList(names).users.size(), 40'000u);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5 * kTimes));
}

}  // namespace
