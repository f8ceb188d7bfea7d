#include <gtest/gtest.h>
#include <unistd.h>

#include <QHeaderView>
#include <QScrollBar>
#include <atomic>
#include <thread>

#include "station/base/StationSettings.h"
#include "tests/window/WindowScene.h"

namespace {

constexpr double kMostLagMs = 100;
constexpr double kMostOpeningMs = 300;

class WindowUnderLoadTest : public testing::Test, protected WindowScene {};

/// Says the same message a thousand times a second, as a busy network does.
class Flood {
 public:
  Flood(const WindowScene& scene, std::string text) : scene_(scene), text_(std::move(text)) {
    thread_ = std::thread([this] { run(); });
  }
  ~Flood() {
    isEnding_ = true;
    thread_.join();
  }
  [[nodiscard]] int count() const { return count_; }

 private:
  void run() {
    auto next = std::chrono::steady_clock::now();
    while (!isEnding_) {
      scene_.sayAloud(text_);
      ++count_;
      next += std::chrono::milliseconds(1);
      std::this_thread::sleep_until(next);
    }
  }

  const WindowScene& scene_;
  std::string text_;
  std::atomic<bool> isEnding_ = false;
  std::atomic<int> count_ = 0;
  std::thread thread_;
};

std::string folderOf(const MainWindow& window) {
  return settings().projectsDirectory + "/" + window.snapshot()->project.cookie.toStdString();
}

TEST_F(WindowUnderLoadTest, TenThousandEditsAreListedAtOnceAndScroll) {
  script = "project create Many\n";
  play([this](MainWindow& window) {
    ASSERT_TRUE(
        waitFor([&] { return window.snapshot() && !window.snapshot()->projects->empty(); }));
    writeEdits(10'000);
    Snapshot many;
    QObject::connect(&window.link(), &HostLink::snapshotReady, &window,
                     [&](const SnapshotPtr& snapshot) { many = *snapshot; });
    command(window, "project enter Many");
    const auto isListed = [&] {
      return window.objects().rows(ObjectKind::eEdits).size() == 10'000;
    };
    ASSERT_TRUE(waitFor(isListed, 60'000));
    ObjectsPane fresh;
    fresh.resize(900, 600);
    const double before = ownMilliseconds();
    fresh.show(many);
    EXPECT_FALSE(fresh.grab().isNull());
    EXPECT_LT(ownMilliseconds() - before, kMostOpeningMs);
    const LatencyWatch latency;
    QScrollBar& bar = *window.objects().view(ObjectKind::eEdits).verticalScrollBar();
    for (int at = 0; at <= bar.maximum(); at += bar.maximum() / 50) {
      bar.setValue(at);
      QTest::qWait(10);
    }
    EXPECT_LT(latency.longestWork(), kMostLagMs);
  });
}

TEST_F(WindowUnderLoadTest, AThousandChangesASecondDoNotMakeItLag) {
  script = "project create Busy\n";
  play([this](MainWindow& window) {
    ASSERT_TRUE(
        waitFor([&] { return window.snapshot() && !window.snapshot()->projects->empty(); }));
    writeEdits(1'000);
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    command(window, "project enter Busy");
    ASSERT_TRUE(waitFor([&] { return window.objects().rows(ObjectKind::eEdits).size() == 1'000; }));
    EXPECT_TRUE(ben.command("project enter Busy")["ok"].asBool());
    EXPECT_TRUE(ben.command("edit create New")["ok"].asBool());
    EXPECT_TRUE(ben.command("edit save New")["ok"].asBool());
    const auto sent = ben.waitFor("sent", {{"type_name", "EditSaved"}});
    ASSERT_TRUE(sent);
    const LatencyWatch latency;
    const Flood flood(*this, bytesOf((*sent)["text_hex"].asString()));
    QTest::qWait(3000);
    EXPECT_GT(flood.count(), 1'500);
    EXPECT_LT(latency.longestWork(), kMostLagMs);
    EXPECT_LT(latency.ninetyNinth(), kStandingStillMs);
    EXPECT_TRUE(waitFor([&] { return window.received() > 500; }));
  });
}

// What another station announced does not show on the share: the host thread waits a second for it,
// each time.
TEST_F(WindowUnderLoadTest, WithAHangingShareItDrawsAndSaysWhatItWaitsFor) {
  script = "project create Harbour\nproject enter Harbour\n";
  play([this](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    EXPECT_TRUE(ben.command("project enter Harbour")["ok"].asBool());
    const std::string log = ben.command("log create Reel")["result"].asString();
    const auto sent = ben.waitFor("sent", {{"cookie", log}});
    ASSERT_TRUE(sent);
    std::filesystem::remove(folderOf(window) + "/" + log + ".otio");
    const LatencyWatch latency;
    for (int i = 0; i < 4; ++i) sayAloud(bytesOf((*sent)["text_hex"].asString()));
    const auto isWaiting = [&] { return window.status().busyText().startsWith("Waiting"); };
    EXPECT_TRUE(waitFor(isWaiting));
    EXPECT_TRUE(window.status().busyText().contains("the message EditCreated"));
    EXPECT_FALSE(window.grab().isNull());
    EXPECT_TRUE(waitFor([&] { return window.status().busyText() == "Ready"; }));
    EXPECT_LT(latency.ninetyNinth(), kStandingStillMs);
  });
}

TEST_F(WindowUnderLoadTest, WithoutADisplayItEndsWithOneLineAndStatusTwo) {
  for (const char* variable : {"QT_QPA_PLATFORM", "DISPLAY", "WAYLAND_DISPLAY"}) {
    ::unsetenv(variable);
  }
  for (const char* display : {"", ":4711"}) {
    ::setenv("DISPLAY", display, 1);
    StationProcess::Options options = other("ANNA");
    options.more = {"--gui"};
    StationProcess station(options);
    EXPECT_EQ(station.waitForExit(), 2) << display;
    EXPECT_TRUE(waitFor([&] { return station.errorText().ends_with('\n'); }));
    const std::string said = station.errorText();
    EXPECT_NE(said.find("no display"), std::string::npos) << said;
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
  }
}

}  // namespace
