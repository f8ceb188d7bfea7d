#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "ProjectShare/DeviceDriver.h"
#include "host/project/iPermissionsManager.h"
#include "host/project/iProjectShare.h"
#include "station/plugin/PluginServices.h"
#include "tests/fakes/FakeHost.h"

using namespace korvel;

namespace {

using ProjectSharing::Broadcaster;
using ProjectSharing::DeviceDriver;

using Strings = std::vector<std::string>;

/// Leaves a line in the journal when the host frees it.
class NotingComponent : public KvComponentBase {
 public:
  NotingComponent() : KvComponentBase("noting") {}
  ~NotingComponent() override { FakeHost::current().journal.did("~NotingComponent"); }
};

/// A driver to which a test adds components.
class OpenDriver : public DeviceDriver {
 public:
  void addNotingComponent() { components_.push_back(new NotingComponent); }
  [[nodiscard]] std::size_t numComponents() const { return components_.size(); }
  [[nodiscard]] KvComponentBase* component(std::size_t index) const { return components_[index]; }
};

/// Leaves a line in the journal when the application ends.
class NotingCallback : public Shutdown::Callback {
 public:
  explicit NotingCallback(const std::string& line) : line_(line) {}
  void call(Shutdown::eExitType) override { FakeHost::current().journal.did(line_); }

 private:
  std::string line_;
};

class DeviceDriverTest : public testing::Test {
 protected:
  ~DeviceDriverTest() override { runShutdownCallbacks(Shutdown::eNormalExit); }

  /// What the entry says of the library's own driver, and the driver.
  bool askEntry() { return kvPluginInstance(&plugin); }

  Strings closes() const {
    Strings lines;
    for (const std::string& line : host.journal.effects()) {
      if (line.find("::close(") != line.npos || line[0] == '~') lines.push_back(line);
    }
    return lines;
  }

