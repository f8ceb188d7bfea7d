#include <gtest/gtest.h>

#include <string>

#include "ProjectShare/PermissionsManager.h"
#include "tests/fakes/FakeHost.h"

using namespace korvel;

// The plug-in learns while it is loaded whether its user is an administrator. This program answers
// for the host's configuration, from KV_ADMINISTRATOR.

namespace {

int administratorReads = 0;

}  // namespace

extern "C" int __real__Z10config_intPKci(const char* key, int defaultValue);

extern "C" int __wrap__Z10config_intPKci(const char* key, int defaultValue) {
  if (std::string(key) != "Administrator") return __real__Z10config_intPKci(key, defaultValue);
  ++administratorReads;
  return KV_ADMINISTRATOR;
}

namespace {

constexpr bool kIsAdministrator = KV_ADMINISTRATOR == 1;

class AdministratorTest : public testing::TestWithParam<int> {
 protected:
  /// Whether an edit with this owner may be modified.
  bool mayModify(const char* owner) {
    const Cookie cookie("E0001", false);
    host.edits.add(cookie).settings.values["OWNER"] = owner;
    manager.flushOnProjectChange();
    return manager.isModificationAllowed(cookie, eModTrim);
  }

  FakeHost host;
  PermissionsManager manager;
};

TEST_P(AdministratorTest, TheValueOneAloneAllowsEvenWhatARenderJobOwns) {
  EXPECT_EQ(mayModify("RENDER"), kIsAdministrator);
  EXPECT_EQ(mayModify("SOMEBODY"), kIsAdministrator);
  EXPECT_EQ(manager.isDirtiable(Cookie("E0001", false)), kIsAdministrator);
}

TEST_P(AdministratorTest, TheConfigurationIsReadOnceWhileLoading) {
  mayModify("SOMEBODY");
  PermissionsManager another;
  EXPECT_EQ(administratorReads, 1);
}

TEST_P(AdministratorTest, AnAdministratorsQuestionOpensNothing) {
  mayModify("SOMEBODY");
  EXPECT_EQ(host.journal.count("EditPtr::i_open(E0001, 0)"), kIsAdministrator ? 0 : 1);
}

INSTANTIATE_TEST_SUITE_P(Configured, AdministratorTest, testing::Values(KV_ADMINISTRATOR),
                         testing::PrintToStringParamName());

}  // namespace
