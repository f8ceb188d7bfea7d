#include <gtest/gtest.h>

#include "tests/fault/KillSession.h"

using namespace korvel;

namespace {

void expectNothingLost(const KillOutcome& outcome, int rounds) {
  EXPECT_EQ(outcome.lost, std::vector<std::string>{});
  EXPECT_GE(outcome.rounds, rounds);
  EXPECT_GT(outcome.saved, rounds);
  EXPECT_GT(outcome.deleted + outcome.restored, 0);
  EXPECT_GT(outcome.needed, rounds / 3);
  EXPECT_GE(outcome.recovered, outcome.needed - 1);
}

TEST(KillSessionTest, NothingIsLostWhenAStationIsKilledAtAnyMoment) {
  expectNothingLost(KillSession(20240531).run(14), 14);
}

TEST(KillSessionTest, NothingIsLostWhereTheDiskIsFullAsWell) {
  KillSession session(20240601, Trouble::eFull);
  if (!session.isAble()) GTEST_SKIP() << "a disk that fills up needs a mount";
  const KillOutcome outcome = session.run(6);
  expectNothingLost(outcome, 6);
  EXPECT_GT(outcome.refused, 0);
  EXPECT_GT(outcome.inTrouble, 0);
}

TEST(KillSessionTest, NothingIsLostWhereTheShareComesAndGoesAsWell) {
  const KillOutcome outcome = KillSession(20240602, Trouble::eGone).run(6);
  expectNothingLost(outcome, 6);
  EXPECT_GT(outcome.refused, 0);
  EXPECT_GT(outcome.inTrouble, 0);
}

}  // namespace
