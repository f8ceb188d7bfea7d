// A day's work of two people, from the first question to the last word, played in two windows on
// one folder: ANNA's and BEN's, each a program of its own. With KV_FILM=FOLDER each step leaves a
// picture of both windows there, in the size KV_FILM_SIZE=640x480 and with the colours
// KV_FILM_APPEARANCE=dark where these are set.

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "app/window/HistoryPane.h"
#include "app/window/MessageBar.h"
#include "tests/window/FilmHands.h"
#include "tests/window/WindowScene.h"

using namespace korvel;

namespace {

constexpr int kFilmWaitMs = 15'000;
constexpr int kMeetingMs = 200'000;
constexpr const char* kCut = "Harbour, rough cut";
constexpr const char* kClip = "KOLL-HD.mp4";
constexpr long kClipFrames = 640;

constexpr const char* kAnnasScript =
    "project create Harbour\n"
    "project enter Harbour\n"
    "edit import " KV_DATA
    "/otio/multitrack.otio\n"
    "edit rename \"OTIO TEST - multitrack.Exported.01\" \"Harbour, rough cut\"\n"
    "edit save \"Harbour, rough cut\"\n"
    "edit create \"Opening titles\"\n"
    "edit save \"Opening titles\"\n"
    "room create Sound\n"
    "user add BEN\n";

bool waitLong(const std::function<bool()>& condition) { return waitFor(condition, kFilmWaitMs); }

/// Where two programs wait for each other.
class MeetingPoint {
 public:
  explicit MeetingPoint(int socket) : socket_(socket) {}
  MeetingPoint(const MeetingPoint&) = delete;
  MeetingPoint& operator=(const MeetingPoint&) = delete;
  ~MeetingPoint() { leave(); }

  /// Waits until the other is there, too; false when it does not come any more.
  bool meet() {
    if (socket_ < 0 || ::send(socket_, "", 1, MSG_NOSIGNAL) != 1) return false;
    ssize_t got = -1;
    waitFor(
        [&] {
          char byte = 0;
          got = ::recv(socket_, &byte, 1, MSG_DONTWAIT);
          return got >= 0;
        },
        kMeetingMs);
    return got == 1;
  }

  /// The other one waits for nothing any more.
  void leave() {
    if (socket_ >= 0) ::close(socket_);
    socket_ = -1;
  }

 private:
  int socket_;
};

struct Pictures {
  std::string folder = qEnvironmentVariable("KV_FILM").toStdString();
  QSize size{1280, 800};

  Pictures() {
    const QStringList asked = qEnvironmentVariable("KV_FILM_SIZE").split('x');
    if (asked.size() == 2) size = {asked[0].toInt(), asked[1].toInt()};
  }

  void take(MainWindow& window, const std::string& name) const {
    if (folder.empty()) return;
    QTest::qWait(700);  // for what is still on its way; no check depends on it
    const std::string file = folder + "/" + name + ".png";
    EXPECT_TRUE(window.grab().save(QString::fromStdString(file))) << file;
  }
};

/// One of the two at work, in the process that is theirs.
class Player {
 public:
  using Act = std::function<void()>;
  using MakeHand = std::unique_ptr<Hand> (*)(MainWindow&);

  Player(const std::string& name, MainWindow& window, MakeHand makeHand, MeetingPoint& point)
      : name_(name), window_(window), hand_(makeHand(window)), point_(point) {
    window_.resize(pictures_.size);
  }

  void play();

 private:
  [[nodiscard]] bool isAnna() const { return name_ == "ANNA"; }

  /// A step of the film: what each does and then sees. Ends once both have seen it.
  void step(const std::string& what, const Act& anna, const Act& ben) {
    ++number_;
    if (isOver_) return;
    SCOPED_TRACE(name_ + ", step " + std::to_string(number_) + ": " + what);
    isAnna() ? anna() : ben();
    picture(what);
    const bool isWell = !testing::Test::HasFailure();
    if (!isWell) {
      std::fprintf(stderr, "%s stops at the step \"%s\"\n", name_.c_str(), what.c_str());
      point_.leave();
    }
    isOver_ = !isWell || !point_.meet();
    EXPECT_FALSE(isOver_ && isWell) << "the other has stopped";
  }

  void picture(const std::string& what) const {
    pictures_.take(window_, std::to_string(number_) + "-" + what + "-" + name_);
  }

  void sees(const QString& words) const {
    EXPECT_TRUE(waitLong([&] { return hand_->reads(words); })) << words.toStdString();
  }

  /// What the list says of the cut.
  [[nodiscard]] QString listed(ObjectsModel::Column column) const {
    const ObjectsModel& model = window_.objects().model(ObjectKind::eEdits);
    const int row = model.rowOf(keyOf(window_, kCut));
    for (int section = 0; row >= 0 && section < model.columnCount(); ++section) {
      if (model.columnAt(section) == column) return model.index(row, section).data().toString();
    }
    return {};
  }

