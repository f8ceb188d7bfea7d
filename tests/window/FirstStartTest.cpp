#include <gtest/gtest.h>
#include <unistd.h>

#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "app/window/MessageBar.h"
#include "app/window/ObjectsPane.h"
#include "app/window/StartDialog.h"
#include "app/window/WindowLayout.h"
#include "app/window/iStationWindow.h"
#include "tests/share/ProgramRun.h"
#include "tests/window/WindowScene.h"

using namespace korvel;

// The window is a library of its own; it asks for what no option gives, and goes on where it was.

extern "C" void kvMakeWindow(const char* version, MadeWindow* made);

namespace {

namespace fs = std::filesystem;

std::string textIn(const std::string& file) {
  std::ifstream in(file);
  return {std::istreambuf_iterator<char>(in), {}};
}

/// The libraries that a running station has loaded.
std::string loadedBy(const StationProcess& station) {
  return textIn("/proc/" + std::to_string(station.pid()) + "/maps");
}

class WindowLibraryTest : public testing::Test, protected WindowScene {};

TEST_F(WindowLibraryTest, OnlyTheWindowLoadsTheToolkit) {
  StationProcess console(other("BEN"));
  ASSERT_TRUE(console.waitUntilReady());
  EXPECT_EQ(loadedBy(console).find("libQt6"), std::string::npos);
  StationProcess::Options options = other("ANNA");
  options.more = {"--gui"};
  StationProcess window(std::move(options));
  ASSERT_TRUE(window.waitUntilReady()) << window.errorText();
  EXPECT_NE(loadedBy(window).find("libQt6Widgets"), std::string::npos);
  EXPECT_EQ(window.quit(), 0);
  EXPECT_EQ(console.quit(), 0);
}

TEST_F(WindowLibraryTest, WithoutTheLibraryTheProgramSaysWhatToInstall) {
  const std::string program = folder / "kv-station";
  fs::copy_file(KV_STATION, program);
  const ProgramRun run = runProgram({program, "--gui", "--projects", folder / "projects"});
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.errors, "kv-station: --gui: the window is not installed (there is no " +
                            (folder / "libkorvelwindow.so") +
                            "); install project-share-window, or leave --gui out to use the "
                            "terminal.\n");
  std::ofstream(folder / "libkorvelwindow.so") << "no library";
  const ProgramRun other = runProgram({program, "--gui", "--projects", folder / "projects"});
  EXPECT_EQ(other.status, 2);
  EXPECT_NE(other.errors.find("the window cannot be loaded ("), std::string::npos) << other.errors;
}

TEST_F(WindowLibraryTest, AWindowOfAnotherVersionIsRefused) {
  MadeWindow made = std::unique_ptr<iStationWindow>();
  kvMakeWindow("1.2.3", &made);
  ASSERT_FALSE(made);
  EXPECT_EQ(made.error().message,
            "--gui: the window is of version " KV_VERSION
            ", and the program of version 1.2.3; install project-share-window of the program's "
            "version.");
}

class FirstStartTest : public testing::Test, protected WindowScene {
 protected:
  /// Starts without a projects directory; `act` is done with the dialog that asks for it.
  int startAsked(const std::function<void(StartDialog&)>& act) {
    asked = act;
    return play([this](MainWindow& window) {
      hasOpened_ = waitFor([&window] { return window.snapshot() != nullptr; });
      project_ = window.link().options().station.projectsDirectory;
      user_ = window.snapshot()->user;
    });
  }

  bool hasOpened_ = false;
  std::string project_;
  QString user_;
};

QLineEdit& field(const QDialog& dialog, const char* name) {
  return *dialog.findChild<QLineEdit*>(name);
}

QString saying(const QDialog& dialog, const char* name) {
  return dialog.findChild<QLabel*>(name)->text();
}

void press(const QDialog& dialog, const char* text) {
  for (QPushButton* button : dialog.findChildren<QPushButton*>()) {
    if (button->text().remove('&') == text) button->click();
  }
}

