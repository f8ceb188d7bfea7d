#pragma once

#include <QElapsedTimer>
#include <QTest>
#include <QTimer>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "app/tour/StationProcess.h"
#include "app/window/DetailPane.h"
#include "app/window/LogPane.h"
#include "app/window/MainWindow.h"
#include "app/window/NotificationsPane.h"
#include "app/window/ObjectsPane.h"
#include "app/window/PanelDock.h"
#include "app/window/ProjectsPane.h"
#include "app/window/StatusLine.h"
#include "tests/fakes/ScratchFolder.h"

/// The real program with its window, on a display that nobody sees, and a folder of projects. What
/// a test does with the window is a function that runs beside the host thread; the program ends
/// after it. One a process.
class WindowScene {
 public:
  using Act = std::function<void(MainWindow&)>;

  WindowScene();

  /// Runs the program for the user ANNA, acting in it; its exit status.
  int play(const Act& act);

  /// How a second station is started: on the same projects and port.
  [[nodiscard]] StationProcess::Options other(const std::string& user) const;

  /// Sends a datagram to every station on the port.
  void sayAloud(const std::string& datagram) const;

  /// Writes edits of ANNA's, "Edit 1" and so on, into the folder of the only project.
  void writeEdits(int count) const;

  ScratchFolder folder;
  int port = freeUdpPort();
  std::map<std::string, std::string> config;  ///< of the host, beside the port
  std::string script;                         ///< commands of the console, run at the start
};

/// A window that waits for the share or the host thread stands still for longer, also on a machine
/// that is busy with other things.
constexpr qint64 kStandingStillMs = 1000;

/// The longest times, in milliseconds, that a window's thread took to come back to its events.
class LatencyWatch : public QObject {
 public:
  LatencyWatch();

  /// The time that all but one in a hundred stayed below.
  [[nodiscard]] qint64 ninetyNinth() const;

  /// The most milliseconds of its own work that the thread put between two rounds of events: what
  /// no other program on a busy machine adds to.
  [[nodiscard]] double longestWork() const { return longestWork_; }

 private:
  QElapsedTimer since_;
  QTimer timer_;
  std::vector<qint64> gaps_;
  double workBefore_;
  double longestWork_ = 0;
};

/// The processor time that the calling thread has used.
double ownMilliseconds();

/// Lets the window live until the condition holds; false when it does not within ten seconds.
bool waitFor(const std::function<bool()>& condition, int milliseconds = 10'000);

/// Has the window run a line: types it into the window's own command field.
void command(MainWindow& window, const QString& line);

/// The bytes that an event's text_hex spells.
std::string bytesOf(const std::string& hex);

/// Opens the message panel with its key, and waits until it is there.
void openPanel(MainWindow& window);

/// Waits until the window shows a project of this name as open.
bool waitForProject(MainWindow& window, const QString& name);

/// The key of the edit of this name; empty where the list has none.
QString keyOf(const MainWindow& window, const QString& name);
