#include <gtest/gtest.h>

#include <stdexcept>

#include "ProjectShare/DeviceDriver.h"
#include "host/project/iProjectShare.h"
#include "tests/fakes/FakeHost.h"

using namespace korvel;

// A host whose services fail while the plug-in is loaded and unloaded. The wrapped operations stand
// for the host's in the plug-in's calls; the first registration, made while this program's static
// objects are built, fails.

namespace {

int registrations = 0;
bool closedownThrows = false;
int closedowns = 0;

}  // namespace

extern "C" void __wrap__ZN8Shutdown11addCallbackERKN2Kv3PtrINS_8CallbackEEEi(
    const Kv::Ptr<Shutdown::Callback>&, int) {
  if (registrations++ == 0) throw std::runtime_error("no shutdown service");
}

extern "C" void __real__ZN12KvPluginBase9closedownEv(KvPluginBase* plugin);

extern "C" void __wrap__ZN12KvPluginBase9closedownEv(KvPluginBase* plugin) {
  ++closedowns;
  if (closedownThrows) throw 1;
  __real__ZN12KvPluginBase9closedownEv(plugin);
}

namespace {

class DeviceDriverFailuresTest : public testing::Test {
 protected:
  FakeHost host;
};

TEST_F(DeviceDriverFailuresTest, WithoutADriverTheEntryWritesNullAndSaysNo) {
  ProjectSharing::DeviceDriver other;
  KvPluginBase* plugin = &other;
  EXPECT_FALSE(kvPluginInstance(&plugin));
  EXPECT_EQ(plugin, nullptr);
  EXPECT_EQ(registrations, 2);
}

TEST_F(DeviceDriverFailuresTest, AnExceptionWhileFreeingComponentsIsReportedAndSwallowed) {
  ProjectSharing::DeviceDriver driver;
  driver.postLoadInitialization();
  closedownThrows = true;
  testing::internal::CaptureStdout();
  driver.preUnloadDeinitialization();
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Exception freeing deleting kvd_main devices\n");
  EXPECT_FALSE(driver.isInitialised());
  EXPECT_TRUE(host.network.listeners.empty());
}

TEST_F(DeviceDriverFailuresTest, ADriverThatWasNeverInitialisedIsNotClosedDown) {
  ProjectSharing::DeviceDriver driver;
  driver.preUnloadDeinitialization();
  EXPECT_EQ(closedowns, 0);
  driver.postLoadInitialization();
  driver.preUnloadDeinitialization();
  EXPECT_EQ(closedowns, 1);
}

}  // namespace
