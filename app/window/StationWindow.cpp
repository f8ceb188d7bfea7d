#include "app/window/StationWindow.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "app/window/Appearance.h"
#include "app/window/HostLink.h"
#include "app/window/MainWindow.h"
#include "app/window/StartDialog.h"
#include "app/window/Texts.h"
#include "app/window/WindowLayout.h"
#include "station/ui/Desktop.h"

namespace korvel {

namespace {

// In English like all that the console says.
constexpr const char* kNoDisplay =
    "--gui: there is no display to open a window on (%1); start it in a desktop session or set "
    "DISPLAY, or leave --gui out to use the terminal.";

std::string noDisplay(const QString& why) {
  return QString::fromUtf8(kNoDisplay).arg(why).toStdString();
}

/// Qt ends the process if it cannot reach a display. This prints one line and exits with the status
/// of a failed start.
void endWithoutDisplay(QtMsgType type, const QMessageLogContext&, const QString&) {
  if (type != QtFatalMsg) return;
  const QString display = qEnvironmentVariable("DISPLAY");
  const std::string problem =
      noDisplay(display.isEmpty() ? QStringLiteral("none answers")
                                  : QStringLiteral("\"%1\" does not answer").arg(display));
  std::fprintf(stderr, "kv-station: %s\n", problem.c_str());
  std::_Exit(2);
}

/// Installs the handler above while Qt connects to the display.
class DisplayWatch {
 public:
  DisplayWatch() : before_(qInstallMessageHandler(endWithoutDisplay)) {}
  DisplayWatch(const DisplayWatch&) = delete;
  DisplayWatch& operator=(const DisplayWatch&) = delete;
  ~DisplayWatch() { qInstallMessageHandler(before_); }

 private:
  QtMessageHandler before_;
};

bool isSet(const char* variable) { return !qEnvironmentVariableIsEmpty(variable); }

}  // namespace

std::string missingDisplay() {
  // Asked before Qt is started: Qt would end the process.
  if (isSet("QT_QPA_PLATFORM") || isSet("DISPLAY") || isSet("WAYLAND_DISPLAY")) return {};
  return noDisplay(QStringLiteral("neither DISPLAY nor WAYLAND_DISPLAY is set"));
}

MadeWindow makeStationWindow() {
  if (const std::string problem = missingDisplay(); !problem.empty()) {
    return Error{ErrorCode::eSystem, problem, {}};
  }
  const DisplayWatch watch;
  return std::unique_ptr<iStationWindow>(std::make_unique<StationWindow>());
}

StationWindow::StationWindow() : application_(argumentCount_, arguments_) {
  QApplication::setApplicationName(QStringLiteral("kv-station"));
  // The names of the entry in the desktop's menu, and of its icon.
  QApplication::setDesktopFileName(QStringLiteral("project-share"));
  QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("project-share")));
  // The window waits for the station to end; Qt must not end it before.
  QApplication::setQuitOnLastWindowClosed(false);
}

StationWindow::~StationWindow() = default;

void StationWindow::speak() {
  language_.load(QString::fromStdString(resourceDirectory()) + QStringLiteral("/languages"));
}

bool StationWindow::askForStart(Options& options, const std::string& problem) {
  speak();
  applyAppearance(appearanceNamed(windowSettings().value(QStringLiteral("appearance")).toString()));
  StartDialog dialog(options, readableText(problem));
  bool isAnswered = false;
  QObject::connect(&dialog, &QDialog::finished, &application_, [&isAnswered](int result) {
    isAnswered = result == QDialog::Accepted;
    QApplication::exit();
  });
  dialog.show();
  runLoop(dialog);
  return isAnswered;
}

void StationWindow::runLoop(StartDialog&) { QApplication::exec(); }

void StationWindow::run(const Dependencies& surroundings) {
  speak();
  HostLink link(surroundings, feed_);
  MainWindow window(link);
  window.show();
  runLoop(window);
  window.noteEnd();
}

void StationWindow::runLoop(MainWindow&) { QApplication::exec(); }

// Not quit(), which asks the window whether it would like to be closed.
void StationWindow::hostEnded() {
  const auto end = [] { QApplication::exit(); };
  QMetaObject::invokeMethod(&application_, end, Qt::QueuedConnection);
}

}  // namespace korvel

// What another version of the program shows the library may have the same names and mean something
// else.
extern "C" __attribute__((visibility("default"))) void kvMakeWindow(const char* version,
                                                                    korvel::MadeWindow* made) {
  if (std::strcmp(version, KV_VERSION) != 0) {
    *made = korvel::Error{
        korvel::ErrorCode::eBadContent,
        std::string("--gui: the window is of version " KV_VERSION ", and the program of version ") +
            version + "; install project-share-window of the program's version.",
        {}};
    return;
  }
  *made = korvel::makeStationWindow();
}
