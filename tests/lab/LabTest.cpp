#include "tests/lab/LabTest.h"

#include <array>
#include <cstdio>

using namespace korvel;

void LabTest::expectAgreement() { EXPECT_EQ(facility_.difference(std::chrono::seconds(30)), ""); }

std::string LabTest::expectCatchingUp() {
  constexpr double kLongest = 5;
  const double seconds = facility_.timeToAgree(std::chrono::seconds(60)).count();
  EXPECT_LE(seconds, kLongest);
  expectAgreement();
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "all agreed %.1f s after the last write", seconds);
  return text.data();
}

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
