#include "tests/window/WindowScene.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QAbstractItemView>
#include <QAction>
#include <QComboBox>
#include <QInputDialog>
#include <QLineEdit>
#include <QLocale>
#include <QPointer>
#include <QPushButton>
#include <algorithm>
#include <ctime>
#include <fstream>

#include "app/program/StationProgram.h"
#include "app/window/StationWindow.h"

namespace korvel {

namespace {

/// A window that a test acts in.
class DrivenWindow : public StationWindow {
 public:
  DrivenWindow(const WindowScene& scene, WindowScene::Act act)
      : act_(std::move(act)), asked_(scene.asked), language_(scene.language) {
    if (language_) QApplication::installTranslator(language_);
  }

 protected:
  void runLoop(StartDialog& dialog) override {
    QTimer::singleShot(0, &dialog, [this, &dialog] { asked_(dialog); });
    StationWindow::runLoop(dialog);
  }

  void runLoop(MainWindow& window) override {
    QApplication::setActiveWindow(&window);  // nobody manages windows on a test's display
    act_(window);
    // What follows is asked and answered in English.
    if (language_) QApplication::removeTranslator(language_);
    // One that is open already would keep the window open.
    answer(window, "unsavedDialog", "Discard");
    QTimer discard;
    QObject::connect(&discard, &QTimer::timeout, &window,
                     [&window] { answer(window, "unsavedDialog", "Discard"); });
    discard.start(20);
    window.close();
    StationWindow::runLoop(window);
  }

 private:
  WindowScene::Act act_;
  std::function<void(StartDialog&)> asked_;
  QTranslator* language_;
};

constexpr const char* kEdit = R"({"OTIO_SCHEMA":"Timeline.1","name":"Edit %d",)"
                              R"("metadata":{"korvel":{"logType":0,"config":{"OWNER":"ANNA"}}},)"
                              R"("tracks":{"OTIO_SCHEMA":"Stack.1","children":[]}})";

/// Times and numbers without any country's habits, wherever the test runs; thousands are grouped.
void writeAsTestsExpect() {
  QLocale plain = QLocale::c();
  plain.setNumberOptions(QLocale::DefaultNumberOptions);
  QLocale::setDefault(plain);
}

/// How long the calling thread was ready to run and had no processor, as the system counts it.
double queuedMilliseconds() {
  std::ifstream counts("/proc/thread-self/schedstat");
  double ran = 0;
  double queued = 0;
  counts >> ran >> queued;
  return queued / 1e6;
}

}  // namespace

WindowScene::WindowScene() {
  writeAsTestsExpect();
  if (qEnvironmentVariableIsEmpty("KV_TEST_DISPLAY")) qputenv("QT_QPA_PLATFORM", "offscreen");
  qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString(folder / "config"));
  qputenv("XDG_STATE_HOME", QByteArray::fromStdString(folder / "state"));
  std::filesystem::create_directory(projects);
}

StationProcess::Options WindowScene::other(const std::string& who) const {
  return {KV_STATION, projects, who, who, 0, port, {}};
}

int WindowScene::play(const Act& act) {
  Options options;
  options.hasWindow = true;
  options.keepsGoing = true;
  options.events = folder / "events";
  options.configFile = folder / "config/korvel/station.conf";
  if (hasScript) {
    options.script = folder / "script";
    std::ofstream(options.script) << script;
  }
  StationSettings& with = options.station;
  if (!asked) with.projectsDirectory = projects;
  if (!remembered.empty()) {
    with.projectsDirectory = remembered;
    options.given["projects"] = {{remembered, givenAt}};
  }
  with.user = with.host = user;
  with.machine = machine;
  with.sendTo = {"127.255.255.255"};
  with.plugin = KV_PLUGIN;
  with.recovery = folder / "state/korvel/recovery";
  with.config = config;
  with.config["shared_projects_udp_port"] = std::to_string(port);
  StationProgram program(std::move(options), [this, &act]() -> MadeWindow {
    return std::unique_ptr<iStationWindow>(std::make_unique<DrivenWindow>(*this, act));
  });
  const int status = program.run();
  wordsAgain = program.wordsToStartAgain();
  return status;
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
  for (const auto& each : std::filesystem::directory_iterator(projects)) {
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

WithoutDisplay::WithoutDisplay() {
  writeAsTestsExpect();
  qputenv("QT_QPA_PLATFORM", "offscreen");
  qputenv("XDG_STATE_HOME", QByteArray::fromStdString(state_.path()));
  application_ = std::make_unique<QApplication>(none_, nullptr);
  QApplication::installTranslator(&plurals_);
}

WithoutDisplay::~WithoutDisplay() = default;

LatencyWatch::LatencyWatch() : workBefore_(ownMilliseconds()), queuedBefore_(queuedMilliseconds()) {
  connect(&timer_, &QTimer::timeout, this, &LatencyWatch::tick);
  since_.start();
  timer_.start(5);
}

void LatencyWatch::tick() {
  const double work = ownMilliseconds();
  const double queued = queuedMilliseconds();
  const double gap = static_cast<double>(since_.nsecsElapsed()) / 1e6;
  since_.restart();
  lags_.push_back(gap - (queued - queuedBefore_));
  longestWork_ = std::max(longestWork_, work - workBefore_);
  workBefore_ = work;
  queuedBefore_ = queued;
}

double LatencyWatch::ninetyNinth() const {
  std::vector<double> sorted = lags_;
  std::ranges::sort(sorted);
  return sorted.empty() ? 1e6 : sorted[sorted.size() * 99 / 100];
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

bool answer(MainWindow& window, const char* dialog, const QString& text) {
  const auto* const question = window.findChild<QDialog*>(dialog);
  if (!question) return false;
  for (QPushButton* button : question->findChildren<QPushButton*>()) {
    if (!button->text().remove('&').startsWith(text) || !button->isEnabled()) continue;
    button->click();
    return true;
  }
  return false;
}

std::string bytesOf(const std::string& hex) {
  return QByteArray::fromHex(QByteArray::fromStdString(hex)).toStdString();
}

void openPanel(MainWindow& window) {
  waitFor([&] { return window.snapshot() != nullptr; });
  QTest::keyClick(&window, Qt::Key_M, Qt::ControlModifier);
  waitFor([&] { return window.panel().isVisible(); });
}

// From the end of the list upwards: who is in it last was added last.
void chooseRecipient(MainWindow& window, const QString& name) {
  QComboBox& recipients = window.panel().recipients();
  recipients.setFocus();
  QTest::keyClick(&recipients, Qt::Key_Down, Qt::AltModifier);
  QAbstractItemView* const names = recipients.view();
  waitFor([&] { return names->isVisible(); });
  QTest::keyClick(names, Qt::Key_End);
  const auto isThere = [&] { return names->currentIndex().data().toString() == name; };
  while (!isThere() && names->currentIndex().row() > 0) QTest::keyClick(names, Qt::Key_Up);
  QTest::keyClick(names, Qt::Key_Return);
  waitFor([&] { return window.panel().state().recipient == name; });
}

void clickEdit(MainWindow& window, const QString& name) {
  QTreeView& view = window.objects().view(ObjectKind::eEdits);
  for (int row = 0; row < view.model()->rowCount(); ++row) {
    const QModelIndex index = view.model()->index(row, 0);
    if (index.data().toString() != name) continue;
    view.scrollTo(index);
    QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, view.visualRect(index).center());
  }
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

}  // namespace korvel
