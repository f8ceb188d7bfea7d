#include <gtest/gtest.h>

#include "tests/support/OwnHome.h"

int main(int argc, char** argv) {
  const korvel::OwnHome home;
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