  FakeHost host;
  std::unique_ptr<OpenDriver> driver = std::make_unique<OpenDriver>();
  KvPluginBase* plugin = nullptr;
};

TEST_F(DeviceDriverTest, TheEntryHandsOutOneDriverAndWhetherItIsInitialised) {
  EXPECT_FALSE(askEntry());
  KvPluginBase* const first = plugin;
  ASSERT_NE(first, nullptr);
  first->postLoadInitialization();
  EXPECT_TRUE(askEntry());
  EXPECT_EQ(plugin, first);
  first->preUnloadDeinitialization();
  EXPECT_FALSE(askEntry());
  EXPECT_EQ(plugin, first);
}

TEST_F(DeviceDriverTest, TheNameAndVersionAreThoseOfThePlugIn) {
  askEntry();
  EXPECT_EQ(plugin->pluginName(), "Project Share");
  EXPECT_EQ(plugin->pluginVersion(), "14.5.0.0");
}

TEST_F(DeviceDriverTest, AfterAllPlugInsAreLoadedAndOnEnablingNothingHappens) {
  driver->postEnumerationInitialization();
  EXPECT_EQ(driver->enable(), 0);
  EXPECT_EQ(driver->disable(), 0);
  EXPECT_TRUE(host.journal.lines().empty());
}

TEST_F(DeviceDriverTest, LoadingMakesTheBroadcasterThenTheReceiverThenTheComponents) {
  driver->postLoadInitialization();
  const Strings lines = host.journal.effects();
  ASSERT_EQ(lines.size(), 7U);
  EXPECT_EQ(lines[5], "iNetworkService::createUDPBroadcaster(27015)");
  EXPECT_EQ(lines[6], "iNetworkService::createUDPListener(27015, 0)");
  ASSERT_EQ(driver->numComponents(), 2U);
  EXPECT_NE(dynamic_cast<iPermissionsManager*>(driver->component(0)), nullptr);
  EXPECT_NE(dynamic_cast<iProjectShare*>(driver->component(1)), nullptr);
  EXPECT_NE(iPermissionsManager::instance(), nullptr);
  EXPECT_NE(iProjectShare::instance(), nullptr);
  EXPECT_TRUE(driver->isInitialised());
}

TEST_F(DeviceDriverTest, LoadingAgainReplacesTheBroadcasterAndTheReceiver) {
  driver->postLoadInitialization();
  driver->postLoadInitialization();
  EXPECT_EQ(host.network.listeners.size(), 1U);
  EXPECT_EQ(host.bins.registrations.size(), 1U);
}

TEST_F(DeviceDriverTest, AFailureWhileLoadingIsLoggedOnceAndLeavesTheDriverUninitialised) {
  host.journal.onLine = [](const std::string& line) {
    if (line.find("createUDPListener") != line.npos) throw std::runtime_error("no network");
  };
  driver->postLoadInitialization();
  EXPECT_FALSE(driver->isInitialised());
  EXPECT_EQ(host.logLines,
            Strings{"both: Project Share: postLoadInitialization failed: no network\n"});
}

TEST_F(DeviceDriverTest, TheEndOfTheApplicationReleasesTheBroadcasterAndThenTheReceiver) {
  for (const auto type : {Shutdown::eNormalExit, Shutdown::eSignalledExit}) {
    OpenDriver each;
    each.postLoadInitialization();
    host.journal.clear();
    runShutdownCallbacks(type);
    EXPECT_EQ(closes(), (Strings{"iUDPBroadcaster::close(27015)", "~ProjectListener()",
                                 "iUDPListener::close(27015)"}));
    EXPECT_TRUE(each.isInitialised());
    EXPECT_EQ(each.numComponents(), 2U);
  }
}

TEST_F(DeviceDriverTest, ItsShutdownHasPriority100) {
  Shutdown::addCallback(new NotingCallback("~99"), 99);
  Shutdown::addCallback(new NotingCallback("~101"), 101);
  Shutdown::addCallback(new NotingCallback("~100 registered later"), 100);
  driver->postLoadInitialization();
  host.journal.clear();
  runShutdownCallbacks(Shutdown::eNormalExit);
  EXPECT_EQ(closes(), (Strings{"~101()", "iUDPBroadcaster::close(27015)", "~ProjectListener()",
                               "iUDPListener::close(27015)", "~100 registered later()", "~99()"}));
}

TEST_F(DeviceDriverTest, UnloadingReleasesTheTransportAndThenFreesTheComponents) {
  driver->postLoadInitialization();
  driver->addNotingComponent();
  host.journal.clear();
  driver->preUnloadDeinitialization();
  EXPECT_EQ(closes(), (Strings{"iUDPBroadcaster::close(27015)", "~ProjectListener()",
                               "iUDPListener::close(27015)", "~NotingComponent()"}));
  EXPECT_FALSE(driver->isInitialised());
  EXPECT_EQ(iPermissionsManager::instance(), nullptr);
  EXPECT_EQ(iProjectShare::instance(), nullptr);
}

TEST_F(DeviceDriverTest, UnloadingADriverThatWasNeverInitialisedDoesNothing) {
  driver->addNotingComponent();
  driver->preUnloadDeinitialization();
  EXPECT_TRUE(host.journal.lines().empty());
  EXPECT_EQ(driver->numComponents(), 1U);
}

TEST_F(DeviceDriverTest, UnloadingAfterShutdownReleasesNothingTwiceAndFreesTheComponents) {
  driver->postLoadInitialization();
  driver->addNotingComponent();
  driver->shutdown(Shutdown::eNormalExit);
  driver->shutdown(Shutdown::eNormalExit);
  host.journal.clear();
  driver->preUnloadDeinitialization();
  EXPECT_EQ(closes(), Strings{"~NotingComponent()"});
  EXPECT_FALSE(driver->isInitialised());
}

TEST_F(DeviceDriverTest, ABroadcasterThatIsHeldElsewhereSurvivesShutdown) {
  driver->postLoadInitialization();
  Kv::Ptr<Broadcaster> held;
  host.project.eachListener(
      [&held](ProjectListener& listener) { held = dynamic_cast<Broadcaster*>(&listener); });
  ASSERT_TRUE(held);
  driver->shutdown(Shutdown::eNormalExit);
  EXPECT_EQ(host.bins.registrations.size(), 1U);
  EXPECT_TRUE(host.network.listeners.empty());
  held.reset();
  EXPECT_EQ(host.bins.registrations.size(), 0U);
}

TEST_F(DeviceDriverTest, ADestroyedDriverReleasesTheReceiverThenTheBroadcasterThenTheComponents) {
  // The host's shutdown service forgets the driver, which it must not find destroyed.
  runShutdownCallbacks(Shutdown::eNormalExit);
  driver->postLoadInitialization();
  driver->addNotingComponent();
  host.journal.clear();
  driver.reset();
  EXPECT_EQ(closes(), (Strings{"iUDPListener::close(27015)", "iUDPBroadcaster::close(27015)",
                               "~ProjectListener()", "~NotingComponent()"}));
}

}  // namespace
