#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/lab/Facility.h"
#include "tests/lab/Work.h"

/// A scenario of the lab: a facility, and what must hold of it at the end.
class LabTest : public testing::Test {
 protected:
  /// Every station shows the same, and what the folder holds; ten seconds are given for messages to
  /// come.
  void expectAgreement();

  /// Every message came once to every other station.
  void expectEachMessageOnce();

  /// Says in the lab's table what the scenario showed.
  static void shows(const std::string& text) { RecordProperty("shows", text); }

  Facility facility_;
};
