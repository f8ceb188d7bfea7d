#include "host/edit/EditManager.h"
#include "tests/station/PluginStation.h"

using namespace korvel;

namespace {

class EditMessagesTest : public PluginStation {
 protected:
  static std::string text(const Cookie& cookie) { return cookie.asString().str(); }
};

TEST_F(EditMessagesTest, EachOwnChangeIsOneMessage) {
  const auto cookie = EditActions::import(std::string(KV_SAMPLES) + "/simple_cut.otio");
  ASSERT_TRUE(cookie);
  EXPECT_EQ(sentTypes(), Types{14});
  ASSERT_TRUE(EditActions::trim(*cookie, "Clip-001", "4", "6"));
  ASSERT_TRUE(EditActions::rename(*cookie, "Other"));
  ASSERT_TRUE(EditActions::save(*cookie));
  ASSERT_TRUE(EditActions::give(*cookie, "bob"));
  EXPECT_EQ(sentTypes(), (Types{14, 1, 1, 2, 5}));
  EXPECT_EQ(network.sent.back(), message(5, {text(*cookie), "BOB"}));
}

TEST_F(EditMessagesTest, ATrimTravelsAsItsText) {
  const Cookie cookie = imported("simple_cut.otio");
  ASSERT_TRUE(EditActions::trim(cookie, "Clip-001", "0.125s", "0.25s"));
  ASSERT_EQ(network.sent.size(), 1U);
  EXPECT_EQ(network.sent[0], message(1, {text(cookie), "1;0.125;0.25;0%2F0;"}));
}

TEST_F(EditMessagesTest, DeletedEditsAreAnnouncedOneByOne) {
  const Cookie first = made("One");
  const Cookie second = made("Two");
  ASSERT_TRUE(EditActions::remove({first, second}));
  EXPECT_EQ(sentTypes(), (Types{3, 3}));
}

TEST_F(EditMessagesTest, AFirstChangeOfALogAnnouncesTheUserAsItsOwner) {
  const Cookie log = made("Shot", CookieTypeShot);
  ASSERT_TRUE(EditActions::rename(log, "Take"));
  EXPECT_EQ(sentTypes(), (Types{5, 1}));
  EXPECT_EQ(readMessage(network.sent[0]).data, "ANNA");
}

TEST_F(EditMessagesTest, AGivenLogIsAnnouncedWithItsNewOwner) {
  const Cookie log = made("Shot", CookieTypeShot);
  ASSERT_TRUE(EditActions::give(log, "bob"));
  ASSERT_EQ(sentTypes(), Types{5});
  EXPECT_EQ(readMessage(network.sent[0]).data, "BOB");
  EXPECT_FALSE(EditActions::isAllowed(log));
}

TEST_F(EditMessagesTest, ASecondChangeAfterAGiftIsRefusedWithTheOwnersName) {
  const Cookie cookie = imported("simple_cut.otio");
  ASSERT_TRUE(EditActions::give(cookie, "bob"));
  network.sent.clear();
  const auto refused = EditActions::trim(cookie, "Clip-001", "4", "6");
  ASSERT_FALSE(refused);
  EXPECT_NE(refused.error().message.find("BOB"), std::string::npos);
  EXPECT_EQ(sentTypes(), Types{});
}

TEST_F(EditMessagesTest, AnEditCreatedElsewhereIsListedAndNothingIsSentBack) {
  const Cookie known = made("Reel");
  const Cookie other = Cookie::create(CookieTypeEdit);
  std::string bytes = bytesOf(fileOf(known));
  bytes.replace(bytes.find("\"Reel\""), 6, "\"Tape\"");
  write(fileOf(other), bytes);
  network.deliver(message(14, {text(other)}));
  EXPECT_TRUE(projects.resolve("Tape", "E"));
  EXPECT_EQ(network.sent.size(), 0U);
}

TEST_F(EditMessagesTest, AnEditSavedElsewhereIsReloadedWithItsNewOwner) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(edits.open(cookie));
  std::string bytes = bytesOf(fileOf(cookie));
  bytes.replace(bytes.find("\"Reel\""), 6, "\"Tape\"");
  bytes.replace(bytes.find("\"ANNA\""), 6, "\"BOB\"");
  write(fileOf(cookie), bytes);
  network.deliver(message(2, {text(cookie)}));
  EXPECT_EQ(edits.nameOf(cookie), "Tape");
  EXPECT_EQ(edits.ownerOf(cookie), "BOB");
  EXPECT_FALSE(edits.loaded(cookie)->isDirty());
  EXPECT_FALSE(EditActions::isAllowed(cookie));
  EXPECT_EQ(network.sent.size(), 0U);
  EXPECT_EQ(bytesOf(fileOf(cookie)), bytes);
}

