// Takes the pictures of the window that the documents show: window_shots NAME FILE [WIDTH HEIGHT].

#include <QComboBox>
#include <QDialog>
#include <QDockWidget>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QToolButton>
#include <QTreeView>
#include <QTreeWidget>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "app/window/HistoryPane.h"
#include "app/window/MessageBar.h"
#include "app/window/PeoplePane.h"
#include "app/window/WindowLayout.h"
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

/// Who is at work, and with what.
void takePeople(WindowScene& scene, MainWindow& window) {
  StationProcess ben(scene.other("BEN"));
  StationProcess carla(scene.other("CARLA"));
  StationProcess dora(scene.other("Dora Dunn"));
  showFilm(window, ben);
  ben.command("edit rename \"Opening titles\" \"Opening titles, v2\"");
  ben.command("edit open \"Harbour, rough cut\"");
  for (StationProcess* each : {&carla, &dora}) {
    each->waitUntilReady();
    each->command("project enter Harbour");
    each->command("edit open \"Harbour, rough cut\"");
  }
  carla.command("room enter Sound");
  QTest::qWait(4000);
  dora.kill9();
  window.findChild<QDockWidget*>("peopleDock")->show();
  waitFor(
      [&] {
        return !window.people().rows().empty() && !window.people().rows().back().station.isHere;
      },
      40'000);
  window.people().list().setCurrentItem(window.people().list().topLevelItem(1));
  letItSettle();
}

/// A colleague asks for an edit, and what was said is open.
void takeAsked(WindowScene& scene, MainWindow& window) {
  StationProcess ben(scene.other("BEN"));
  showFilm(window, ben);
  ben.command("user add ANNA");
  command(window, "say BEN \"The crane shot is yours, I am through with it.\"");
  ben.command("say ANNA \"Thank you! I take it from 01:12 on.\"");
  ben.command("say \"<All>\" \"Screening at five in room 2. Please save before.\"");
  window.findChild<QDockWidget*>("conversationDock")->show();
  ben.command("ask \"Harbour, rough cut\" \"only for the titles, till five\"");
  waitFor([&] { return window.asks().isVisible(); });
  letItSettle();
}

/// What colleagues did, with the pane of it in front.
void takeHappened(WindowScene& scene, MainWindow& window) {
  StationProcess ben(scene.other("BEN"));
  StationProcess carla(scene.other("CARLA"));
  showFilm(window, ben);
  carla.waitUntilReady();
  carla.command("project enter Harbour");
  command(window, "edit open \"Harbour, rough cut\"");
  for (const char* line :
       {"edit trim \"Opening titles\" 0/0 0 12", "bin create Selects",
        "edit rename \"Opening titles\" \"Opening titles, v2\"", "edit save \"Opening titles, v2\"",
        "edit create Scratch", "edit save Scratch", "edit delete Scratch"}) {
    ben.command(line);
  }
  command(window, "edit give \"Harbour, rough cut\" CARLA");
  waitFor([&] { return carla.waitFor("changed", {{"what", "permissions"}}).has_value(); });
  carla.command("edit trim \"Harbour, rough cut\" 0/2 0s 1s");
  carla.command("edit save \"Harbour, rough cut\"");
  carla.command("edit trim \"Harbour, rough cut\" 1/1 0s 1s");
  window.findChild<QDockWidget*>("happenedDock")->show();
  waitFor([&] { return window.happened().list().model()->rowCount() > 8; });
  letItSettle();
}

/// Several ask, and one answered.
void takeAsks(WindowScene& scene, MainWindow& window) {
  StationProcess carla(scene.other("CARLA"));
  takeAsked(scene, window);
  carla.waitUntilReady();
  carla.command("project enter Harbour");
  carla.command("ask transition_test");
  window.link().run("ask \"Opening titles\"");
  waitFor([&] { return window.asks().text().startsWith("2 asks"); });
  window.asks().button().click();
  letItSettle();
}

/// An edit of another's that is wanted.
void takeOwned(WindowScene& scene, MainWindow& window) {
  StationProcess ben(scene.other("BEN"));
  showFilm(window, ben);
  clickEdit(window, "Opening titles");
  QApplication::setActiveWindow(&window);
  window.link().run("edit rename " + keyOf(window, "Opening titles") + " Titles");
  letItSettle();
}

/// Saves an edit under another name and as BEN, without a word on the network.
void saveBehind(const WindowScene& scene, const std::string& cookie) {
  for (const auto& each :
       std::filesystem::recursive_directory_iterator(scene.folder / "projects")) {
    if (each.path().filename() != cookie + ".otio") continue;
    std::ifstream in(each.path());
    std::string text{std::istreambuf_iterator<char>(in), {}};
    text.replace(text.find("rough cut"), 9, "fine cut");
    text.replace(text.find("\"ANNA\"", text.find("\"saved\"")), 6, "\"BEN\"");
    std::ofstream(each.path().string() + ".new") << text;
    std::filesystem::rename(each.path().string() + ".new", each.path());
    return;
  }
}

/// What another saved while this one has unsaved changes.
void takeConflict(WindowScene& scene, MainWindow& window) {
  StationProcess ben(scene.other("BEN"));
  showFilm(window, ben);
  const QString cut = keyOf(window, "Harbour, rough cut");
  window.link().run("edit trim \"Harbour, rough cut\" 0/2 0s 1s");
  waitFor([&] { return window.objects().find(cut)->isDirty; });
  saveBehind(scene, cut.toStdString());
  window.link().run("edit save \"Harbour, rough cut\"");
  letItSettle();
}

void takeDelete(WindowScene& scene, MainWindow& window) {
  StationProcess ben(scene.other("BEN"));
  showFilm(window, ben);
  ben.command("edit open \"Harbour, rough cut\"");
  QTest::qWait(4000);
  QTest::keyClick(&window.objects().view(ObjectKind::eEdits), Qt::Key_Delete);
  letItSettle();
}

/// Leaving asks what becomes of unsaved changes.
void takeLeave(WindowScene& scene, MainWindow& window) {
  StationProcess ben(scene.other("BEN"));
  showFilm(window, ben);
  window.link().run("edit rename \"Harbour, rough cut\" \"Harbour, fine cut\"");
  letItSettle();
  QApplication::setActiveWindow(&window);
  QTest::keyClick(&window, Qt::Key_L, Qt::ControlModifier | Qt::ShiftModifier);
  letItSettle();
}

/// A second edit of one name is asked about.
void takeName(WindowScene& scene, MainWindow& window) {
  StationProcess ben(scene.other("BEN"));
  showFilm(window, ben);
  QApplication::setActiveWindow(&window);
  QTest::keyClick(&window, Qt::Key_E, Qt::ControlModifier);
  letItSettle();
  auto* const dialog = window.findChild<QDialog*>("actionDialog");
  dialog->findChild<QLineEdit*>()->setText("Opening titles");
  QTest::keyClick(dialog, Qt::Key_Return);
  letItSettle();
}

/// Giving to somebody whom nobody knows is asked about.
void takeGive(WindowScene& scene, MainWindow& window) {
  StationProcess ben(scene.other("BEN"));
  showFilm(window, ben);
  QApplication::setActiveWindow(&window);
  window.menus().action("edit give {object} {0}")->trigger();
  letItSettle();
  auto* const dialog = window.findChild<QDialog*>("actionDialog");
  dialog->findChild<QComboBox*>()->setEditText("GHOST");
  QTest::keyClick(dialog, Qt::Key_Return);
  letItSettle();
}

/// An export over a file is asked about.
void takeReplace(WindowScene& scene, MainWindow& window) {
  StationProcess ben(scene.other("BEN"));
  showFilm(window, ben);
  const std::string file = scene.folder / "friday.otio";
  std::ofstream(file) << "Friday";
  window.link().run(QString::fromStdString("edit export \"Harbour, rough cut\" \"" + file + '"'));
  letItSettle();
}

/// A clip's end on its way under the mouse.
void takeTrim(WindowScene& scene, MainWindow& window) {
  StationProcess ben(scene.other("BEN"));
  showFilm(window, ben);
  const TimelineView& view = window.detail().view();
  const QRect clip = view.rectOf(0, 2);
  const QPoint end(clip.right() - 1, clip.center().y());
  QTest::mousePress(view.viewport(), Qt::LeftButton, {}, end);
  for (int way = 0; way <= clip.width() / 3; ++way) {
    QTest::mouseMove(view.viewport(), end - QPoint(way, 0));
  }
  letItSettle();
}

/// Where a clip is to begin is typed, and is no place for it.
void takeTrimDialog(WindowScene& scene, MainWindow& window) {
  StationProcess ben(scene.other("BEN"));
  showFilm(window, ben);
  QApplication::setActiveWindow(&window);
  QTest::keyClick(&window, Qt::Key_T, Qt::ControlModifier);
  letItSettle();
  auto* const in = window.findChild<QDialog*>("trimDialog")->findChild<QLineEdit*>("in");
  QTest::keyClicks(in, "1:48");
  letItSettle();
}

void takeTrash(WindowScene& scene, MainWindow& window) {
  StationProcess ben(scene.other("BEN"));
  showFilm(window, ben);
  ben.command("edit delete \"Opening titles\"");
  window.link().run("edit delete \"Reel 7, dailies\"");
  window.link().run("bin destroy Selects");
  letItSettle();
  QApplication::setActiveWindow(&window);
  QTest::keyClick(&window, Qt::Key_T, Qt::ControlModifier | Qt::ShiftModifier);
  letItSettle();
}

/// A station of the same user's was killed before.
void takeRecovery(WindowScene& scene, MainWindow& window) {
  waitForProject(window, "");
  StationProcess killed(scene.other("ANNA"));
  killed.waitUntilReady();
  for (const char* line : {"project create Harbour", "project enter Harbour", "edit create Quay",
                           "edit create Pier", "edit rename Quay Dock", "edit rename Pier Mole"}) {
    killed.command(line);
  }
  QTest::qWait(2500);
  killed.kill9();
  window.link().run("project enter Harbour");
  letItSettle();
}

/// The preferences, with something that cannot be used.
void takePreferences(WindowScene& scene, MainWindow& window) {
  const std::filesystem::path file = scene.folder / "config/korvel/station.conf";
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file) << "projects = /mnt/projects\nuser = ANNA\nhost = ANNA\n";
  StationProcess ben(scene.other("BEN"));
  showFilm(window, ben);
  QApplication::setActiveWindow(&window);
  QTest::keyClick(&window, Qt::Key_Comma, Qt::ControlModifier);
  letItSettle();
  auto* const dialog = window.findChild<QDialog*>("preferencesDialog");
  QTest::keyClicks(dialog->findChild<QLineEdit*>("machine"), "seven");
  letItSettle();
}

