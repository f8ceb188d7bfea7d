// Takes the pictures of the window that the documents show: window_shots NAME FILE [WIDTH HEIGHT].

#include <QTreeView>
#include <QTreeWidget>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>

#include "app/window/HistoryPane.h"
#include "app/window/MessageBar.h"
#include "app/window/WindowSettings.h"
#include "tests/window/WindowScene.h"

using namespace korvel;

namespace korvel {

namespace {

constexpr const char* kFilm =
    "project create Harbour\n"
    "project enter Harbour\n"
    "edit import " KV_DATA
    "/otio/multitrack.otio\n"
    "edit rename \"OTIO TEST - multitrack.Exported.01\" \"Harbour, rough cut\"\n"
    "edit save \"Harbour, rough cut\"\n"
    "edit import " KV_DATA
    "/otio/screening_example.otio\n"
    "edit import " KV_DATA
    "/otio/transition_test.otio\n"
    "log create \"Reel 7, dailies\"\n"
    "bin create Selects\n"
    "room create Sound\n"
    "room create Grading\n"
    "user add BEN\n"
    "user add CARLA\n";

void letItSettle() { QTest::qWait(1500); }

/// The window with the multitrack edit chosen, and what a colleague did beside it.
void showFilm(MainWindow& window, StationProcess& ben) {
  waitFor([&] { return window.objects().rows(ObjectKind::eEdits).size() >= 4; });
  ben.waitUntilReady();
  for (const char* line :
       {"project create Trailer --private", "project enter Harbour", "room enter Sound",
        "edit create \"Opening titles\"", "edit save \"Opening titles\""}) {
    ben.command(line);
  }
  const QString cut = keyOf(window, "Harbour, rough cut");
  window.objects().choose(ObjectKind::eEdits, cut);
  window.objects().view(ObjectKind::eEdits).setFocus();
  waitFor([&] { return window.detail().view().timeline() != nullptr; });
  letItSettle();
}

void takeEdit(WindowScene& scene, MainWindow& window) {
  StationProcess ben(scene.other("BEN"));
  showFilm(window, ben);
}

void takePanel(WindowScene& scene, MainWindow& window) {
  StationProcess ben(scene.other("BEN"));
  showFilm(window, ben);
  command(window, "say BEN \"The crane shot is yours, I am through with it.\"");
  command(window, "say <All> \"Screening at five in room 2. Please save before.\"");
  ben.command("user add ANNA");
  ben.command("say ANNA \"Thank you! I take it from 01:12 on.\"");
  letItSettle();
}

void takeRefused(WindowScene& scene, MainWindow& window) {
  StationProcess ben(scene.other("BEN"));
  showFilm(window, ben);
  ben.command("project enter Trailer");
  command(window, "project enter Trailer");
  window.link().lookAgain();
  letItSettle();
}

/// The film with the history of the cut, an older version chosen.
void takeHistory(WindowScene& scene, MainWindow& window) {
  StationProcess ben(scene.other("BEN"));
  showFilm(window, ben);
  for (const char* line :
       {"edit trim \"Harbour, rough cut\" 0/2 0s 1s", "edit save \"Harbour, rough cut\"",
        "edit trim \"Harbour, rough cut\" 1/1 0s 1s", "edit save \"Harbour, rough cut\""}) {
    command(window, line);
  }
  QApplication::setActiveWindow(&window);
  QTest::keyClick(&window, Qt::Key_H, Qt::ControlModifier);
  waitFor([&] { return window.history().rows().size() > 2; });
  QTreeWidget& list = window.history().list();
  list.setFocus();
  list.setCurrentItem(list.topLevelItem(2));
  letItSettle();
}

void takeEmpty(WindowScene&, MainWindow& window) {
  waitForProject(window, "Harbour");
  letItSettle();
}

void takeMany(WindowScene& scene, MainWindow& window) {
  waitFor([&] { return window.snapshot() && !window.snapshot()->projects->empty(); });
  scene.writeEdits(10'000);
  command(window, "project enter Series");
  waitFor([&] { return window.objects().rows(ObjectKind::eEdits).size() == 10'000; }, 60'000);
  window.objects().choose(ObjectKind::eEdits, keyOf(window, "Edit 4711"));
  letItSettle();
}

struct Shot {
  std::string script;
  const char* appearance;
  void (*take)(WindowScene&, MainWindow&);
};

const std::map<std::string, Shot>& shots() {
  static const std::map<std::string, Shot> kShots{
      {"edit", {kFilm, "light", takeEdit}},
      {"panel", {kFilm, "light", takePanel}},
      {"refused", {kFilm, "light", takeRefused}},
      {"dark", {kFilm, "dark", takeEdit}},
      {"history", {kFilm, "light", takeHistory}},
      {"empty", {"project create Harbour\nproject enter Harbour\n", "light", takeEmpty}},
      {"many", {"project create Series\n", "light", takeMany}},
  };
  return kShots;
}

}  // namespace

}  // namespace korvel

int main(int argc, char** argv) {
  const auto found = argc == 3 || argc == 5 ? shots().find(argv[1]) : shots().end();
  if (found == shots().end()) {
    std::fputs(
        "usage: window_shots edit|panel|refused|dark|history|empty|many FILE.png [WIDTH HEIGHT]\n",
        stderr);
    return 2;
  }
  WindowScene scene;
  scene.script = found->second.script;
  windowSettings().setValue("appearance", found->second.appearance);
  const QSize size = argc == 5 ? QSize(std::atoi(argv[3]), std::atoi(argv[4])) : QSize(1240, 760);
  bool isTaken = false;
  scene.play([&](MainWindow& window) {
    window.resize(size);
    found->second.take(scene, window);
    isTaken = window.grab().save(argv[2]);
  });
  return isTaken ? 0 : 1;
}
