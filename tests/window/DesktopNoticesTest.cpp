#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QElapsedTimer>
#include <QPlainTextEdit>
#include <QProcess>
#include <QStandardPaths>

#include "app/window/EventPanes.h"
#include "app/window/TalkPanes.h"
#include "app/window/WindowLayout.h"
#include "tests/window/WindowScene.h"

using namespace korvel;

namespace {

/// What a desktop does with notifications: notes them.
class FakeDesktop : public QDBusVirtualObject {
 public:
  QString introspect(const QString&) const override { return {}; }

  bool handleMessage(const QDBusMessage& message, const QDBusConnection& bus) override {
    if (message.member() != QLatin1String("Notify")) return false;
    shown.append(message.arguments());
    return bus.send(message.createReply(QVariant::fromValue<uint>(41 + ++count)));
  }

  QList<QVariantList> shown;
  uint count = 0;
};

/// A session's bus of its own, with a desktop on it.
class FakeSession {
 public:
  /// Starts the bus; false where there is none to start.
  bool start() {
    if (QStandardPaths::findExecutable("dbus-daemon").isEmpty()) return false;
    bus_.start("dbus-daemon", {"--session", "--nofork", "--print-address"});
    if (!bus_.waitForReadyRead(60'000)) return false;
    address_ = QString::fromLatin1(bus_.readLine().trimmed());
    qputenv("DBUS_SESSION_BUS_ADDRESS", address_.toLatin1());
    return true;
  }

  /// The desktop comes; there is an application by now.
  bool join() {
    QDBusConnection server = QDBusConnection::connectToBus(address_, "desktop");
    return server.registerService("org.freedesktop.Notifications") &&
           server.registerVirtualObject("/org/freedesktop/Notifications", &desktop);
  }

  bool isShown(const QString& text) {
    return waitFor([&] { return !desktop.shown.isEmpty() && desktop.shown.back()[4] == text; });
  }

  /// Everybody leaves, while there is an application still.
  void leave() {
    QDBusConnection::disconnectFromBus("desktop");
    bus_.kill();
    bus_.waitForFinished();
  }

  FakeDesktop desktop;

 private:
  QProcess bus_;
  QString address_;
};

struct DesktopNoticesTest : testing::Test {
  void SetUp() override {
    if (!session.start()) GTEST_SKIP() << "there is no dbus-daemon to make a session's bus with";
    ASSERT_TRUE(session.join());
  }

  void TearDown() override { session.leave(); }

  const WithoutDisplay display;
  FakeSession session;
};

TEST_F(DesktopNoticesTest, EachStandsInThePlaceOfTheLastAndMarkupIsShownAsWritten) {
  ASSERT_TRUE(DesktopNotices::isPossible());
  DesktopNotices notices;
  notices.tell("BEN", "<b>lunch</b> & tea");
  ASSERT_TRUE(session.isShown("&lt;b&gt;lunch&lt;/b&gt; &amp; tea"));
  EXPECT_EQ(session.desktop.shown.back()[0], "kv-station");
  EXPECT_EQ(session.desktop.shown.back()[1].toUInt(), 0u);
  EXPECT_EQ(session.desktop.shown.back()[3], "BEN");
  notices.tell("CARL", "two");
  ASSERT_TRUE(session.isShown("two"));
  EXPECT_EQ(session.desktop.shown.back()[1].toUInt(), 42u)
      << "the number that the desktop gave the first";
}

TEST_F(DesktopNoticesTest, AFloodIsAFewNoticesWithTheLastOfAll) {
  DesktopNotices notices;
  for (int i = 0; i <= 1000; ++i) notices.tell("BEN", QString::number(i));
  ASSERT_TRUE(session.isShown("1000"));
  EXPECT_LT(session.desktop.shown.size(), 1000);
}

TEST(DesktopNoticesAloneTest, WithoutABusNothingIsTriedAndNothingWaits) {
  qunsetenv("DBUS_SESSION_BUS_ADDRESS");
  qunsetenv("XDG_RUNTIME_DIR");
  EXPECT_FALSE(DesktopNotices::isPossible());
  qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere/at/all");
  const WithoutDisplay display;
  QElapsedTimer took;
  took.start();
  DesktopNotices().tell("BEN", "lunch");
  EXPECT_LT(took.elapsed(), 10'000);
}

class DesktopNoticesWindowTest : public testing::Test, protected WindowScene {};

TEST_F(DesktopNoticesWindowTest, WhatIsSaidIsToldOnTheDesktopUnlessTheWindowIsLookedAt) {
  FakeSession session;
  if (!session.start()) GTEST_SKIP() << "there is no dbus-daemon to make a session's bus with";
  script = "user add BEN\n";
  play([&](MainWindow& window) {
    ASSERT_TRUE(session.join());
    // What was said before is no news.
    ASSERT_TRUE(waitFor([&] { return window.snapshot() != nullptr; }));
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    ben.command("user add ANNA");
    const auto say = [&](const std::string& words) {
      ben.command("say ANNA " + words);
      const QString text = QString::fromStdString(words);
      return waitFor([&] { return window.conversation().view().toPlainText().contains(text); });
    };
    QWidget front;
    front.show();
    QApplication::setActiveWindow(&front);
    EXPECT_TRUE(say("lunch"));
    ASSERT_TRUE(session.isShown("lunch"));
    EXPECT_EQ(session.desktop.shown.back()[3], "BEN");
    EXPECT_TRUE(say("tea"));
    ASSERT_TRUE(session.isShown("tea"));
    EXPECT_EQ(session.desktop.shown.back()[3], "BEN (2 unread)");
    QApplication::setActiveWindow(&window);
    EXPECT_TRUE(say("supper"));
    windowSettings().setValue("desktopNotices", false);
    QApplication::setActiveWindow(&front);
    EXPECT_TRUE(say("breakfast"));
    windowSettings().setValue("desktopNotices", true);
    EXPECT_TRUE(say("milk"));
    ASSERT_TRUE(session.isShown("milk"));
    EXPECT_EQ(session.desktop.shown.size(), 3) << "neither supper nor breakfast";
    session.leave();
  });
}

TEST_F(DesktopNoticesWindowTest, WhatIsFreeIsToldToWhoLooksElsewhere) {
  FakeSession session;
  if (!session.start()) GTEST_SKIP() << "there is no dbus-daemon to make a session's bus with";
  script = "project create Trailer --private\n";
  play([&](MainWindow& window) {
    ASSERT_TRUE(session.join());
    ASSERT_TRUE(waitFor([&] { return window.snapshot() != nullptr; }));
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    EXPECT_TRUE(ben.command("project enter Trailer")["ok"].asBool());
    QWidget front;
    front.show();
    QApplication::setActiveWindow(&front);
    bool isAwaited = false;
    window.link().run("tell-when-free Trailer",
                      [&](const CommandOutcome& outcome) { isAwaited = outcome.succeeded; });
    ASSERT_TRUE(waitFor([&] { return isAwaited; }));
    EXPECT_TRUE(ben.command("project leave")["ok"].asBool());
    EXPECT_TRUE(waitFor(
        [&] { return session.isShown("You can have the project &quot;Trailer&quot; now."); },
        60'000));
    session.leave();
  });
}

}  // namespace
