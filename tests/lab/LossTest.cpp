#include "tests/lab/LabTest.h"

using namespace korvel;

namespace {

/// Three stations whose every cable is bad.
class LossTest : public LabTest {
 protected:
  void openWith(LineFaults faults) {
    for (const char* const host : {"ANNA", "BEN", "CARLA"}) {
      facility_.workstation(host, {&office_}).cable().degrade(faults);
      ++faults.seed;
    }
    facility_.open();
  }

  void losePercent(int percent) {
    openWith({.lost = percent});
    constexpr int kRounds = 3;
    for (int round = 0; round < kRounds || facility_.counts().lost == 0; ++round) {
      everyoneWorks(facility_);
    }
    EXPECT_GT(facility_.counts().lost, 0u);
    const std::string agreed = expectCatchingUp();
    shows(figures() + ", " + std::to_string(facility_.counts().lost) + " datagrams lost; " +
          agreed);
  }
};

TEST_F(LossTest, OnePercentIsLost) { losePercent(1); }

TEST_F(LossTest, TenPercentAreLost) { losePercent(10); }

TEST_F(LossTest, ThirtyPercentAreLost) { losePercent(30); }

TEST_F(LossTest, AllAreLost) { losePercent(100); }

TEST_F(LossTest, AllDatagramsComeTwice) {
  openWith({.doubled = 100});
  everyoneWorks(facility_);
  everyoneGives(facility_);
  expectAgreement();
  EXPECT_GT(facility_.counts().doubled, 0u);
  shows(figures() + ", " + std::to_string(facility_.counts().doubled) + " datagrams doubled");
}

TEST_F(LossTest, DatagramsOvertakeEachOther) {
  openWith({.late = 30});
  everyoneWorks(facility_);
  expectAgreement();
  EXPECT_GT(facility_.counts().late, 0u);
  shows(figures() + ", " + std::to_string(facility_.counts().late) + " datagrams overtaken");
}

}  // namespace
