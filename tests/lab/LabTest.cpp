#include "tests/lab/LabTest.h"

void LabTest::expectAgreement() { EXPECT_EQ(facility_.difference(std::chrono::seconds(10)), ""); }

void LabTest::expectEachMessageOnce() {
  EXPECT_EQ(facility_.notOnce(), "");
  shows(std::to_string(facility_.machines().size()) + " stations, " +
        std::to_string(facility_.sentCount()) + " messages, each came once to every other");
}
