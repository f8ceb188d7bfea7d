#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "host/base/Config.h"
#include "host/base/Log.h"
#include "host/base/Ptr.h"
#include "station/base/Log.h"
#include "station/base/StationSettings.h"
#include "tests/support/RecordedEvents.h"

using namespace korvel;

namespace {

/// An object that counts its destructions.
class Counted : public Kv::InternalRefCount {
 public:
  explicit Counted(int& destroyed) : destroyed_(destroyed) {}
  ~Counted() override { ++destroyed_; }

 private:
  int& destroyed_;
};

/// An object that points to itself once more while it is being destroyed.
class SelfReferring : public Kv::InternalRefCount {
 public:
  explicit SelfReferring(int& destroyed) : destroyed_(destroyed) {}
  ~SelfReferring() override {
    ++destroyed_;
    const Kv::Ptr<SelfReferring> again(this);
  }

 private:
  int& destroyed_;
};

void configure(const std::string& value) {
  StationSettings settings;
  settings.config["key"] = value;
  installSettings(settings);
}

std::string contentOf(std::FILE* stream) {
  std::string content(1000, '\0');
  std::rewind(stream);
  content.resize(std::fread(content.data(), 1, content.size(), stream));
  return content;
}

}  // namespace

TEST(PtrTest, TheLastReferenceDestroysTheObject) {
  int destroyed = 0;
  Kv::Ptr<Counted> first(new Counted(destroyed));
  Kv::Ptr<Counted> second = first;
  const Kv::Ptr<Kv::InternalRefCount> base = second;
  first.reset();
  second = nullptr;
  EXPECT_EQ(destroyed, 0);
  Kv::Ptr<Kv::InternalRefCount> last = base;
  EXPECT_TRUE(last == base);
  const_cast<Kv::Ptr<Kv::InternalRefCount>&>(base).reset();
  last.reset();
  EXPECT_EQ(destroyed, 1);
}

TEST(PtrTest, AnObjectThatPointsToItselfWhileItGoesIsDestroyedOnce) {
  int destroyed = 0;
  Kv::Ptr<SelfReferring>(new SelfReferring(destroyed)).reset();
  EXPECT_EQ(destroyed, 1);
}

TEST(PtrTest, ThreadsMayShareAnObject) {
  int destroyed = 0;
  {
    const Kv::Ptr<Counted> shared(new Counted(destroyed));
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&shared] {
        for (int round = 0; round < 20'000; ++round) const Kv::Ptr<Counted> copy(shared);
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(destroyed, 0);
  }
  EXPECT_EQ(destroyed, 1);
}

TEST(ConfigTest, WholeNumbersAreReadAndEverythingElseGivesTheDefault) {
  struct Row {
    std::string value;
    int read;
  };
  for (const Row& row : std::vector<Row>{{"0", 0},
                                         {"1", 1},
                                         {"-5", -5},
                                         {"+7", 7},
                                         {" 27015\t", 27015},
                                         {"2147483647", 2147483647},
                                         {"2147483648", 99},
                                         {"", 99},
                                         {" ", 99},
                                         {"+", 99},
                                         {"+-1", 99},
                                         {"1.5", 99},
                                         {"0x10", 99},
                                         {"12 13", 99},
                                         {"yes", 99}}) {
    configure(row.value);
    EXPECT_EQ(config_int("key", 99), row.read) << '"' << row.value << '"';
  }
}

TEST(ConfigTest, AnAbsentKeyGivesTheDefault) {
  configure("1");
  EXPECT_EQ(config_int("Key", 27015), 27015);
  EXPECT_EQ(config_int(nullptr, 5), 5);
}

TEST(DiagnosticsTest, AFailedAssertionIsPrintedAndTold) {
  RecordedEvents events;
  std::FILE* const stream = std::tmpfile();
  setDiagnosticStream(stream);
  assertionFailed("t != eEditModification", "ProjectShare/NetMessage line 46");
  printToStandardOutput("no line end");
  setDiagnosticStream(nullptr);
  EXPECT_EQ(contentOf(stream),
            "assertion failed t != eEditModification at ProjectShare/NetMessage line 46\n"
            "no line end");
  std::fclose(stream);
  EXPECT_EQ(events.lines.size(), 2U);
  EXPECT_EQ(events.lines[1], "file: no line end");
}

TEST(DiagnosticsTest, StandardOutputIsWhereItGoesByItself) {
  testing::internal::CaptureStdout();
  assertionFailed("false", "misc/NumRange line 123");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "assertion failed false at misc/NumRange line 123\n");
}