TEST_F(EditMessagesTest, ARemoteTrimShowsUnsavedAndIsNotEchoed) {
  const Cookie cookie = imported("simple_cut.otio");
  ASSERT_TRUE(edits.open(cookie));
  network.deliver(message(1, {text(cookie), "1;0.125;0.25;0%2F0;"}));
  EXPECT_EQ((*edits.show(cookie))["clips"].elements().at(0)["start"].asDouble(), 0.125);
  EXPECT_TRUE(edits.loaded(cookie)->isDirty());
  EXPECT_EQ(network.sent.size(), 0U);
}

TEST_F(EditMessagesTest, AMessageAboutAnotherProjectIsDropped) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(edits.open(cookie));
  network.deliver(
      "d\xAC"
      "1\xACP0001\xAC" +
      text(cookie) +
      "\xAC"
      "2;0;0;;Other\xAC");
  network.deliver(
      "d\xAC"
      "3\xACP0001\xAC" +
      text(cookie) + "\xAC");
  EXPECT_EQ(edits.nameOf(cookie), "Reel");
  EXPECT_TRUE(edits.holds(cookie));
}

TEST_F(EditMessagesTest, AnOwnerAnnouncedElsewhereTakesEffectHere) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::give(cookie, "bob"));
  ASSERT_FALSE(EditActions::isAllowed(cookie));
  std::string bytes = bytesOf(fileOf(cookie));
  bytes.replace(bytes.find("\"BOB\""), 5, "\"ANNA\"");
  write(fileOf(cookie), bytes);
  network.sent.clear();
  network.deliver(message(5, {text(cookie), "ANNA"}));
  EXPECT_TRUE(EditActions::isAllowed(cookie));
  EXPECT_EQ(edits.ownerOf(cookie), "ANNA");
  EXPECT_EQ(network.sent.size(), 0U);
}

// What a message says may be forged, or here before the share shows it: the file decides.
TEST_F(EditMessagesTest, AMessageOfASaveThatNeverWasKeepsUnsavedChanges) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(edits.open(cookie));
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  network.deliver(message(2, {text(cookie)}));
  EXPECT_EQ(edits.nameOf(cookie), "Mine");
  EXPECT_TRUE(edits.loaded(cookie)->hasLocalChanges());
  EXPECT_TRUE(EditActions::save(cookie));
  EXPECT_NE(bytesOf(fileOf(cookie)).find("\"Mine\""), std::string::npos);
}

TEST_F(EditMessagesTest, UnsavedChangesStayBesideAnothersSaveAndOverwriteNothing) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(edits.open(cookie));
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  std::string bytes = bytesOf(fileOf(cookie));
  bytes.replace(bytes.find("\"Reel\""), 6, "\"Tape\"");
  write(fileOf(cookie), bytes);
  for (int times = 0; times < 2; ++times) network.deliver(message(2, {text(cookie)}));
  EXPECT_EQ(edits.nameOf(cookie), "Mine");
  EXPECT_EQ(edits.loaded(cookie)->fileState(), EditFile::FileState::eReplaced);
  EXPECT_FALSE(EditActions::save(cookie));
  EXPECT_TRUE(edits.loaded(cookie)->hasLocalChanges());
  EXPECT_EQ(bytesOf(fileOf(cookie)), bytes);
}