TEST_F(FirstStartTest, FolderAndNameAreAskedForLookedAtAndRemembered) {
  const int status = startAsked([this](StartDialog& dialog) {
    QPushButton& start = *dialog.findChild<QPushButton*>("start");
    EXPECT_FALSE(start.isEnabled());
    QTest::keyClicks(&field(dialog, "folder"), "projects");
    EXPECT_FALSE(start.isEnabled());
    EXPECT_TRUE(saying(dialog, "folderSaying").contains("whole path"));
    field(dialog, "folder").clear();
    QTest::keyClicks(&field(dialog, "folder"), QString::fromStdString(folder / "nowhere"));
    EXPECT_TRUE(waitFor(
        [&] { return saying(dialog, "folderSaying").startsWith("It does not work."); }, 60'000))
        << saying(dialog, "folderSaying").toStdString();
    field(dialog, "folder").clear();
    QTest::keyClicks(&field(dialog, "folder"), QString::fromStdString(folder / "projects"));
    field(dialog, "user").clear();
    EXPECT_FALSE(start.isEnabled());
    EXPECT_TRUE(saying(dialog, "userSaying").contains("is no user name"));
    QTest::keyClicks(&field(dialog, "user"), "Anna");
    EXPECT_EQ(field(dialog, "user").text(), "ANNA");
    EXPECT_TRUE(
        waitFor([&] { return saying(dialog, "folderSaying").startsWith("It works"); }, 60'000))
        << saying(dialog, "folderSaying").toStdString();
    EXPECT_TRUE(saying(dialog, "userSaying").contains("userlist.dat"))
        << saying(dialog, "userSaying").toStdString();
    ASSERT_TRUE(start.isEnabled());
    QTest::keyClick(&field(dialog, "user"), Qt::Key_Return);
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(hasOpened_);
  EXPECT_EQ(project_, folder / "projects");
  EXPECT_EQ(user_, "ANNA");
  EXPECT_EQ(textIn(folder / "config/korvel/station.conf"),
            "host = ANNA\nprojects = " + (folder / "projects") + "\nuser = ANNA\n");
}

TEST(StartDialogTest, WhatWasWrongAtTheLastTryGoesAsSoonAsSomethingIsTyped) {
  const WithoutDisplay display;
  Options options;
  StartDialog dialog(options, "The folder is not there.");
  const QLabel& problem = *dialog.findChild<QLabel*>("problem");
  EXPECT_FALSE(problem.isHidden());
  QTest::keyClicks(&field(dialog, "folder"), "x");
  EXPECT_TRUE(problem.isHidden());
}

TEST_F(FirstStartTest, NothingIsKeptWhereItIsNotToBeRemembered) {
  startAsked([this](StartDialog& dialog) {
    field(dialog, "folder").setText(QString::fromStdString(folder / "projects"));
    field(dialog, "user").setText("CARL");
    QTest::mouseClick(dialog.findChild<QWidget*>("remember"), Qt::LeftButton, {}, QPoint(8, 8));
    press(dialog, "Start");
  });
  EXPECT_TRUE(hasOpened_);
  EXPECT_EQ(user_, "CARL");
  EXPECT_FALSE(fs::exists(folder / "config/korvel/station.conf"));
}

TEST_F(FirstStartTest, WhoChangesTheirMindEndsTheProgram) {
  EXPECT_EQ(0, startAsked([](StartDialog& dialog) { press(dialog, "Quit"); }));
  EXPECT_FALSE(hasOpened_);
  EXPECT_FALSE(fs::exists(folder / "config/korvel/station.conf"));
}

TEST_F(FirstStartTest, WhatCannotBeRememberedIsSaidAndTheStationStartsAllTheSame) {
  std::ofstream(folder / "config") << "in the folder's place";
  startAsked([this](StartDialog& dialog) {
    field(dialog, "folder").setText(QString::fromStdString(folder / "projects"));
    press(dialog, "Start");
    EXPECT_TRUE(saying(dialog, "problem").startsWith("It cannot be remembered: "));
    EXPECT_TRUE(dialog.isVisible());
    press(dialog, "Start");
  });
  EXPECT_TRUE(hasOpened_);
}

TEST_F(FirstStartTest, WithoutAWindowTheMissingDirectoryStaysAnError) {
  const ProgramRun console = runProgram({KV_STATION});
  EXPECT_EQ(console.status, 2);
  EXPECT_TRUE(console.errors.starts_with("kv-station: --projects DIR is missing: "))
      << console.errors;
}

TEST_F(FirstStartTest, AnEndingSignalEndsTheQuestion) {
  EXPECT_EQ(0, startAsked([](StartDialog& dialog) {
              ::kill(::getpid(), SIGTERM);
              EXPECT_TRUE(dialog.isVisible());
            }));
  EXPECT_FALSE(hasOpened_);
}

TEST_F(FirstStartTest, ARememberedFolderThatCannotBeUsedIsAskedForAgain) {
  hasScript = false;
  remembered = folder / "unmounted";
  asked = [this](StartDialog& dialog) {
    EXPECT_TRUE(saying(dialog, "problem").contains("unmounted"));
    EXPECT_EQ(field(dialog, "folder").text(), QString::fromStdString(remembered));
    field(dialog, "folder").setText(QString::fromStdString(folder / "projects"));
    press(dialog, "Start");
  };
  EXPECT_EQ(2, play([](MainWindow&) {}));
  EXPECT_EQ(wordsAgain, (std::vector<std::string>{"--projects", folder / "projects", "--user",
                                                  "ANNA", "--host", "ANNA"}));
}

// Somebody who was asked, and named a folder that cannot be used either, is asked again.
TEST_F(FirstStartTest, AnAnswerThatCannotBeUsedIsAskedForAgain) {
  hasScript = false;
  remembered = folder / "unmounted";
  bool wasAsked = false;
  asked = [&wasAsked](StartDialog& dialog) {
    wasAsked = true;
    dialog.reject();
  };
  givenAt = "--projects";
  EXPECT_EQ(2, play([](MainWindow&) {}));
  EXPECT_FALSE(wasAsked) << "who typed it reads what is printed";
  ::setenv("KV_STATION_ANSWERED", "1", 1);
  EXPECT_EQ(2, play([](MainWindow&) {}));
  ::unsetenv("KV_STATION_ANSWERED");
  EXPECT_TRUE(wasAsked);
}

class GoingOnTest : public testing::Test, protected WindowScene {
 protected:
  GoingOnTest() { hasScript = false; }

  void run(MainWindow& window, const QString& line) {
    bool isDone = false;
    window.link().run(line, [&isDone](const CommandOutcome& outcome) {
      EXPECT_TRUE(outcome.succeeded) << outcome.text.toStdString();
      isDone = true;
    });
    ASSERT_TRUE(waitFor([&isDone] { return isDone; }));
  }

  static QStringList offered(MainWindow& window) {
    QStringList names;
    for (QAction* action : window.menus().menu("Project").actions()) {
      if (!action->menu() || !action->text().contains("cent")) continue;
      for (QAction* each : action->menu()->actions()) {
        names << (each->isEnabled() ? "" : "-") + each->text();
      }
    }
    return names;
  }

  static QString chosenEdit(MainWindow& window) {
    const auto chosen = window.objects().chosen();
    return chosen.empty() ? QString() : chosen.front().name;
  }
};

TEST_F(GoingOnTest, TheWindowOpensWhereItWasLeft) {
  play([this](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return window.snapshot() != nullptr; }));
    run(window, "project create Harbour");
    run(window, "project enter Harbour");
    for (const char* name : {"Dawn", "Noon", "Dusk"}) {
      run(window, QStringLiteral("edit create ") + name);
      run(window, QStringLiteral("edit save ") + name);
    }
    // The last one, too: a row that came between would take the click.
    ASSERT_TRUE(waitFor(
        [&] { return !keyOf(window, "Noon").isEmpty() && !keyOf(window, "Dusk").isEmpty(); }));
    clickEdit(window, "Noon");
    ASSERT_TRUE(waitFor([&] { return chosenEdit(window) == "Noon"; }));
  });
  play([](MainWindow& window) {
    EXPECT_TRUE(waitForProject(window, "Harbour"));
    EXPECT_TRUE(waitFor([&] { return chosenEdit(window) == "Noon"; }))
        << chosenEdit(window).toStdString();
    window.link().run("project leave");
    EXPECT_TRUE(waitForProject(window, ""));
  });
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return window.snapshot() != nullptr; }));
    QTest::qWait(1000);
    EXPECT_EQ(window.snapshot()->project.name, "") << "it was left";
    EXPECT_EQ(offered(window), QStringList("Harbour"));
  });
}

