#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/plugin/KvPluginBase.h"
#include "host/plugin/Shutdown.h"
#include "station/plugin/PluginServices.h"
#include "tests/support/RecordedEvents.h"

using namespace korvel;

namespace {

using Noted = std::vector<std::string>;

class Component : public KvComponentBase {
 public:
  Component(const char* name, Noted& noted) : KvComponentBase(name), noted_(noted) {}
  ~Component() override { noted_.push_back(componentName().str()); }

 private:
  Noted& noted_;
};

class Plugin : public KvPluginBase {
 public:
  Plugin() : KvPluginBase("Project Share", "14.5.0.0") {}
  void add(KvComponentBase* component) { components_.push_back(component); }
  void close() { closedown(); }
};

/// Notes its name when the application ends.
class Callee {
 public:
  Callee(std::string name, Noted& noted, int priority) : name_(std::move(name)), noted_(noted) {
    Shutdown::addCallback(new Shutdown::MethodCallback<Callee>(this, &Callee::shutdown), priority);
  }

  void shutdown(Shutdown::eExitType type) {
    noted_.push_back(name_ + std::to_string(type));
    if (name_ == "bad") throw std::runtime_error("broken");
  }

 private:
  std::string name_;
  Noted& noted_;
};

struct Something {};

}  // namespace

TEST(KvPluginBaseTest, ItKeepsItsNameAndVersionAndIsNotInitialised) {
  const Plugin plugin;
  EXPECT_EQ(plugin.pluginName(), "Project Share");
  EXPECT_EQ(plugin.pluginVersion(), "14.5.0.0");
  EXPECT_FALSE(plugin.isInitialised());
}

TEST(KvPluginBaseTest, ClosingDownDeletesTheComponentsTheLastOneFirstAndOnce) {
  Noted noted;
  {
    Plugin plugin;
    plugin.add(new Component("first", noted));
    plugin.add(new Component("second", noted));
    plugin.close();
    EXPECT_EQ(noted, (Noted{"second", "first"}));
    plugin.close();
  }
  EXPECT_EQ(noted.size(), 2U);
}

TEST(KvPluginBaseTest, DestructionClosesDown) {
  Noted noted;
  std::make_unique<Plugin>()->add(new Component("only", noted));
  EXPECT_EQ(noted, (Noted{"only"}));
}

TEST(InstanceRegistryTest, TheOneRegisteredLastThatStillLivesIsUsed) {
  Something first;
  Something second;
  Something third;
  using Registry = InstanceRegistry<Something>;
  EXPECT_EQ(Registry::newest(), nullptr);
  for (Something* const each : {&first, &second, &third}) Registry::add(each);
  EXPECT_EQ(Registry::newest(), &third);
  Registry::remove(&second);
  EXPECT_EQ(Registry::newest(), &third);
  Registry::remove(&third);
  EXPECT_EQ(Registry::newest(), &first);
  Registry::remove(&first);
  EXPECT_EQ(Registry::newest(), nullptr);
}

TEST(ShutdownTest, TheHighestPriorityIsCalledFirstAndEqualOnesInOrder) {
  Noted noted;
  const Callee low("low", noted, 1);
  const Callee high("high", noted, 100);
  const Callee equal("equal", noted, 100);
  const Callee middle("middle", noted, 50);
  runShutdownCallbacks(Shutdown::eSignalledExit);
  EXPECT_EQ(noted, (Noted{"high1", "equal1", "middle1", "low1"}));
}

TEST(ShutdownTest, EachCallbackIsCalledOnce) {
  Noted noted;
  const Callee only("only", noted, 100);
  runShutdownCallbacks(Shutdown::eNormalExit);
  runShutdownCallbacks(Shutdown::eNormalExit);
  EXPECT_EQ(noted, (Noted{"only0"}));
}

TEST(ShutdownTest, ACallbackThatThrowsIsLoggedAndTheOthersGoOn) {
  Noted noted;
  RecordedEvents events;
  const Callee bad("bad", noted, 2);
  const Callee good("good", noted, 1);
  runShutdownCallbacks(Shutdown::eNormalExit);
  EXPECT_EQ(noted, (Noted{"bad0", "good0"}));
  EXPECT_EQ(events.lines.size(), 1U);
}

TEST(ShutdownTest, AnEmptyCallbackIsNotKept) {
  Shutdown::addCallback({}, 100);
  runShutdownCallbacks(Shutdown::eNormalExit);
}
