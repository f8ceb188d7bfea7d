#include <memory>

#include "station/MessageJudge.h"
#include "station/net/UdpListener.h"
#include "station/seal/Seals.h"
#include "station/watch/CatchUp.h"
#include "station/watch/Presence.h"
#include "tests/support/DocumentStation.h"

using namespace korvel;

namespace {

/// What a station knows of another's unsaved changes in an edit that is not open here.
class MissingChangesTest : public DocumentStation {
 protected:
  void announced(const std::string& by) {
    const AuthorScope author(by);
    remoteModification(edit, "1;0;1;0%2F1;");
  }

  void savedMessageComes(const std::string& by) {
    ReceivedMessage message = savedMessage(edit);
    message.by = by;
    noteDelivered(message);
  }

  using Users = std::vector<std::string>;

  HostThread thread;
  Presence presence{thread, nullptr, nullptr};
  MissingChanges missing{thread, edits, presence};
  Cookie edit = imported("simple_cut.otio");
};

TEST_F(MissingChangesTest, WhatIsAnnouncedIsMissingUntilItsUserSaves) {
  announced("ben");
  EXPECT_EQ(missing.from(edit), Users{"ben"});
  savedMessageComes("carl");
  EXPECT_EQ(missing.from(edit), Users{"ben"});
  savedMessageComes("ben");
  EXPECT_EQ(missing.from(edit), Users{});
}

// The folder watch may find a save before the messages of what was saved are told of.
TEST_F(MissingChangesTest, AnAnnouncementThatIsToldAfterItsSaveIsSettledByTheSavesMessage) {
  replaceInFile(edit, "\"name\"", "\"name\" ");
  {
    const FolderChangeScope found;
    edits.refresh(edit);
  }
  announced("ben");
  EXPECT_EQ(missing.from(edit), Users{"ben"});
  savedMessageComes("ben");
  EXPECT_EQ(missing.from(edit), Users{});
}

}  // namespace