TEST_F(GoingOnTest, AScriptDecidesWhatIsOpen) {
  play([this](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return window.snapshot() != nullptr; }));
    run(window, "project create Harbour");
    run(window, "project enter Harbour");
    EXPECT_TRUE(waitForProject(window, "Harbour"));
  });
  hasScript = true;
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return window.snapshot() != nullptr; }));
    QTest::qWait(1000);
    EXPECT_EQ(window.snapshot()->project.name, "");
  });
}

TEST_F(GoingOnTest, TenRecentProjectsAreOfferedTheLastOneFirstAndThoseThatAreGoneAreGrey) {
  play([this](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return window.snapshot() != nullptr; }));
    for (int i = 1; i <= 11; ++i) {
      const QString name = QStringLiteral("Film %1").arg(i);
      run(window, "project create '" + name + "'");
      run(window, "project enter '" + name + "'");
      ASSERT_TRUE(waitForProject(window, name));
    }
    QStringList expected{"-Film 11"};
    for (int i = 10; i >= 2; --i) expected << QStringLiteral("Film %1").arg(i);
    EXPECT_TRUE(waitFor([&] { return offered(window) == expected; }))
        << offered(window).join(", ").toStdString();
    for (QAction* action : window.findChildren<QAction*>()) {
      if (action->text() == "Film 9") action->trigger();
    }
    EXPECT_TRUE(waitForProject(window, "Film 9"));
    EXPECT_TRUE(waitFor([&] { return offered(window).front() == "-Film 9"; }));
  });
  hasScript = true;
  for (const auto& each : fs::directory_iterator(folder / "projects")) {
    if (each.is_directory() &&
        textIn(each.path() / "project.json").find("Film 9") != std::string::npos)
      fs::remove_all(each.path());
  }
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return window.snapshot() != nullptr; }));
    EXPECT_TRUE(waitFor([&] { return offered(window).startsWith("-Film 9"); }))
        << offered(window).join(", ").toStdString();
  });
}

}  // namespace
