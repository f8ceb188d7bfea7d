#include <gtest/gtest.h>

#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>

#include "app/window/ConversationView.h"
#include "app/window/MessageBar.h"
#include "tests/window/WindowScene.h"

namespace {

class WindowBadInputTest : public testing::Test, protected WindowScene {
 protected:
  static void openPanel(MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return window.snapshot() != nullptr; }));
    QTest::keyClick(&window, Qt::Key_M, Qt::ControlModifier);
    ASSERT_TRUE(waitFor([&] { return window.panel().isVisible(); }));
  }

  static void send(MainWindow& window, const QString& text) {
    window.panel().entry().setText(text);
    QTest::keyClick(&window.panel().entry(), Qt::Key_Return);
  }
};

TEST_F(WindowBadInputTest, ALongMessageOfAllLettersArrivesAsTyped) {
  play([this](MainWindow& window) {
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    openPanel(window);
    QString text = QString::fromUtf8(u8"\U0001F600 \u05E9\u05DC\u05D5\u05DD \u00FC ");
    while (text.size() < 60'000) text += QStringLiteral("abcdefghij");
    QElapsedTimer t; t.start();
    send(window, text);
    fprintf(stderr, "send %lld\n", t.elapsed());
    EXPECT_TRUE(ben.waitFor("notification", {{"text", text.toStdString()}}));
    fprintf(stderr, "notif %lld\n", t.elapsed());
    EXPECT_TRUE(waitFor([&] { return window.panel().state().lines.size() == 1; }));
    fprintf(stderr, "lines %lld\n", t.elapsed());
    EXPECT_FALSE(window.grab().isNull());
    fprintf(stderr, "grab %lld\n", t.elapsed());
  });
}

}  // namespace
