#include "tests/lab/LabTest.h"

using namespace korvel;

namespace {

using TwoStationsTest = LabTest;

TEST_F(TwoStationsTest, TwoStationsShareAProject) {
  openTwo();
  everyoneWorks(facility_);
  everyoneGives(facility_);
  expectEachMessageOnce();
  expectAgreement();
  shows(figures() + ", each came once");
}

}  // namespace
