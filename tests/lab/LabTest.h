#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/lab/Facility.h"
#include "tests/lab/Work.h"

namespace korvel {

/// A scenario of the lab: a facility, and what must hold of it at the end.
class LabTest : public testing::Test {
 protected:
  /// Every station shows the same, and what the folder holds; messages are given half a
  /// minute to come.
  void expectAgreement();

  /// Stations that missed messages show what the folder holds within five seconds of now, the last
  /// write, though nobody enters anything again. "all agreed 0.8 s after the last write".
  std::string expectCatchingUp();

  /// Stations that missed messages show the same once they entered the project again. Returns
  /// whether they differed before.
  bool expectHealing();

  /// Every message came once to every other station.
  void expectEachMessageOnce(Facility::Strangers strangers = Facility::Strangers::eNone);

  /// What is tallied, for the table: "3 stations, 120 messages".
  [[nodiscard]] std::string figures() const;

  /// Says in the lab's table what the scenario showed.
  static void shows(const std::string& text) { RecordProperty("shows", text); }

  /// ANNA and BEN on one network, with the project open.
  void openTwo();

  Facility facility_;
  Network& office_ = facility_.network();
  Workstation* anna_ = nullptr;
  Workstation* ben_ = nullptr;
};

}  // namespace korvel
