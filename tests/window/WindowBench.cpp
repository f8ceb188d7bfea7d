// How long the window's frames take beside 10 000 edits and 50 people: window_bench [SECONDS]. It
// scrolls, narrows the list, and takes 200 changes a second, each for so many seconds (10), and
// prints the longest frame and the share of frames over 50 ms.

#include <fcntl.h>
#include <unistd.h>

#include <QAbstractEventDispatcher>
#include <QLineEdit>
#include <QScrollBar>
#include <QTreeView>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "station/watch/StationNote.h"
#include "tests/window/WindowScene.h"

using namespace korvel;

namespace {

constexpr int kEdits = 10'000;
constexpr int kPeople = 50;
constexpr int kChangesPerSecond = 200;
constexpr double kMostFrameMs = 50;
constexpr int kSetUpMs = 300'000;

/// How long the calling thread was ready to run and had no processor.
double waitedMilliseconds() {
  std::ifstream counts("/proc/thread-self/schedstat");
  double ran = 0;
  double queued = 0;
  counts >> ran >> queued;
  return queued / 1e6;
}

/// Counts the window's frames: what its thread does from one wait for events to the next. Waiting
/// for a processor that other programs have is not counted.
class FrameCount : public QObject {
 public:
  FrameCount() {
    const QAbstractEventDispatcher* const events = QAbstractEventDispatcher::instance();
    connect(events, &QAbstractEventDispatcher::awake, this, [this] { begin(); });
    connect(events, &QAbstractEventDispatcher::aboutToBlock, this, [this] { end(); });
  }

  [[nodiscard]] std::size_t count() const { return frames_.size(); }
  [[nodiscard]] double longest() const {
    return frames_.empty() ? 0 : *std::ranges::max_element(frames_);
  }
  [[nodiscard]] double ninetyNinth() const {
    std::vector<double> sorted = frames_;
    std::ranges::sort(sorted);
    return sorted.empty() ? 0 : sorted[sorted.size() * 99 / 100];
  }
  [[nodiscard]] double shareOver(double milliseconds) const {
    const auto over =
        std::ranges::count_if(frames_, [=](double each) { return each > milliseconds; });
    return frames_.empty() ? 0 : 100.0 * static_cast<double>(over) / static_cast<double>(count());
  }

 private:
  void begin() {
    if (isIn_) end();
    isIn_ = true;
    since_.start();
    waitedBefore_ = waitedMilliseconds();
  }

  void end() {
    if (!std::exchange(isIn_, false)) return;
    const double wall = static_cast<double>(since_.nsecsElapsed()) / 1e6;
    frames_.push_back(std::max(0.0, wall - (waitedMilliseconds() - waitedBefore_)));
  }

  QElapsedTimer since_;
  double waitedBefore_ = 0;
  bool isIn_ = false;
  std::vector<double> frames_;
};

/// People who are at work as far as their files tell: a note for each, and its lock, held here.
class Crowd {
 public:
  Crowd(const std::string& projects, const Cookie& project, const ObjectRows& edits) {
    const std::string folder = notesFolder(projects);
    for (int i = 1; i < kPeople; ++i) {
      StationNote note;
      char id[40];
      std::snprintf(id, sizeof id, "437b81f4b3d04882af62d0db%08x", static_cast<unsigned>(i));
      note.id = id;
      note.user = note.host = "USER" + std::to_string(i);
      note.machine = 100 + i;
      note.project = project;
      note.projectName = "Many";
      note.since = note.written = "2026-01-05T08:00:00Z";
      const std::size_t from = static_cast<std::size_t>(i) * 7;
      for (std::size_t open = from; open < from + 5; ++open) {
        note.open.emplace_back(edits[open].cookie.toStdString().c_str(), false);
      }
      hold(noteLock(folder, note.id));
      std::ofstream(folder + "/new") << noteText(note);
      std::filesystem::rename(folder + "/new", folder + "/" + note.id + ".json");
    }
  }
  Crowd(const Crowd&) = delete;
  Crowd& operator=(const Crowd&) = delete;
  ~Crowd() {
    for (const int lock : locks_) ::close(lock);
  }

 private:
  void hold(const std::string& path) {
    const int lock = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    struct flock whole {};
    whole.l_type = F_WRLCK;
    if (lock < 0 || ::fcntl(lock, F_OFD_SETLK, &whole) != 0) std::perror(path.c_str());
    locks_.push_back(lock);
  }