  void isListed(ObjectsModel::Column column, const QString& text) const {
    EXPECT_TRUE(waitLong([&] { return listed(column) == text; }))
        << text.toStdString() << ", but \"" << listed(column).toStdString() << '"';
  }

  /// How many frames of the clip the timeline shows; 0 where it shows none.
  [[nodiscard]] long drawnFrames() const {
    const TimelinePtr& timeline = window_.detail().view().timeline();
    if (!timeline) return 0;
    for (const TimelineTrack& track : timeline->tracks) {
      for (const TimelineItem& item : track.items) {
        if (item.name == kClip) return std::lround(item.length * item.rate);
      }
    }
    return 0;
  }

  void isDrawn(const std::function<bool(long)>& is) const {
    EXPECT_TRUE(waitLong([&] { return is(drawnFrames()); })) << drawnFrames() << " frames";
  }

  /// Whether the history is in sight, and its newest version says so.
  void newestVersionSays(const QString& words) const {
    const auto& rows = window_.history().rows();
    EXPECT_TRUE(waitLong([&] {
      return window_.history().isVisible() && !rows.empty() && rows.front().changes.contains(words);
    })) << (rows.empty() ? "no version" : rows.front().changes.toStdString());
  }

  void takeSeats();
  void ask();
  void give();
  void open();
  void trim();
  void save();
  void lookBack();
  void undo();
  void write();
  void answer();

  static bool isWhole(long frames) { return frames == kClipFrames; }
  static bool isShorter(long frames) { return frames > 0 && frames < kClipFrames; }

  std::string name_;
  MainWindow& window_;
  std::unique_ptr<Hand> hand_;
  MeetingPoint& point_;
  Pictures pictures_;
  int number_ = 0;
  bool isOver_ = false;
};

void Player::play() {
  takeSeats();
  ask();
  give();
  open();
  trim();
  save();
  lookBack();
  undo();
  write();
  answer();
}

void Player::takeSeats() {
  const auto isTogether = [this] {
    const auto isIn = [](const StationRow& each) { return each.project == "Harbour"; };
    EXPECT_TRUE(waitLong([&] {
      return window_.snapshot() &&
             std::ranges::count_if(window_.snapshot()->presence.stations, isIn) == 2;
    }));
  };
  step(
      "seats",
      [&] {
        ASSERT_TRUE(waitForProject(window_, "Harbour"));
        hand_->chooseEdit(kCut);
        isListed(ObjectsModel::eMay, "change it");
        hand_->menu("Edit", "Open");
        isListed(ObjectsModel::eState, "open");
        isTogether();
      },
      [&] {
        hand_->enterProject("Harbour");
        ASSERT_TRUE(waitLong([&] { return !keyOf(window_, kCut).isEmpty(); }));
        hand_->chooseEdit(kCut);
        isListed(ObjectsModel::eMay, "look only");
        isDrawn(isWhole);
        isTogether();
      });
}

void Player::ask() {
  step(
      "ask", [&] { sees("BEN asks for the edit \"Harbour, rough cut\""); },
      [&] {
        hand_->menu("Edit", "Ask its owner for it");
        sees("ANNA is asked for \"Harbour, rough cut\".");
      });
}

void Player::give() {
  step(
      "give",
      [&] {
        hand_->press("Give");
        isListed(ObjectsModel::eOwner, "BEN");
        EXPECT_TRUE(waitLong([&] { return !window_.asks().isVisible(); }));
      },
      [&] {
        sees("ANNA gives you the edit \"Harbour, rough cut\"");
        isListed(ObjectsModel::eOwner, "BEN");
      });
}

void Player::open() {
  const auto isOpenAtBens = [this] {
    const auto isIt = [this](const StationRow& each) {
      return each.user == "BEN" && each.open.contains(keyOf(window_, kCut));
    };
    return waitLong(
        [&] { return std::ranges::any_of(window_.snapshot()->presence.stations, isIt); });
  };
  step(
      "open", [&] { EXPECT_TRUE(isOpenAtBens()); },
      [&] {
        hand_->press("Open Harbour, rough cut");
        isListed(ObjectsModel::eState, "open");
        isListed(ObjectsModel::eMay, "change it");
        EXPECT_TRUE(waitLong([&] { return !window_.answers().isVisible(); }));
      });
}

void Player::trim() {
  step(
      "trim",
      [&] {
        isListed(ObjectsModel::eState, "unsaved there");
        isListed(ObjectsModel::eMay, "look only");
        sees("BEN trimmed KOLL-HD.mp4");
        EXPECT_TRUE(isWhole(drawnFrames())) << "nothing moves under the hand";
        hand_->press("Show the change (F7)");
        isDrawn(isShorter);
      },
      [&] {
        hand_->trimOut(kClip, [&] { picture("trimming"); });
        isDrawn(isShorter);
        isListed(ObjectsModel::eState, "open, unsaved");
      });
}

void Player::save() {
  step(
      "save",
      [&] {
        isListed(ObjectsModel::eSavedBy, "BEN");
        isListed(ObjectsModel::eState, "open");
        isDrawn(isShorter);
      },
      [&] {
        hand_->menu("Edit", "Save");
        isListed(ObjectsModel::eState, "open");
        isListed(ObjectsModel::eSavedBy, "BEN");
      });
}

void Player::lookBack() {
  const auto look = [this] {
    hand_->menu("View", "History");
    newestVersionSays(kClip);
    hand_->chooseVersion(1);
    isDrawn(isWhole);
    sees("marked: what changed since");
  };
  step("history", look, look);
}

void Player::undo() {
  const auto hideHistory = [this] {
    hand_->menu("View", "History");
    EXPECT_TRUE(waitLong([&] { return !window_.history().isVisible(); }));
    isDrawn(isShorter);
  };
  step("now", hideHistory, hideHistory);
  step(
      "undo", [&] { isListed(ObjectsModel::eState, "unsaved there"); },
      [&] {
        hand_->menu("Edit", "Undo");
        isDrawn(isWhole);
        isListed(ObjectsModel::eState, "open, unsaved");
      });
}

void Player::write() {
  step(
      "write",
      [&] {
        sees("The crane shot is too long, I leave it to you.");
        EXPECT_EQ(window_.conversation().unread(), 1) << "the ask was answered";
        EXPECT_EQ(window_.windowTitle().toStdString(), "(1) Harbour - Station");
      },
      [&] {
        hand_->menu("Messages", "Open the panel");
        hand_->write("ANNA", "The crane shot is too long, I leave it to you.");
        sees("The crane shot is too long, I leave it to you.");
      });
}

void Player::answer() {
  step(
      "answer",
      [&] {
        hand_->menu("View", "Conversation (1)");
        EXPECT_TRUE(waitLong([&] { return window_.windowTitle() == "Harbour - Station"; }));
        hand_->menu("Messages", "Open the panel");
        hand_->write("BEN", "Thank you. I take it back after lunch.");
        sees("Thank you. I take it back after lunch.");
      },
      [&] {
        sees("Thank you. I take it back after lunch.");
        EXPECT_TRUE(waitLong([&] { return window_.windowTitle().contains("Harbour"); }));
      });
}

/// Plays the film, ANNA in this process and BEN in one that it starts.
class FilmTest : public testing::Test {
 protected:
  void film(Player::MakeHand makeHand) {
    WindowScene anna;
    anna.script = kAnnasScript;
    int sockets[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets), 0);
    std::fflush(nullptr);
    const pid_t ben = ::fork();
    ASSERT_GE(ben, 0);
    if (ben == 0) {
      ::close(sockets[0]);
      playBen(anna, sockets[1], makeHand);
    }
    ::close(sockets[1]);
    play(anna, sockets[0], makeHand);
    int status = -1;
    EXPECT_EQ(::waitpid(ben, &status, 0), ben);
    EXPECT_EQ(status, 0) << "BEN did not get through the film";
  }

