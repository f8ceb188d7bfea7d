#include <dlfcn.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "host/plugin/KvPluginBase.h"
#include "host/plugin/Shutdown.h"

// The library brings its own copy of the compiler's unwinder. An exception that the host throws
// into it must be caught there all the same. This program's own Shutdown::addCallback comes before
// the host's when the library is loaded.

namespace {

int registrations = 0;

}  // namespace

KV_HOST_API void Shutdown::addCallback(const Kv::Ptr<Callback>&, int) {
  ++registrations;
  throw std::runtime_error("no shutdown service");
}

namespace {

TEST(PluginLibraryExceptionTest, AnExceptionOfTheHostWhileLoadingLeavesNoDriver) {
  void* const library = dlopen(KV_PLUGIN, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  using Entry = bool (*)(KvPluginBase**);
  const auto entry = reinterpret_cast<Entry>(dlsym(library, "kvPluginInstance"));
  ASSERT_NE(entry, nullptr);
  auto* plugin = reinterpret_cast<KvPluginBase*>(&registrations);
  EXPECT_FALSE(entry(&plugin));
  EXPECT_EQ(plugin, nullptr);
  EXPECT_EQ(registrations, 1);
  EXPECT_EQ(dlclose(library), 0);
}

}  // namespace
