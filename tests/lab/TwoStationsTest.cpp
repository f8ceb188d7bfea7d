#include "tests/lab/LabTest.h"

namespace {

using TwoStationsTest = LabTest;

TEST_F(TwoStationsTest, TwoStationsShareAProject) {
  Network& office = facility_.network();
  facility_.workstation("ANNA", {&office});
  facility_.workstation("BEN", {&office});
  facility_.open();
  everyoneWorks(facility_);
  everyoneGives(facility_);
  expectEachMessageOnce();
  expectAgreement();
}

}  // namespace
