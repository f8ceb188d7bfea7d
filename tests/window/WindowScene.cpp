#include "tests/window/WindowScene.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QAction>
#include <QInputDialog>
#include <QLineEdit>
#include <QPointer>
#include <algorithm>
#include <ctime>
#include <fstream>

#include "app/StationProgram.h"
#include "app/window/StationWindow.h"

namespace {

/// A window that a test acts in.
class DrivenWindow : public StationWindow {
 public:
  explicit DrivenWindow(WindowScene::Act act) : act_(std::move(act)) {}

 protected:
  void runLoop(MainWindow& window) override {
    QApplication::setActiveWindow(&window);  // nobody manages windows on a test's display
    act_(window);
    window.close();
    StationWindow::runLoop(window);
  }

 private:
  WindowScene::Act act_;
};

constexpr const char* kEdit = R"({"OTIO_SCHEMA":"Timeline.1","name":"Edit %d",)"
                              R"("metadata":{"korvel":{"logType":0,"config":{"OWNER":"ANNA"}}},)"
                              R"("tracks":{"OTIO_SCHEMA":"Stack.1","children":[]}})";

}  // namespace

WindowScene::WindowScene() {
  if (qEnvironmentVariableIsEmpty("KV_TEST_DISPLAY")) qputenv("QT_QPA_PLATFORM", "offscreen");
  qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString(folder / "config"));
  std::filesystem::create_directory(folder / "projects");
}

StationProcess::Options WindowScene::other(const std::string& user) const {
  return {KV_STATION, folder / "projects", user, user, 0, port, {}};
}

int WindowScene::play(const Act& act) {
  Options options;
  options.hasWindow = true;
  options.keepsGoing = true;
  options.script = folder / "script";
  options.events = folder / "events";
  std::ofstream(options.script) << script;
  StationSettings& with = options.station;
  with.projectsDirectory = folder / "projects";
  with.user = with.host = "ANNA";
  with.machine = 1;
  with.sendTo = {"127.255.255.255"};
  with.plugin = KV_PLUGIN;
  with.config = config;
  with.config["shared_projects_udp_port"] = std::to_string(port);
  return StationProgram(
             std::move(options),
             [&act]() -> Result<std::unique_ptr<iStationWindow>> {
               return std::unique_ptr<iStationWindow>(std::make_unique<DrivenWindow>(act));
             })
      .run();
}

void WindowScene::sayAloud(const std::string& datagram) const {
  const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const int yes = 1;
  ::setsockopt(socket, SOL_SOCKET, SO_BROADCAST, &yes, sizeof yes);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(static_cast<std::uint16_t>(port));
  ::inet_pton(AF_INET, "127.255.255.255", &to.sin_addr);
  ::sendto(socket, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&to),
           sizeof to);
  ::close(socket);
}

void WindowScene::writeEdits(int count) const {
  for (const auto& each : std::filesystem::directory_iterator(folder / "projects")) {
    if (!each.is_directory()) continue;
    for (int i = 1; i <= count; ++i) {
      char name[64];
      char text[512];
      std::snprintf(name, sizeof name, "E437b81f4b3d04882af62d0db%08x.otio",
                    static_cast<unsigned>(i));
      std::snprintf(text, sizeof text, kEdit, i);
      std::ofstream(each.path() / name) << text;
    }
  }
}

LatencyWatch::LatencyWatch() : workBefore_(ownMilliseconds()) {
  connect(&timer_, &QTimer::timeout, this, [this] {
    gaps_.push_back(since_.restart());
    longestWork_ = std::max(longestWork_, ownMilliseconds() - workBefore_);
    workBefore_ = ownMilliseconds();
  });
  since_.start();
  timer_.start(5);
}

qint64 LatencyWatch::ninetyNinth() const {
  std::vector<qint64> sorted = gaps_;
  std::ranges::sort(sorted);
  return sorted.empty() ? 1'000'000 : sorted[sorted.size() * 99 / 100];
}

double ownMilliseconds() {
  timespec now{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

bool waitFor(const std::function<bool()>& condition, int milliseconds) {
  return QTest::qWaitFor(condition, milliseconds);
}

void command(MainWindow& window, const QString& line) {
  for (QAction* action : window.findChildren<QAction*>()) {
    if (action->shortcut() == QKeySequence(Qt::CTRL | Qt::Key_K)) action->trigger();
  }
  QPointer<QInputDialog> dialog;
  waitFor([&] { return (dialog = window.findChild<QInputDialog*>()) != nullptr; });
  auto* const field = dialog->findChild<QLineEdit*>();
  QTest::keyClicks(field, line);
  QTest::keyClick(field, Qt::Key_Return);
  waitFor([&dialog] { return dialog.isNull(); });
}

std::string bytesOf(const std::string& hex) {
  return QByteArray::fromHex(QByteArray::fromStdString(hex)).toStdString();
}

void openPanel(MainWindow& window) {
  waitFor([&] { return window.snapshot() != nullptr; });
  QTest::keyClick(&window, Qt::Key_M, Qt::ControlModifier);
  waitFor([&] { return window.panel().isVisible(); });
}

bool waitForProject(MainWindow& window, const QString& name) {
  return waitFor([&] { return window.snapshot() && window.snapshot()->project.name == name; });
}

QString keyOf(const MainWindow& window, const QString& name) {
  for (const ObjectRow& row : window.objects().rows(ObjectKind::eEdits)) {
    if (row.name == name) return row.key;
  }
  return {};
}
