#include <gtest/gtest.h>

#include "tests/fault/KillSession.h"

using namespace korvel;

namespace {

TEST(KillSessionTest, NothingIsLostWhenAStationIsKilledAtAnyMoment) {
  KillSession session(20240531);
  const KillOutcome outcome = session.run(12, KillSession::Moments::eThirdAtRest);
  EXPECT_EQ(outcome.lost, std::vector<std::string>{});
  EXPECT_EQ(outcome.rounds, 12);
  EXPECT_GT(outcome.saved, 20);
  EXPECT_GT(outcome.deleted, 0);
  EXPECT_GT(outcome.restored, 0);
  EXPECT_GT(outcome.recovered, 0);
}

}  // namespace
