#pragma once

#include <QApplication>
#include <QElapsedTimer>
#include <QTest>
#include <QTimer>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "app/window/DetailPane.h"
#include "app/window/EventPanes.h"
#include "app/window/MainWindow.h"
#include "app/window/ObjectsPane.h"
#include "app/window/ProjectsPane.h"
#include "app/window/StartDialog.h"
#include "app/window/StatusLine.h"
#include "app/window/TalkPanes.h"
#include "app/window/Texts.h"
#include "tests/fakes/ScratchFolder.h"
#include "tests/support/StationProcess.h"

namespace korvel {

/// The real program with its window, on a display that nobody sees, and a folder of projects. What
/// a test does with the window is a function that runs beside the host thread; the program ends
/// after it. One a process.
class WindowScene {
 public:
  using Act = std::function<void(MainWindow&)>;

  WindowScene();

  /// Runs the program for the user, acting in it; its exit status.
  int play(const Act& act);

  /// How a second station is started: on the same projects and port.
  [[nodiscard]] StationProcess::Options other(const std::string& who) const;

  /// Sends a datagram to every station on the port.
  void sayAloud(const std::string& datagram) const;

  /// Writes edits of ANNA's, "Edit 1" and so on, into the folder of the only project.
  void writeEdits(int count) const;

  ScratchFolder folder;
  std::string projects = folder / "projects";  ///< the directory that the users share
  std::string user = "ANNA";                   ///< who sits at the window, and the machine's name
  int machine = 1;
  int port = freeUdpPort();
  std::map<std::string, std::string> config;  ///< of the host, beside the port
  std::string script;                         ///< commands of the console, run at the start
  QTranslator* language = nullptr;  ///< that the window speaks; English where there is none
  bool hasScript = true;  ///< else no commands are read, as when a person starts the window
  std::function<void(StartDialog&)> asked;  ///< answers, where set, what a first start asks
  std::string remembered;  ///< the projects directory that the configuration file names, if any
  std::string givenAt = "station.conf:1: projects";  ///< or the option that names it
  std::vector<std::string>
      wordsAgain;  ///< after play(): the options with which it is to begin anew
};

/// What a test of a single pane needs of a program: no display, and fonts and events all the same;
/// and a folder for what panes keep.
class WithoutDisplay {
 public:
  WithoutDisplay();
  ~WithoutDisplay();

 private:
  int none_ = 0;
  ScratchFolder state_;
  std::unique_ptr<QApplication> application_;
  EnglishPlurals plurals_;
};

/// A window that waits for the share or the host thread stands still for longer, also on a machine
/// that is busy with other things.
constexpr qint64 kStandingStillMs = 1000;

/// How long a window's thread took to come back to its events, again and again. What it waited for
/// a processor, as on a busy machine, is not its doing and does not count; what it waited for
/// locks, files and the host thread does.
class LatencyWatch : public QObject {
 public:
  LatencyWatch();

  /// The milliseconds that all but one in a hundred rounds stayed below.
  [[nodiscard]] double ninetyNinth() const;

  /// The most milliseconds of its own work that the thread put between two rounds.
  [[nodiscard]] double longestWork() const { return longestWork_; }

 private:
  void tick();

  QElapsedTimer since_;
  QTimer timer_;
  std::vector<double> lags_;
  double workBefore_;
  double queuedBefore_;
  double longestWork_ = 0;
};

/// The processor time that the calling thread has used.
double ownMilliseconds();

/// Chooses whom the open panel writes to, as a user does with the keyboard.
void chooseRecipient(MainWindow& window, const QString& name);

/// Clicks on the edit of this name with the mouse.
void clickEdit(MainWindow& window, const QString& name);

/// Lets the window live until the condition holds; false when it does not within ten seconds.
bool waitFor(const std::function<bool()>& condition, int milliseconds = 10'000);

/// Has the window run a line: types it into the window's own command field.
void command(MainWindow& window, const QString& line);

/// Presses the button whose text begins so in the dialog of this name; false while there is none.
bool answer(MainWindow& window, const char* dialog, const QString& text);

/// The bytes that an event's text_hex spells.
std::string bytesOf(const std::string& hex);

/// Opens the message panel with its key, and waits until it is there.
void openPanel(MainWindow& window);

/// Waits until the window shows a project of this name as open.
bool waitForProject(MainWindow& window, const QString& name);

/// The key of the edit of this name; empty where the list has none.
QString keyOf(const MainWindow& window, const QString& name);

}  // namespace korvel