  std::vector<int> locks_;
};

/// Has another station tell that edits were saved, 200 a second and each time another one.
class Changes {
 public:
  Changes(const WindowScene& scene, std::string saved, const std::string& cookie, ObjectRows edits)
      : scene_(scene), saved_(std::move(saved)), cookie_(cookie), edits_(std::move(edits)) {
    thread_ = std::thread([this] { run(); });
  }
  ~Changes() {
    isEnding_ = true;
    thread_.join();
  }
  [[nodiscard]] std::size_t count() const { return count_; }

 private:
  void run() {
    auto next = std::chrono::steady_clock::now();
    for (; !isEnding_; ++count_) {
      const ObjectRow& edit = edits_[count_ * 131 % edits_.size()];
      std::string text = saved_;
      text.replace(text.find(cookie_), cookie_.size(), edit.cookie.toStdString());
      scene_.sayAloud(text);
      next += std::chrono::microseconds(1'000'000 / kChangesPerSecond);
      std::this_thread::sleep_until(next);
    }
  }

  const WindowScene& scene_;
  std::string saved_;
  std::string cookie_;
  ObjectRows edits_;
  std::atomic<bool> isEnding_ = false;
  std::atomic<std::size_t> count_ = 0;
  std::thread thread_;
};

void report(const char* what, const FrameCount& frames) {
  std::printf("%-34s %8zu %10.1f %10.1f %12.2f %%  %s\n", what, frames.count(),
              frames.ninetyNinth(), frames.longest(), frames.shareOver(kMostFrameMs),
              frames.longest() < kMostFrameMs ? "kept" : "MISSED");
  std::fflush(stdout);
}

void measure(const char* what, int seconds, const std::function<void(int)>& act) {
  const FrameCount frames;
  QElapsedTimer since;
  since.start();
  for (int step = 0; since.elapsed() < seconds * 1000; ++step) {
    act(step);
    QTest::qWait(16);
  }
  report(what, frames);
}

void playBench(WindowScene& scene, MainWindow& window, int seconds) {
  waitFor([&] { return window.snapshot() && !window.snapshot()->projects->empty(); });
  scene.writeEdits(kEdits - 1);
  StationProcess ben(scene.other("BEN"));
  ben.waitUntilReady();
  ben.command("project enter Many");
  ben.command("edit create New");
  ben.command("edit save New");
  const auto saved = ben.waitFor("sent", {{"type_name", "EditSaved"}});
  ben.quit();
  window.link().run("project enter Many");
  const auto areListed = [&] { return window.objects().rows(ObjectKind::eEdits).size() == kEdits; };
  if (!saved || !waitFor(areListed, kSetUpMs)) std::abort();
  const ObjectRows edits = window.objects().rows(ObjectKind::eEdits);
  const Crowd crowd(scene.projects,
                    Cookie(window.snapshot()->project.cookie.toStdString().c_str(), false), edits);
  const auto here = [&] { return window.snapshot()->presence.stations.size() >= kPeople; };
  if (!waitFor(here, kSetUpMs)) std::abort();
  QTreeView& view = window.objects().view(ObjectKind::eEdits);
  auto* const search = window.objects().findChild<QLineEdit*>();
  view.setFocus();
  std::printf("%-34s %8s %10s %10s %14s\n", "", "frames", "p99 ms", "longest", "over 50 ms");
  const auto scroll = [&](int step) {
    QTest::keyClick(&view, step / 150 % 2 == 0 ? Qt::Key_PageDown : Qt::Key_PageUp);
  };
  const auto narrow = [&](int step) {
    if (step % 4 != 0) return;
    step / 4 % 8 < 4 ? QTest::keyClick(search, static_cast<Qt::Key>(Qt::Key_1 + step / 4 % 4))
                     : QTest::keyClick(search, Qt::Key_Backspace);
  };
  measure("scrolled by pages", seconds, scroll);
  measure("narrowed while typing", seconds, narrow);
  search->clear();
  const Changes changes(scene, bytesOf((*saved)["text_hex"].asString()),
                        (*saved)["cookie"].asString(), edits);
  measure("200 changes a second", seconds, [](int) {});
  measure("... and scrolled", seconds, scroll);
  measure("... and narrowed", seconds, narrow);
  search->clear();
  std::printf("%zu changes said, %lu messages received, %zu people\n", changes.count(),
              window.received(), window.snapshot()->presence.stations.size());
}

}  // namespace

int main(int argc, char** argv) {
  WindowScene scene;
  scene.script = "project create Many\n";
  const int seconds = argc == 2 ? std::max(1, std::atoi(argv[1])) : 10;
  return scene.play([&](MainWindow& window) { playBench(scene, window, seconds); });
}
