#include <gtest/gtest.h>

#include <QAction>
#include <QComboBox>
#include <QDesktopServices>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QTextBrowser>
#include <QUrl>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>

#include "app/base/OptionTable.h"
#include "app/window/MessageBar.h"
#include "app/window/PreferencesDialog.h"
#include "tests/window/WindowScene.h"

using namespace korvel;

namespace {

class PreferencesTest : public testing::Test, protected WindowScene {
 protected:
  [[nodiscard]] std::string file() const { return folder / "config/korvel/station.conf"; }

  [[nodiscard]] std::string configured() const {
    std::ifstream in(file());
    return {std::istreambuf_iterator<char>(in), {}};
  }

  void configure(const std::string& text) const {
    std::filesystem::create_directories(folder / "config/korvel");
    std::ofstream(file()) << text;
  }

  /// Opens the preferences by their key; `act` is done with them.
  void openPreferences(const std::function<void(MainWindow&, PreferencesDialog&)>& act) {
    play([&act](MainWindow& window) {
      ASSERT_TRUE(waitFor([&] { return window.snapshot() != nullptr; }));
      QTest::keyClick(&window, Qt::Key_Comma, Qt::ControlModifier);
      QPointer<PreferencesDialog> dialog;
      ASSERT_TRUE(waitFor([&] {
        return (dialog = window.findChild<PreferencesDialog*>()) != nullptr && dialog->isVisible();
      }));
      act(window, *dialog);
      if (dialog) dialog->close();
    });
  }
};

template <typename Widget>
Widget& input(const PreferencesDialog& dialog, const char* key) {
  return *dialog.findChild<Widget*>(key);
}

QPushButton& saveButton(const PreferencesDialog& dialog) {
  for (QPushButton* button : dialog.findChildren<QPushButton*>()) {
    if (button->text().remove('&') == "Save") return *button;
  }
  throw std::runtime_error("no button to save");
}

QStringList problemsIn(const PreferencesDialog& dialog) {
  QStringList problems;
  for (const QLabel* label : dialog.findChildren<QLabel*>("problem")) {
    if (!label->text().isEmpty()) problems << label->text();
  }
  return problems;
}

TEST_F(PreferencesTest, WhatIsChangedIsWrittenAndEverythingElseStays) {
  configure(
      "# our suite\nprojects = /mnt/film # the big one\nuser = ANNA\nnew_in_the_next = 7\n"
      "media = /a=//server/a\nhistory_days = 30\nlog_incoming_net_messages = 1\n");
  openPreferences([](MainWindow& window, PreferencesDialog& dialog) {
    EXPECT_EQ(input<QLineEdit>(dialog, "projects").text(), "/mnt/film");
    EXPECT_EQ(input<QLineEdit>(dialog, "port").placeholderText(), "27015 (usual)");
    EXPECT_FALSE(saveButton(dialog).isEnabled());
    input<QLineEdit>(dialog, "projects").setText("/mnt/new film");
    input<QLineEdit>(dialog, "port").setText("27016");
    input<QLineEdit>(dialog, "history_days").clear();
    input<QPlainTextEdit>(dialog, "media").appendPlainText("/b=//server/b");
    input<QComboBox>(dialog, "network-mode").setCurrentIndex(1);
    input<QComboBox>(dialog, "log_incoming_net_messages").setCurrentIndex(0);
    input<QComboBox>(dialog, "remote_commands").setCurrentIndex(3);
    EXPECT_EQ(problemsIn(dialog), QStringList());
    ASSERT_TRUE(saveButton(dialog).isEnabled());
    saveButton(dialog).click();
    EXPECT_TRUE(waitFor([&] { return window.messages().text().contains("at the next start"); }));
  });
  EXPECT_EQ(configured(),
            "# our suite\nprojects = /mnt/new film # the big one\nuser = ANNA\n"
            "new_in_the_next = 7\nmedia = /a=//server/a\nmedia = /b=//server/b\n"
            "network-mode = off\nport = 27016\nremote_commands = \"\"\n");
}

TEST_F(PreferencesTest, WhatCannotBeUsedIsSaidWhileItIsTyped) {
  configure("user = ANNA\n");
  openPreferences([](MainWindow&, PreferencesDialog& dialog) {
    struct Row {
      const char* key;
      const char* text;
      const char* says;
    };
    const Row rows[] = {{"port", "99999", "\"99999\" is no port"},
                        {"user", "an/na", "is no user name"},
                        {"machine", "zero", "whole number"},
                        {"listen", "here", "is no IPv4 address"},
                        {"send-to", "10.0.0.255,x", "holds \"x\""},
                        {"accept_networks", "10.0.0.0/8, home", "\"home\" is no network"},
                        {"receive_limit", "-1", "a number from 0 up"},
                        {"history_versions", "2.5", "whole number"},
                        {"projects", "film", "whole path"}};
    for (const Row& row : rows) {
      auto& field = input<QLineEdit>(dialog, row.key);
      const QString before = field.text();
      field.clear();
      QTest::keyClicks(&field, row.text);
      const QStringList problems = problemsIn(dialog);
      EXPECT_EQ(problems.size(), 1) << row.key;
      EXPECT_TRUE(problems.join("").contains(row.says)) << problems.join("").toStdString();
      EXPECT_FALSE(saveButton(dialog).isEnabled()) << row.key;
      field.setText(before);
    }
    EXPECT_EQ(problemsIn(dialog), QStringList());
  });
  EXPECT_EQ(configured(), "user = ANNA\n");
}

TEST_F(PreferencesTest, WhatFitsAloneAndNotTogetherIsRefused) {
  configure("user = ANNA\n");
  openPreferences([this](MainWindow&, PreferencesDialog& dialog) {
    input<QLineEdit>(dialog, "projects").setText(QString::fromStdString(folder / "projects"));
    input<QLineEdit>(dialog, "share-heard")
        .setText(QString::fromStdString(folder / "projects/heard"));
    EXPECT_EQ(problemsIn(dialog), QStringList());
    saveButton(dialog).click();
    ASSERT_EQ(problemsIn(dialog).size(), 1);
    EXPECT_TRUE(problemsIn(dialog).front().startsWith("Nothing was kept. "));
  });
  EXPECT_EQ(configured(), "user = ANNA\n");
}

TEST_F(PreferencesTest, WhatCannotBeWrittenIsSaidAndStaysFilledIn) {
  configure("user = ANNA\n");
  openPreferences([this](MainWindow&, PreferencesDialog& dialog) {
    input<QLineEdit>(dialog, "user").setText("BEN");
    std::filesystem::remove(file());
    std::filesystem::create_directory(file());
    saveButton(dialog).click();
    ASSERT_EQ(problemsIn(dialog).size(), 1);
    EXPECT_TRUE(problemsIn(dialog).front().startsWith("Nothing was kept. "));
    EXPECT_EQ(input<QLineEdit>(dialog, "user").text(), "BEN");
  });
}

TEST_F(PreferencesTest, EverySettingOfTheFileIsThere) {
  std::set<std::string> there;
  for (const Preference& each : PreferencesDialog::all()) there.insert(each.key);
  EXPECT_EQ(there.size(), PreferencesDialog::all().size()) << "one is there twice";
  for (const OptionSpec& option : optionTable()) {
    EXPECT_EQ(there.contains(option.name), option.isInFile) << option.name;
  }
  for (const char* key : {"Administrator", "log_incoming_net_messages", "accept_networks",
                          "accept_stations", "history_days", "history_versions", "receive_limit",
                          "receive_limit_words", "receive_limit_requests", "remote_commands"}) {
    EXPECT_TRUE(there.contains(key)) << key;
  }
}

TEST_F(PreferencesTest, HelpOpensTheGuide) {
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return window.snapshot() != nullptr; }));
    QTextBrowser opened;  // in the place of a program of the desktop
    QDesktopServices::setUrlHandler("file", &opened, "setSource");
    for (QAction* action : window.menus().menu("Help").actions()) {
      if (action->text() == "&Guide") action->trigger();
    }
    QDesktopServices::unsetUrlHandler("file");
    EXPECT_TRUE(opened.source().toLocalFile().endsWith("docs/guide.md"));
    EXPECT_TRUE(QFileInfo::exists(opened.source().toLocalFile()));
  });
}

}  // namespace
