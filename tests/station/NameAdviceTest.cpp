#include "station/Station.h"

#include <gtest/gtest.h>

#include <fstream>

#include "station/base/StationSettings.h"
#include "tests/fakes/ScratchFolder.h"

using namespace korvel;

namespace {

struct NameAdviceRow {
  const char* user;
  const char* host;
  const char* said;  ///< empty for nothing
};

class NameAdviceTest : public testing::Test {
 protected:
  [[nodiscard]] std::string adviceFor(const std::string& user, const std::string& host) const {
    StationSettings with;
    with.projectsDirectory = folder_.path();
    with.user = user;
    with.host = host;
    installSettings(with);
    return Station::adviceOnNames();
  }

  ScratchFolder folder_;
};

TEST_F(NameAdviceTest, IsGivenWhereMessagesToTheUserAloneDoNotArriveAsUsual) {
  const NameAdviceRow rows[] = {
      {"ANNA", "anna", ""},
      {"anna", "anna", "others address you by your host's name, \"ANNA\""},
      {"J\xC3\x9CRGEN", "j\xC3\xBCrgen", "holds letters that are not ASCII"},
      {"<All>", "anna", "is no name for a user"},
      {"render", "render", "is no name for a user"},
      {"<NOBODY>", "<nobody>", "is no name for a user"},
  };
  for (const NameAdviceRow& row : rows) {
    const std::string advice = adviceFor(row.user, row.host);
    EXPECT_NE(advice.find(row.said), advice.npos) << row.user << ": " << advice;
    EXPECT_EQ(advice.empty(), *row.said == '\0') << row.user << ": " << advice;
  }
}

TEST_F(NameAdviceTest, AUserWhomTheUserListLeavesOutIsTold) {
  std::ofstream(folder_ / "userlist.dat") << "Ben\r\nCarl\r\n";
  EXPECT_NE(adviceFor("ANNA", "ANNA").find("does not hold \"ANNA\""), std::string::npos);
  EXPECT_EQ(adviceFor("BEN", "BEN"), "");
  std::ofstream(folder_ / "userlist.dat") << "\n\n";
  EXPECT_EQ(adviceFor("ANNA", "ANNA"), "") << "a list without names names nobody";
}

}  // namespace