/// The question of a first start, with what doctor says.
bool takeStart(const WindowScene& scene, StartDialog& dialog, const QString& file) {
  auto* const saying = dialog.findChild<QLabel*>("folderSaying");
  auto* const folder = dialog.findChild<QLineEdit*>("folder");
  folder->setText(QString::fromStdString(scene.folder / "projects"));
  dialog.findChild<QLineEdit*>("user")->setText("ANNA");
  waitFor([saying] { return saying->text().startsWith("It "); }, 60'000);
  letItSettle();
  const bool isTaken = dialog.grab().save(file);
  dialog.reject();
  return isTaken;
}

/// The window with the dialog that is open in front of it.
QPixmap pictureOf(MainWindow& window) {
  QPixmap picture = window.grab();
  for (QDialog* dialog : window.findChildren<QDialog*>()) {
    if (!dialog->isVisible()) continue;
    const QPixmap front = dialog->grab();
    const QPoint at((picture.width() - front.width()) / 2, (picture.height() - front.height()) / 3);
    QPainter painter(&picture);
    painter.drawPixmap(at, front);
    painter.setPen(Qt::gray);
    painter.drawRect(QRect(at, front.size()).adjusted(-1, -1, 0, 0));
  }
  return picture;
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
      {"history-dark", {kFilm, "dark", takeHistory}},
      {"people", {kFilm, "light", takePeople}},
      {"people-dark", {kFilm, "dark", takePeople}},
      {"asked", {kFilm, "light", takeAsked}},
      {"asked-dark", {kFilm, "dark", takeAsked}},
      {"happened", {kFilm, "light", takeHappened}},
      {"happened-dark", {kFilm, "dark", takeHappened}},
      {"asks", {kFilm, "light", takeAsks}},
      {"owned", {kFilm, "light", takeOwned}},
      {"conflict", {kFilm, "light", takeConflict}},
      {"conflict-dark", {kFilm, "dark", takeConflict}},
      {"delete", {kFilm, "light", takeDelete}},
      {"leave", {kFilm, "light", takeLeave}},
      {"name", {kFilm, "light", takeName}},
      {"give", {kFilm, "light", takeGive}},
      {"replace", {kFilm, "light", takeReplace}},
      {"delete-dark", {kFilm, "dark", takeDelete}},
      {"trim", {kFilm, "light", takeTrim}},
      {"trim-dark", {kFilm, "dark", takeTrim}},
      {"trim-dialog", {kFilm, "light", takeTrimDialog}},
      {"trim-dialog-dark", {kFilm, "dark", takeTrimDialog}},
      {"trash", {kFilm, "light", takeTrash}},
      {"trash-dark", {kFilm, "dark", takeTrash}},
      {"recovery", {"", "light", takeRecovery}},
      {"recovery-dark", {"", "dark", takeRecovery}},
      {"preferences", {kFilm, "light", takePreferences}},
      {"preferences-dark", {kFilm, "dark", takePreferences}},
      {"start", {"", "light", nullptr}},
      {"start-dark", {"", "dark", nullptr}},
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
    std::fputs("usage: window_shots NAME FILE.png [WIDTH HEIGHT]; the names:", stderr);
    for (const auto& [name, shot] : shots()) std::fprintf(stderr, " %s", name.c_str());
    std::fputs("\n", stderr);
    return 2;
  }
  WindowScene scene;
  scene.script = found->second.script;
  windowSettings().setValue("appearance", found->second.appearance);
  const QSize size = argc == 5 ? QSize(std::atoi(argv[3]), std::atoi(argv[4])) : QSize(1240, 760);
  bool isTaken = false;
  if (!found->second.take) {
    scene.asked = [&](StartDialog& dialog) {
      if (argc == 5) dialog.resize(size);
      isTaken = takeStart(scene, dialog, argv[2]);
    };
  }
  scene.play([&](MainWindow& window) {
    window.resize(size);
    found->second.take(scene, window);
    isTaken = pictureOf(window).save(argv[2]);
  });
  return isTaken ? 0 : 1;
}