TEST_F(EditMessagesTest, AnOwnerChangedBesideUnsavedChangesIsNoOthersSave) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(edits.open(cookie));
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  std::string bytes = bytesOf(fileOf(cookie));
  bytes.replace(bytes.find("\"ANNA\""), 6, "\"BOB\"");
  write(fileOf(cookie), bytes);
  network.deliver(message(5, {text(cookie), "BOB"}));
  network.deliver(message(2, {text(cookie)}));
  EXPECT_EQ(edits.nameOf(cookie), "Mine");
  EXPECT_EQ(edits.ownerOf(cookie), "BOB");
  EXPECT_EQ(edits.loaded(cookie)->fileState(), EditFile::FileState::eOurs);
  EXPECT_FALSE(EditActions::save(cookie));
  EXPECT_EQ(bytesOf(fileOf(cookie)), bytes);
}

TEST_F(EditMessagesTest, AnAnnouncedOwnerOfWhomTheFileKnowsNothingChangesNothing) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(edits.open(cookie));
  const std::string bytes = bytesOf(fileOf(cookie));
  for (const char* owner : {"MALLORY", "anna", "", "PC\xE2\x82"}) {
    network.deliver(message(5, {text(cookie), owner}));
    EXPECT_EQ(bytesOf(fileOf(cookie)), bytes) << owner;
    EXPECT_EQ(edits.ownerOf(cookie), "ANNA") << owner;
    EXPECT_TRUE(EditActions::isAllowed(cookie)) << owner;
  }
}

TEST_F(EditMessagesTest, ADeletionThatNeverWasTakesNothingAway) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(edits.open(cookie));
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  network.deliver(message(3, {text(cookie)}));
  EXPECT_TRUE(edits.holds(cookie));
  EXPECT_TRUE(edits.loaded(cookie)->hasLocalChanges());
  EXPECT_TRUE(EditActions::save(cookie));
}

TEST_F(EditMessagesTest, UnsavedChangesStayOfAnEditThatWasDeletedElsewhere) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  std::filesystem::remove(fileOf(cookie));
  network.deliver(message(3, {text(cookie)}));
  EXPECT_TRUE(edits.listed(cookie)["deleted"].asBool());
  EXPECT_TRUE(edits.loaded(cookie)->hasLocalChanges());
  EXPECT_FALSE(EditActions::save(cookie));
  EXPECT_FALSE(std::filesystem::exists(fileOf(cookie)));
  EXPECT_TRUE(EditActions::exportTo(cookie, folder / "mine.otio"));
}

TEST_F(EditMessagesTest, ADeletionElsewhereTakesTheEditAway) {
  const Cookie cookie = made("Reel");
  std::filesystem::remove(fileOf(cookie));
  network.deliver(message(3, {text(cookie)}));
  EXPECT_FALSE(edits.holds(cookie));
  EXPECT_EQ(network.sent.size(), 0U);
}

TEST_F(EditMessagesTest, AFileThatWasWaitedForIsNotWaitedForAgain) {
  const auto start = std::chrono::steady_clock::now();
  for (int each = 0; each < 120; ++each) {
    network.deliverWaited(message(14, {"E00" + std::to_string(100 + each)}));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
}

TEST_F(EditMessagesTest, ARecordChangedElsewhereIsReadAgain) {
  const Cookie cookie = made("Reel");
  std::string bytes = bytesOf(fileOf(cookie));
  bytes.replace(bytes.find("\"Reel\""), 6, "\"Tape\"");
  write(fileOf(cookie), bytes);
  network.deliver(message(4, {text(cookie)}));
  EXPECT_EQ(edits.nameOf(cookie), "Tape");
}

}  // namespace
