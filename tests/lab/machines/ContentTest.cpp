// What one machine wrote, shown on the other when the message says so.

#include <algorithm>

#include "tests/lab/machines/NetFsTest.h"

using namespace korvel;

namespace {

constexpr int kSaves = 6;
constexpr int kBurst = 25;

class ContentTest : public NetFsTest {
 protected:
  /// An answer that a station gives as a message says that it changed.
  using Answer = std::function<std::string(StationProcess&)>;

  ContentTest() {
    annaEnters("");
    run(*ben_, "project enter " + project_);
  }

  /// Anna changes something again and again; ben is asked at each message of this type, and then
  /// until he shows what anna does.
  void compareWhile(const std::string& what, const std::string& message,
                    const std::function<void(int)>& change, const Answer& answer) {
    int late = 0;
    int latest = 0;
    for (int turn = 0; turn < kSaves; ++turn) {
      change(turn);
      std::string due = answer(anna_);
      ASSERT_TRUE(ben_->waitFor("received", {{"type_name", message}}, kSoon)) << what;
      if (answer(*ben_) == due) continue;
      ++late;
      // Anna is asked again, too: on SMB her own file may not be readable for a moment.
      const auto isSame = [&] { return answer(*ben_) == (due = answer(anna_)); };
      const Seen seen = seeks(isSame, Seconds(5));
      EXPECT_TRUE(seen.isSeen) << what << " " << turn << ": ben shows " << answer(*ben_)
                               << " and anna " << due;
      latest = std::max(latest, seen.milliseconds);
    }
    shows(what + ": " + std::to_string(late) + " of " + std::to_string(kSaves) + " not at once" +
          (late > 0 ? ", the latest after " + std::to_string(latest) + " ms" : ""));
  }

  /// A list as a station shows it, without what is its own alone.
  static Answer listOf(const std::string& what) {
    return [what](StationProcess& station) {
      JsonValue all = run(station, what + " list");
      std::string text;
      for (JsonValue each : all.elements()) {
        each.remove("open");
        each.remove("dirty");
        text += writeJson(each);
      }
      return text;
    };
  }

  /// Waits for the message that an object was made; its cookie.
  const std::string& seenByBen(const std::string& message, const std::string& cookie) const {
    EXPECT_TRUE(ben_->waitFor("received", {{"type_name", message}, {"cookie", cookie}}, kSoon))
        << message << " " << cookie;
    return cookie;
  }

  /// Saves an edit under one name after the other.
  void compareSaves(const std::string& what, const std::string& edit) {
    const auto save = [&](int turn) {
      run(anna_, "edit rename " + edit + " Cut" + std::to_string(turn));
      run(anna_, "edit save " + edit);
    };
    compareWhile(what, "EditSaved", save, listOf("edit"));
    expectAgreement();
  }
};

TEST_P(ContentTest, AnEditThatIsOpenShowsWhatWasSaved) {
  const std::string edit = run(anna_, "edit create Cut").asString();
  run(anna_, "edit open " + edit);
  run(*ben_, "edit open " + seenByBen("EditCreated", edit));
  compareSaves("open edit", edit);
}

TEST_P(ContentTest, AnEditThatIsClosedIsListedAsItWasSaved) {
  const std::string edit = run(anna_, "edit create Cut").asString();
  run(*ben_, "edit show " + seenByBen("EditCreated", edit));
  compareSaves("closed edit", edit);
}

TEST_P(ContentTest, ABinARackAndAFilterShowWhatWasSaved) {
  const std::string edit = run(anna_, "edit create Cut").asString();
  for (const std::string what : {"bin", "rack"}) {
    const std::string cookie = run(anna_, what + " create Dailies").asString();
    seenByBen("ContainerModification", cookie);
    const auto change = [&](int turn) {
      const std::string verb = turn % 2 == 0 ? " add " : " remove ";
      run(anna_, what + verb + cookie + " " + edit);
    };
    const auto shown = [&](StationProcess& station) {
      return writeJson(run(station, what + " show " + cookie));
    };
    compareWhile(what, "ContainerModification", change, shown);
  }
  seenByBen("FilterModification", run(anna_, "filter create Night n").asString());
  const auto change = [&](int turn) { run(anna_, "filter change Night n" + std::to_string(turn)); };
  compareWhile("filter", "FilterModification", change, listOf("filter"));
  expectAgreement();
}

/// Messages come while more is being written to the same folder: what a look at the folder found a
/// moment ago is out of date, and a file system's clock may not have moved on between the two.
TEST_P(ContentTest, WhatIsChangedInABurstIsShownInTheEnd) {
  const std::string edit = run(anna_, "edit create Cut").asString();
  run(anna_, "edit open " + edit);
  run(*ben_, "edit open " + seenByBen("EditCreated", edit));
  for (const char* name : {"A", "B", "C"}) run(anna_, std::string("bin create ") + name);
  std::vector<std::string> lines;
  for (int turn = 0; turn < kBurst; ++turn) {
    lines.push_back("edit rename " + edit + " Cut" + std::to_string(turn));
    lines.push_back("edit save " + edit);
    for (const char* name : {"A", "B", "C"}) {
      lines.push_back(std::string("bin ") + (turn % 2 == 0 ? "add " : "remove ") + name + " " +
                      edit);
    }
  }
  for (const std::string& line : lines) anna_.type(line);
  for (const std::string& line : lines) {
    const auto reply = anna_.waitFor("reply", {}, Seconds(60));
    ASSERT_TRUE(reply && (*reply)["ok"].asBool())
        << line << (reply ? ": " + writeJson(*reply) : ": no reply");
  }
  shows("agreed", agrees());
  expectAgreement();
}

INSTANTIATE_TEST_SUITE_P(, ContentTest, testing::Values("nfs4", "nfs3", "smb", "gluster"),
                         [](const auto& kind) { return kind.param; });

}  // namespace