 private:
  static void play(WindowScene& scene, int socket, Player::MakeHand makeHand) {
    MeetingPoint point(socket);
    const QString appearance = qEnvironmentVariable("KV_FILM_APPEARANCE", "light");
    windowSettings().setValue("appearance", appearance);
    scene.play([&](MainWindow& window) {
      Player(scene.user, window, makeHand, point).play();
      point.leave();
    });
  }

  [[noreturn]] static void playBen(const WindowScene& anna, int socket, Player::MakeHand makeHand) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    {
      WindowScene scene;
      scene.user = "BEN";
      scene.machine = 2;
      scene.projects = anna.projects;
      scene.port = anna.port;
      scene.script = "user add ANNA\n";
      play(scene, socket, makeHand);
    }
    std::fflush(nullptr);
    ::_exit(HasFailure() ? 1 : 0);
  }
};

TEST_F(FilmTest, AnEditGoesFromHandToHandByMouse) { film(mouseHand); }

TEST_F(FilmTest, AnEditGoesFromHandToHandInSmallDarkWindows) {
  qputenv("KV_FILM_SIZE", "640x480");
  qputenv("KV_FILM_APPEARANCE", "dark");
  film(mouseHand);
}

TEST_F(FilmTest, AnEditGoesFromHandToHandByKeysAlone) { film(keyHand); }

TEST_F(FilmTest, AnEditGoesFromHandToHandByTheTreeOfAScreenReader) { film(readerHand); }

// The bus is asked in another process, as a screen reader does.
TEST(AccessBusTest, AnEditGoesFromHandToHandByTheAccessibilityBus) {
#ifdef KV_SANITIZED
  GTEST_SKIP() << "the bus's own library starts by a fork that a sanitizer may not survive";
#endif
  const std::string line = std::string(KV_SOURCE_DIR "/tests/window/film-by-bus.py ") + KV_STATION +
                           " " + KV_SAMPLES + "/simple_cut.otio";
  const int status = std::system(line.c_str());
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "there is no accessibility bus";
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
