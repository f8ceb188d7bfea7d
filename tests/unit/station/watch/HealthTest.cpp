#include "station/watch/Health.h"

#include <gtest/gtest.h>

using namespace korvel;

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// A share that has just answered in a moment, and a network that works.
HealthFacts allWell() {
  HealthFacts facts;
  facts.now = std::chrono::steady_clock::now();
  facts.share.when = facts.now;
  facts.share.took = milliseconds(2);
  return facts;
}

TEST(HealthTest, AllIsGoodWhereTheShareAnswersAndMessagesLeave) {
  const HealthState state = judgeHealth(allWell());
  EXPECT_EQ(writeJson(shownHealth(state)),
            R"({"share":"good","network":"good","up_to_date":"good","unsaved":"good","why":""})");
}

TEST(HealthTest, AShareThatTakesLongIsSlowAndOneThatIsSilentIsBad) {
  HealthFacts facts = allWell();
  facts.share.took = milliseconds(1500);
  EXPECT_EQ(judgeHealth(facts).share, HealthLevel::eSlow);
  facts.share.isAwaited = true;
  facts.share.asked = facts.now - seconds(20);
  const HealthState silent = judgeHealth(facts);
  EXPECT_EQ(silent.share, HealthLevel::eBad);
  EXPECT_EQ(silent.upToDate, HealthLevel::eBad);
  EXPECT_EQ(silent.why, "The share has not answered for 20 s.");
}

TEST(HealthTest, AFolderThatIsGoneIsTold) {
  HealthFacts facts = allWell();
  facts.share.result = Error{ErrorCode::eNotFound, "Cannot look at /p.", {}};
  EXPECT_EQ(judgeHealth(facts).share, HealthLevel::eBad);
  EXPECT_EQ(judgeHealth(facts).why, "Cannot look at /p.");
}

TEST(HealthTest, UnsavedChangesThatAreNotKeptAreTold) {
  HealthFacts facts = allWell();
  facts.unkept = "The disk is full on which /home is.";
  const HealthState state = judgeHealth(facts);
  EXPECT_EQ(state.unsaved, HealthLevel::eBad);
  EXPECT_EQ(state.share, HealthLevel::eGood);
  EXPECT_NE(state.why.find("not being kept on this machine: The disk is full"), std::string::npos);
}

TEST(HealthTest, AFailedSendMakesTheNetworkBad) {
  HealthFacts facts = allWell();
  facts.hasSendFailed = true;
  EXPECT_EQ(judgeHealth(facts).network, HealthLevel::eBad);
  EXPECT_EQ(judgeHealth(facts).share, HealthLevel::eGood);
}

TEST(HealthTest, ChangesOfOthersWithoutAMessageMeanThatThisStationIsCutOff) {
  HealthFacts facts = allWell();
  facts.unannounced = 3;
  EXPECT_EQ(judgeHealth(facts).network, HealthLevel::eGood) << "nobody is there to announce them";
  facts.others = 1;
  const HealthState state = judgeHealth(facts);
  EXPECT_EQ(state.network, HealthLevel::eBad);
  EXPECT_EQ(state.upToDate, HealthLevel::eSlow);
  EXPECT_NE(state.why.find("3 changes were found in the folder and none was announced"),
            std::string::npos);
}

TEST(HealthTest, AStationOfTheSameNameIsTold) {
  HealthFacts facts = allWell();
  facts.namesake = "Another station has the same user name.";
  const HealthState state = judgeHealth(facts);
  EXPECT_EQ(state.network, HealthLevel::eSlow);
  EXPECT_EQ(state.why, "Another station has the same user name.");
}

TEST(HealthTest, LostMessagesMeanThatSomethingMayBeMissing) {
  HealthFacts facts = allWell();
  facts.missing = "12 messages of ANNA's station were lost at 12:04.";
  const HealthState state = judgeHealth(facts);
  EXPECT_EQ(state.upToDate, HealthLevel::eSlow);
  EXPECT_EQ(state.network, HealthLevel::eSlow);
  EXPECT_EQ(state.share, HealthLevel::eGood);
  EXPECT_EQ(state.why, facts.missing);
}

}  // namespace
