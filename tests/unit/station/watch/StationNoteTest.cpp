#include "station/watch/StationNote.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/support/DocumentStation.h"

using namespace korvel;

namespace {

class StationNoteTest : public DocumentStation {
 protected:
  StationNoteTest() { std::filesystem::create_directory(notesFolder(folder.path())); }

  void put(const std::string& name, const std::string& bytes) const {
    write(notesFolder(folder.path()) + "/" + name, bytes);
  }

  [[nodiscard]] std::vector<FoundStation> listed() const {
    const auto stations = listStations(folder.path());
    EXPECT_TRUE(stations);
    return stations ? *stations : std::vector<FoundStation>();
  }
};

TEST_F(StationNoteTest, ANoteIsReadAsItWasWritten) {
  StationNote note;
  note.user = "ANNA";
  note.host = "suite \"1\"";
  note.machine = 11;
  note.addresses = {"10.0.0.7"};
  note.project = project;
  note.projectName = "Film";
  note.room = "Sound";
  note.open = {Cookie("E0001", false)};
  note.unsaved = note.open;
  note.sent = 12;
  const auto read = parseNote(noteText(note), "1");
  ASSERT_TRUE(read) << read.error().message;
  EXPECT_EQ(noteText(*read), noteText(note));
}

TEST_F(StationNoteTest, ANoteWhoseLockNobodyHoldsIsOfAStationThatIsGone) {
  put("1.json", R"({"format":1,"user":"ANNA"})");
  put("1.lock", "");
  ASSERT_EQ(listed().size(), 1u);
  EXPECT_FALSE(listed()[0].isAlive());
  EXPECT_STREQ(listed()[0].stateText(), "gone without goodbye");
  const auto held = os.fileManager().openFile(wideText(noteLock(notesFolder(folder.path()), "1")),
                                              eFileReadWrite, eFileCreate, eFileShareNone, 0);
  ASSERT_TRUE(held && held->isOpen());
  EXPECT_TRUE(listed()[0].isAlive());
}

TEST_F(StationNoteTest, OfWhoWasKilledTheLatestStartCountsAndNoneOnceHeIsBack) {
  const auto station = [](const char* user, const char* host, const char* since, LockState state) {
    FoundStation found;
    found.note.user = user;
    found.note.host = host;
    found.note.since = since;
    found.state = state;
    return found;
  };
  constexpr LockState kDead = LockState::eLeftBehind;
  std::vector<FoundStation> stations{
      station("ANNA", "SUITE1", "2024-05-31T08:00:00Z", kDead),
      station("ANNA", "SUITE1", "2024-05-31T09:00:00Z", LockState::eHeld),
      station("ANNA", "SUITE2", "2024-05-31T08:00:00Z", kDead),
      station("BEN", "SUITE3", "2024-05-31T08:00:00Z", LockState::eFree),
      station("BEN", "SUITE3", "2024-05-31T09:00:00Z", kDead),
      station("BEN", "SUITE3", "2024-05-31T10:00:00Z", LockState::eUnknown)};
  leaveOutReturned(stations);
  std::string left;
  for (const FoundStation& each : stations) {
    left += each.note.user + " " + each.note.host + " " + each.note.since.substr(11, 2) + ", ";
  }
  EXPECT_EQ(left, "ANNA SUITE1 09, ANNA SUITE2 08, BEN SUITE3 09, BEN SUITE3 10, ");
}

TEST_F(StationNoteTest, ANoteThatCouldNotBeWrittenIsWrittenOnceTheShareIsBack) {
  const std::string notes = notesFolder(folder.path());
  StationNote note;
  note.id = StationFile::newId();
  note.user = "ANNA";
  StationFile file(projects.directory(), notes, note);
  const auto roomIs = [&](const std::string& room) {
    for (int tries = 0; tries < 100; ++tries) {
      const auto stations = listStations(folder.path());
      if (stations && stations->size() == 1 && (*stations)[0].note.room == room) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return false;
  };
  note.room = "Sound";
  file.show(note);
  ASSERT_TRUE(roomIs("Sound"));
  std::filesystem::rename(notes, notes + ".away");
  std::ofstream(notes) << "a file where the folder was";
  note.room.clear();
  file.show(note);
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  std::filesystem::remove(notes);
  std::filesystem::rename(notes + ".away", notes);
  EXPECT_TRUE(roomIs(""));
}

TEST_F(StationNoteTest, WhatIsNoNoteIsTold) {
  for (const char* bytes : {"", "{", "[]", "{}", R"({"format":1})", R"({"user":"A"})",
                            R"({"format":0,"user":"A"})", R"({"format":"x","user":7})"}) {
    put("1.json", bytes);
    ASSERT_EQ(listed().size(), 1u) << bytes;
    EXPECT_NE(listed()[0].problem, "") << bytes;
  }
  put("1.json", std::string(kLargestNote + 1, ' '));
  EXPECT_NE(listed()[0].problem, "");
}

TEST_F(StationNoteTest, ANoteOfVeryMuchIsAsLongAsOthersReadAtMost) {
  StationNote note;
  note.user = "ANNA";
  for (int i = 0; i < 5000; ++i) note.open.emplace_back(("E" + std::to_string(i)).c_str(), false);
  note.answers.assign(40, NotedAnswer{"0123456789abcdef", "BEN", true, std::string(300, '\x01')});
  const std::string text = fittingNoteText(note);
  EXPECT_LE(text.size(), kLargestNote);
  const auto read = parseNote(text, "1");
  ASSERT_TRUE(read);
  EXPECT_EQ(read->user, "ANNA");
  EXPECT_EQ(read->answers.size(), 40u);
  EXPECT_GT(read->open.size(), 500u);
}

TEST_F(StationNoteTest, ANameThatNoStationCanHaveMakesNoNote) {
  for (const char* key : {"user", "host"}) {
    JsonValue note = JsonValue::object({{"format", 1}, {"user", "ANNA"}});
    note.set(key, std::string(10'000, 'x'));
    put("1.json", writeJson(note));
    ASSERT_EQ(listed().size(), 1u);
    EXPECT_NE(listed()[0].problem, "") << key;
  }
}

TEST_F(StationNoteTest, ANoteOfALaterVersionIsReadAsFarAsItIsKnown) {
  put("1.json", R"({"format":2,"user":"ANNA","mood":{"good":[true]},"open":"many","sent":-1})");
  ASSERT_EQ(listed().size(), 1u);
  EXPECT_EQ(listed()[0].problem, "");
  EXPECT_EQ(listed()[0].note.user, "ANNA");
  EXPECT_EQ(listed()[0].note.sent, 0);
}

TEST_F(StationNoteTest, LinksPipesAndFoldersAreNoNotes) {
  const std::string notes = notesFolder(folder.path());
  ::mkfifo((notes + "/1.json").c_str(), 0600);
  std::filesystem::create_symlink("/dev/zero", notes + "/2.json");
  std::filesystem::create_directory(notes + "/3.json");
  EXPECT_EQ(listed().size(), 0u);
}

TEST_F(StationNoteTest, ControlCharactersOfOthersAreNotShown) {
  put("1.json", R"({"format":1,"user":"A\u001b[2J"})");
  ASSERT_EQ(listed().size(), 1u);
  EXPECT_EQ(shownStation(listed()[0])["user"].asString(), "A?[2J");
}

}  // namespace
