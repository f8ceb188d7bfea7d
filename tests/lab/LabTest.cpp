#include "tests/lab/LabTest.h"

using namespace korvel;

void LabTest::expectAgreement() { EXPECT_EQ(facility_.difference(std::chrono::seconds(30)), ""); }

bool LabTest::expectHealing() {
  const bool differed = !facility_.difference(std::chrono::seconds(1)).empty();
  facility_.reenter();
  expectAgreement();
  return differed;
}

void LabTest::expectEachMessageOnce(Facility::Strangers strangers) {
  EXPECT_EQ(facility_.notOnce(strangers), "");
}

std::string LabTest::figures() const {
  return std::to_string(facility_.machines().size()) + " stations, " +
         std::to_string(facility_.sentCount()) + " messages";
}

void LabTest::openTwo() {
  anna_ = &facility_.workstation("ANNA", {&office_});
  ben_ = &facility_.workstation("BEN", {&office_});
  facility_.open();
}
