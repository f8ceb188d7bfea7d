#include "host/edit/Edit.h"

#include "host/edit/EditManager.h"
#include "station/MessageJudge.h"
#include "station/base/Strings.h"
#include "station/edit/Edits.h"
#include "station/wire/MessageTable.h"
#include "tests/support/DocumentStation.h"

using namespace korvel;

namespace {

using EditsTest = DocumentStation;

TEST_F(EditsTest, ANewEditIsAFileOfTheProjectAndTheLocalUsers) {
  const auto cookie = EditActions::create("Reel 1", CookieTypeEdit);
  ASSERT_TRUE(cookie);
  EXPECT_NE(bytesOf(fileOf(*cookie)), "");
  EXPECT_EQ(edits.ownerOf(*cookie), "ANNA");
  EXPECT_EQ(edits.nameOf(*cookie), "Reel 1");
  EXPECT_EQ(listener.heard, Notes{"stored new"});
  EXPECT_EQ(events.changes, Notes{"edit created local"});
}

TEST_F(EditsTest, ANewLogStoresNoOwner) {
  const Cookie log = made("Shot", CookieTypeShot);
  EditPtr shot;
  shot.i_open(log, 0);
  ASSERT_TRUE(shot);
  EXPECT_FALSE(shot->isEdit());
  EXPECT_NE(shot->getLogType(), Edit::kEditLogType);
  EXPECT_TRUE(shot->getOwner().empty());
  EXPECT_EQ(bytesOf(fileOf(log)).find("OWNER"), std::string::npos);
}

TEST_F(EditsTest, ATrimDirtiesThenIsAnnouncedAndIsNotSaved) {
  const Cookie cookie = imported("simple_cut.otio");
  const std::string before = bytesOf(fileOf(cookie));
  ASSERT_TRUE(EditActions::trim(cookie, "Clip-001", "4f", "6f"));
  EXPECT_EQ(listener.heard, (Notes{"dirtied", "modified 1"}));
  EXPECT_EQ(listener.last.subject_, "0/0");
  EXPECT_DOUBLE_EQ(listener.last.range_.start, 4.0 / 24);
  EXPECT_DOUBLE_EQ(listener.last.range_.end, 6.0 / 24);
  EXPECT_EQ(bytesOf(fileOf(cookie)), before);
  EXPECT_EQ(events.changes, Notes{"edit modified local"});
}

TEST_F(EditsTest, ATrimBeyondTheMaterialNamesItsFrames) {
  const Cookie cookie = imported("simple_cut.otio");
  const auto trimmed = EditActions::trim(cookie, "Clip-001", "500", "9000");
  ASSERT_FALSE(trimmed);
  EXPECT_EQ(trimmed.error().message, "The clip has material from 00:00:00:00 to 00:00:00:08 only.");
}

TEST_F(EditsTest, ASaveWritesTheChangesAndIsAnnounced) {
  const Cookie cookie = imported("simple_cut.otio");
  ASSERT_TRUE(EditActions::trim(cookie, "Clip-001", "0.125s", "6"));
  listener.heard.clear();
  ASSERT_TRUE(EditActions::save(cookie));
  EXPECT_EQ(listener.heard, Notes{"stored"});
  EXPECT_EQ(edits.loaded(cookie), nullptr);
  const auto shown = edits.show(cookie);
  ASSERT_TRUE(shown);
  const JsonValue& clip = (*shown)["clips"].elements().at(0);
  EXPECT_EQ(clip["start"].asDouble(), 0.125);
  EXPECT_EQ(clip["end"].asDouble(), 0.25);
}

TEST_F(EditsTest, ARefusedModificationNamesTheOwnerAndChangesNothing) {
  const Cookie cookie = imported("simple_cut.otio");
  rules.setOwner(cookie, L"BOB", iPermissionsManager::eEdit, false);
  listener.heard.clear();
  rules.isAllowed = false;
  for (const auto& refused : {EditActions::trim(cookie, "Clip-001", "4f", "6f"),
                              EditActions::rename(cookie, "Mine"), EditActions::save(cookie),
                              EditActions::remove({cookie}), EditActions::requireMayGive(cookie)}) {
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().code, ErrorCode::eRefused);
    EXPECT_NE(refused.error().message.find("BOB"), std::string::npos);
  }
  EXPECT_EQ(EditActions::give(cookie, "carl").error().code, ErrorCode::eRefused);
  EXPECT_EQ(listener.heard, Notes{});
  EXPECT_EQ(edits.nameOf(cookie), "Figure 1 - Simple Cut List");
}

TEST_F(EditsTest, ATrimToAPartOfAFrameIsRefusedAndSaysHowSecondsAreWritten) {
  const Cookie cookie = imported("simple_cut.otio");
  const auto refused = EditActions::trim(cookie, "Clip-001", "1.5f", "5");
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().code, ErrorCode::eUsage);
  EXPECT_NE(refused.error().message.find("no whole number of frames"), std::string::npos);
  EXPECT_NE(refused.error().message.find("\"1.5s\""), std::string::npos);
}

TEST_F(EditsTest, ATrimTakesTimecodeAndStepsFromWhereTheClipIs) {
  const Cookie cookie = imported("simple_cut.otio");
  const auto range = [&] {
    const JsonValue clip = (*edits.show(cookie))["clips"].elements().at(0);
    return std::pair(clip["start"].asDouble() * 24, clip["end"].asDouble() * 24);
  };
  ASSERT_TRUE(EditActions::trim(cookie, "Clip-001", "0:02", "00:00:00:06"));
  EXPECT_EQ(range(), std::pair(2.0, 6.0));
  ASSERT_TRUE(EditActions::trim(cookie, "Clip-001", "-1f", "+0:01"));
  EXPECT_EQ(range(), std::pair(1.0, 7.0));
}

TEST_F(EditsTest, AnOwnerThatNoStationIsIsNotNamedAsOneToAsk) {
  const Cookie cookie = imported("simple_cut.otio");
  rules.isAllowed = false;
  for (const wchar_t* owner : {L"RENDER", L"<NOBODY>"}) {
    rules.setOwner(cookie, owner, iPermissionsManager::eEdit, false);
    const auto refused = EditActions::rename(cookie, "Mine");
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().message.find("edit give"), std::string::npos);
    EXPECT_NE(refused.error().message.find("--set Administrator=1"), std::string::npos);
  }
}

TEST_F(EditsTest, TheBeginningOfACookieStandsForTheOneObjectThatHasIt) {
  const Cookie cookie = imported("simple_cut.otio");
  const std::string text = cookie.asString().str();
  const auto found = projects.resolve(text.substr(0, text.size() - 2), "E");
  ASSERT_TRUE(found);
  EXPECT_EQ(*found, cookie);
  EXPECT_FALSE(projects.resolve(text.substr(0, 1), "E"));
  EXPECT_FALSE(projects.resolve(text.substr(0, text.size() - 2), "S"));
}

TEST_F(EditsTest, ANameThatDiffersInCapitalsAloneIsOffered) {
  static_cast<void>(imported("simple_cut.otio"));
  const auto found = projects.resolve("figure 1 - simple cut list", "E");
  ASSERT_FALSE(found);
  EXPECT_NE(found.error().message.find("did you mean \"Figure 1 - Simple Cut List\"?"),
            std::string::npos)
      << found.error().message;
}

TEST(LikelyName, IsOneInOtherCapitalsElseANearOneElseOneThatBeginsSo) {
  const std::vector<std::string> names{"Harbour at dawn", "Harbour at dusk", "Night", "Nightfall"};
  EXPECT_EQ(likelyName("night", names), "Night");
  EXPECT_EQ(likelyName("harbour at dusc", names), "Harbour at dusk");
  EXPECT_EQ(likelyName("harbour", names), "Harbour at dawn");
  EXPECT_EQ(likelyName("ha", names), "");
  EXPECT_EQ(likelyName("Day", names), "");
}

TEST(EditIndexTest, NamesAreFoundWhetherTheyCameBeforeOrAfterTheFirstQuestion) {
  const Cookie first("E0001", false);
  const Cookie second("E0002", false);
  const Cookie third("E0003", false);
  EditIndex index;
  const auto cookiesOf = [&index](const std::string& name) {
    std::vector<NamedObject> found;
    index.findByName(name, found);
    std::string cookies;
    for (const NamedObject& each : found) cookies += utf8Text(each.cookie.asString());
    return cookies;
  };
  index.put(second, {"Cut", {}, {}});
  index.put(first, {"Trailer", {}, {}});
  index.put(second, {"Feature", {}, {}});
  index.put(third, {"Broken", {}, "it cannot be read"});
  EXPECT_EQ(cookiesOf("Cut") + cookiesOf("Broken"), "");
  EXPECT_EQ(cookiesOf("Feature") + cookiesOf("Trailer"), "E0002E0001");
  index.put(first, {"Feature", {}, {}});
  index.remove(second);
  EXPECT_EQ(cookiesOf("Trailer"), "");
  EXPECT_EQ(cookiesOf("Feature"), "E0001");
  EXPECT_EQ(index.all().size(), 2u);
  index.clear();
  EXPECT_EQ(cookiesOf("Feature"), "");
}

std::unique_ptr<EditFile> loadedEdit(const Cookie& cookie) {
  auto document = OtioDocument::parse(
      R"({"OTIO_SCHEMA": "Timeline.1", "name": "Cut", "tracks": {"OTIO_SCHEMA": "Stack.1"}})");
  return std::make_unique<EditFile>(cookie, "/nowhere/edit.otio", std::move(*document));
}

TEST(EditIndexTest, ALoadedDocumentStaysWhenItsLineInTheListsChanges) {
  const Cookie cookie("E0001", false);
  EditIndex index;
  index.setLoaded(index.put(cookie, {"Cut", {}, {}}), loadedEdit(cookie));
  const EditFile* const edit = index.find(cookie)->loaded.get();
  index.put(cookie, {"Feature", {}, {}});
  EXPECT_EQ(index.find(cookie)->loaded.get(), edit);
  EXPECT_EQ(index.find(cookie)->summary.name, "Feature");
  EXPECT_EQ(index.takeLoaded(*index.find(cookie)).get(), edit);
  EXPECT_EQ(index.find(cookie)->loaded, nullptr);
  EXPECT_TRUE(index.loaded().empty());
}

TEST(EditIndexTest, LoadedDocumentsComeInTheOrderOfTheirCookies) {
  EditIndex index;
  for (const char* const text : {"E0002", "E0003", "E0001"}) {
    const Cookie cookie(text, false);
    index.setLoaded(index.put(cookie, {text, {}, {}}), loadedEdit(cookie));
  }
  static_cast<void>(index.takeLoaded(*index.find(Cookie("E0002", false))));
  std::string cookies;
  for (const EditFile* const each : index.loaded()) cookies += each->getCookie().asString().str();
  EXPECT_EQ(cookies, "E0001E0003");
}

TEST(EditIndexTest, AnEditIsStaleUntilItIsLookedAtAgain) {
  const Cookie first("E0001", false);
  const Cookie second("E0002", false);
  EditIndex index;
  index.markStale(first);
  EXPECT_FALSE(index.isStale(first));
  index.put(first, {"Cut", {}, {}});
  index.put(second, {"Trailer", {}, {}});
  for (const Cookie& each : {first, second}) index.markStale(each);
  index.put(first, {"Cut", {}, {}});
  EXPECT_FALSE(index.isStale(first));
  EXPECT_EQ(index.takeStale(), std::set<Cookie>{second});
  EXPECT_FALSE(index.isStale(second));
  index.markStale(second);
  EXPECT_TRUE(index.clearStale(second));
  EXPECT_FALSE(index.clearStale(second));
  index.markStale(second);
  index.remove(second);
  EXPECT_EQ(index.takeStale(), std::set<Cookie>{});
}

TEST(EditIndexTest, OneThatWasFoundLastIsNotFoundOnceItIsRemoved) {
  const Cookie cookie("E0001", false);
  EditIndex index;
  index.put(cookie, {"Cut", {}, {}});
  ASSERT_NE(index.find(cookie), nullptr);
  index.remove(cookie);
  EXPECT_EQ(index.find(cookie), nullptr);
  index.put(cookie, {"Feature", {}, {}});
  ASSERT_NE(index.find(cookie), nullptr);
  index.clear();
  EXPECT_EQ(index.find(cookie), nullptr);
}

TEST_F(EditsTest, ARemoteTrimShowsInTheOpenEditUnsavedAndIsNotEchoed) {
  const Cookie cookie = imported("simple_cut.otio");
  ASSERT_TRUE(edits.open(cookie));
  remoteModification(cookie, "1;0.25;0.5;0%2F0;");
  EXPECT_EQ(listener.heard, Notes{});
  EXPECT_EQ(events.changes, Notes{"edit modified remote"});
  EXPECT_TRUE(edits.loaded(cookie)->isDirty());
  EXPECT_EQ((*edits.show(cookie))["clips"].elements().at(0)["start"].asDouble(), 0.25);
}

TEST_F(EditsTest, ARemoteModificationOfAnEditThatIsNotOpenChangesNothing) {
  const Cookie cookie = imported("simple_cut.otio");
  EditPtr lookedAt;
  lookedAt.i_open(cookie, 0);
  remoteModification(cookie, "2;0;0;;Other");
  EXPECT_EQ(events.changes, Notes{});
  EXPECT_EQ(edits.nameOf(cookie), "Figure 1 - Simple Cut List");
}

TEST_F(EditsTest, GarbageFromAnotherStationIsReportedAndChangesNothing) {
  const Cookie cookie = imported("simple_cut.otio");
  ASSERT_TRUE(edits.open(cookie));
  const std::string before = edits.loaded(cookie)->document().text();
  for (const char* garbage :
       {"", "x", "1;1;2;7%2F9;", "1;2;1;0%2F0;", "1;nan;2;0%2F0;", "1;0;inf;0%2F0;",
        "1;0;1;0%2F99999999999999999999;", "1;0;1;0%2F;", "2;0;0;;", "2;0;0;;a%00b"}) {
    events.logged.clear();
    remoteModification(cookie, garbage);
    EXPECT_NE(events.logged, "") << garbage;
    EXPECT_EQ(edits.loaded(cookie)->document().text(), before) << garbage;
  }
  EXPECT_EQ(events.changes, Notes{});
  EXPECT_FALSE(edits.loaded(cookie)->isDirty());
}

TEST_F(EditsTest, KindsOfModificationThatThisStationDoesNotKnowChangeNothing) {
  const Cookie cookie = imported("simple_cut.otio");
  ASSERT_TRUE(edits.open(cookie));
  remoteModification(cookie, "4711;1;2;0%2F0;x");
  EXPECT_EQ(events.changes, Notes{});
  EXPECT_FALSE(edits.loaded(cookie)->isDirty());
}

TEST_F(EditsTest, ASaveAfterARemoteModificationWritesIt) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(edits.open(cookie));
  remoteModification(cookie, "2;0;0;;Reel%20two");
  ASSERT_TRUE(EditActions::save(cookie));
  EXPECT_NE(bytesOf(fileOf(cookie)).find("Reel two"), std::string::npos);
}

TEST_F(EditsTest, AReloadDropsUnsavedChangesAndSaysSo) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  ASSERT_EQ(edits.nameOf(cookie), "Mine");
  EditPtr edit;
  edit.i_open(cookie, 0);
  edit->celCuesOn();
  ASSERT_TRUE(edit->reOpen(getFilenameForCookie(cookie, Cookie())));
  EXPECT_EQ(edits.nameOf(cookie), "Reel");
  EXPECT_FALSE(edit->isDirty());
  EXPECT_FALSE(edit->areCelCuesOn());
  EXPECT_NE(events.logged.find("unsaved changes"), std::string::npos);
}

TEST_F(EditsTest, AReloadOfABadFileKeepsWhatIsShown) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(edits.open(cookie));
  write(fileOf(cookie), "{\"OTIO_SCHEMA\": \"Time");
  EXPECT_FALSE(edits.loaded(cookie)->reOpen(wideText(fileOf(cookie))));
  EXPECT_EQ(edits.loaded(cookie)->document().name(), "Reel");
  EXPECT_EQ(bytesOf(fileOf(cookie)), "{\"OTIO_SCHEMA\": \"Time");
}

TEST_F(EditsTest, AnOwnerIsFlushedWithoutTheUnsavedChanges) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Unsaved"));
  rules.setOwner(cookie, L"BOB", iPermissionsManager::eEdit, true);
  EXPECT_EQ(bytesOf(fileOf(cookie)).find("Unsaved"), std::string::npos);
  EXPECT_NE(bytesOf(fileOf(cookie)).find("BOB"), std::string::npos);
  EXPECT_TRUE(edits.loaded(cookie)->isDirty());
  EXPECT_EQ(listener.heard.back(), "modified 53");
}

TEST_F(EditsTest, WhatIsUnsavedIsSavedBeforeItIsGivenAway) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Unsaved"));
  listener.heard.clear();
  ASSERT_TRUE(EditActions::give(cookie, "bob"));
  EXPECT_NE(bytesOf(fileOf(cookie)).find("\"Unsaved\""), std::string::npos);
  EXPECT_NE(bytesOf(fileOf(cookie)).find("\"BOB\""), std::string::npos);
  EXPECT_EQ(listener.heard, (Notes{"stored", "modified 53"}));
  EXPECT_NE(events.logged.find("was saved before it was given away"), std::string::npos);
}

TEST_F(EditsTest, NothingIsGivenWhoseSaveFails) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Unsaved"));
  const auto held = holdLock(cookie);
  const auto given = EditActions::give(cookie, "bob");
  ASSERT_FALSE(given);
  EXPECT_EQ(given.error().code, ErrorCode::eHeld);
  EXPECT_EQ(edits.ownerOf(cookie), "ANNA");
  EXPECT_TRUE(edits.loaded(cookie)->isDirty());
}

TEST_F(EditsTest, AnOwnerThatTheWireCutsIsRefusedEvenWithForce) {
  const Cookie cookie = made("Reel");
  const auto given = EditActions::give(cookie, "PC\xE2\x82\xAC", EditActions::Recipient::eAnybody);
  ASSERT_FALSE(given);
  EXPECT_EQ(given.error().code, ErrorCode::eUsage);
  EXPECT_EQ(edits.ownerOf(cookie), "ANNA");
}

TEST_F(EditsTest, UnknownUsersAndReservedWordsAreOwnersByForceAlone) {
  const Cookie cookie = made("Reel");
  for (const char* name : {"stranger", "Render", "RENDER", "<nobody>", "<NoBody>"}) {
    SCOPED_TRACE(name);
    const auto given = EditActions::give(cookie, name);
    ASSERT_FALSE(given);
    EXPECT_EQ(given.error().code, ErrorCode::eRefused);
    EXPECT_NE(given.error().message.find("--force"), std::string::npos);
    EXPECT_EQ(edits.ownerOf(cookie), "ANNA");
  }
  EXPECT_TRUE(EditActions::give(cookie, "stranger", EditActions::Recipient::eAnybody));
  EXPECT_EQ(edits.ownerOf(cookie), "STRANGER");
}

TEST_F(EditsTest, ASaveIsRefusedWhileAnotherStationChangesTheEdit) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  {
    const auto held = holdLock(cookie);
    const auto saved = EditActions::save(cookie);
    ASSERT_FALSE(saved);
    EXPECT_EQ(saved.error().code, ErrorCode::eHeld);
    EXPECT_TRUE(edits.loaded(cookie)->isDirty());
  }
  EXPECT_TRUE(EditActions::save(cookie));
}

TEST_F(EditsTest, ASaveKeepsAnOwnerOfWhomNoMessageCame) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  replaceInFile(cookie, "\"ANNA\"", "\"BOB\"");
  ASSERT_TRUE(EditActions::save(cookie));  // these rules allow it all the same
  EXPECT_NE(bytesOf(fileOf(cookie)).find("\"Mine\""), std::string::npos);
  EXPECT_NE(bytesOf(fileOf(cookie)).find("\"BOB\""), std::string::npos);
}

TEST_F(EditsTest, AFileThatHoldsTheValuesAlreadyIsNotWritten) {
  const Cookie cookie = made("Reel");
  const auto before = std::filesystem::last_write_time(fileOf(cookie));
  EditPtr edit;
  edit.i_open(cookie, 0);
  edit->config().set("OWNER", "ANNA");
  EditManager::flushChanges(cookie);
  EXPECT_EQ(std::filesystem::last_write_time(fileOf(cookie)), before);
}

TEST_F(EditsTest, AGivenLogAnnouncesItsOwnerAndStoresNone) {
  const Cookie log = made("Shot", CookieTypeShot);
  ASSERT_TRUE(EditActions::give(log, "bob"));
  EXPECT_EQ(listener.heard, Notes{"modified 53"});
  EXPECT_EQ(edits.ownerOf(log), "BOB");
  EXPECT_EQ(bytesOf(fileOf(log)).find("BOB"), std::string::npos);
}

TEST_F(EditsTest, AnEditWithoutOwnerMayBeGivenByAnybody) {
  const Cookie cookie = made("Reel");
  rules.setOwner(cookie, L"", iPermissionsManager::eEdit, false);
  rules.isAllowed = false;
  EXPECT_TRUE(EditActions::give(cookie, "anna"));
  EXPECT_EQ(edits.ownerOf(cookie), "ANNA");
}

TEST_F(EditsTest, ADescriptionIsAnnouncedWhenTheEditIsClosedAndOnlyOnce) {
  const Cookie cookie = made("Reel");
  EditPtr edit;
  edit.i_open(cookie, 0);
  edit->setChangeDescription(eModOwnerChanged, true);
  EXPECT_EQ(listener.heard, Notes{});
  edit.i_close();
  edit.i_open(cookie, 0);
  edit.i_close();
  EXPECT_EQ(listener.heard, Notes{"modified 53"});
}

TEST_F(EditsTest, AModifierThatForgetsItsModificationsAnnouncesNothing) {
  const Cookie cookie = made("Reel");
  EditPtr edit;
  edit.i_open(cookie, 0);
  {
    EditModifier modifier(edit, "Test");
    ASSERT_TRUE(edits.loaded(cookie)->change(EditModification("2;0;0;;New")));
    modifier.clearModifications();
  }
  EXPECT_EQ(listener.heard, Notes{"dirtied"});
}

TEST_F(EditsTest, AnEditCreatedElsewhereIsListedOnceItIsOpened) {
  const Cookie known = made("Reel");
  const Cookie other = Cookie::create(CookieTypeEdit);
  write(fileOf(other), bytesOf(fileOf(known)));
  EXPECT_FALSE(edits.holds(other));
  const RemoteChangeScope remote;
  EditPtr edit;
  edit.i_open(other, 0);
  ASSERT_TRUE(edit);
  EXPECT_TRUE(edits.holds(other));
  EXPECT_EQ(events.changes, Notes{"edit created remote"});
}

TEST_F(EditsTest, AnEditWhoseMessageWasLostIsFoundByItsNameAndItsCookie) {
  const Cookie known = made("Reel");
  for (const std::string name : {"Tape", "Spool"}) {
    const Cookie lost = Cookie::create(CookieTypeEdit);
    std::string bytes = bytesOf(fileOf(known));
    bytes.replace(bytes.find("\"Reel\""), 6, '"' + name + '"');
    write(fileOf(lost), bytes);
    const auto found = projects.resolve(name == "Tape" ? name : lost.asString().str(), "ES");
    ASSERT_TRUE(found) << found.error().message;
    EXPECT_EQ(*found, lost);
    EXPECT_EQ(edits.nameOf(lost), name);
  }
  EXPECT_EQ(events.changes, (Notes{"edit created remote", "edit created remote"}));
  EXPECT_EQ(listener.heard, Notes{});
}

TEST_F(EditsTest, AnEditSavedElsewhereThatIsNotOpenIsListedUnderItsNewName) {
  const Cookie cookie = made("Reel");
  std::string bytes = bytesOf(fileOf(cookie));
  bytes.replace(bytes.find("\"Reel\""), 6, "\"Tape\"");
  write(fileOf(cookie), bytes);
  noteDelivered(savedMessage(cookie));
  EXPECT_EQ(events.changes, Notes{"edit refreshed remote"});
  EXPECT_TRUE(projects.resolve("Tape", "E"));
  EXPECT_FALSE(projects.resolve("Reel", "E"));
}

TEST_F(EditsTest, AskingWhetherAnEditIsOpenChangesAndTellsNothing) {
  const Cookie cookie = made("Reel");
  replaceInFile(cookie, "\"Reel\"", "\"Tape\"");
  const RemoteChangeScope remote;
  EXPECT_FALSE(EditManager::isOpen(cookie));
  EXPECT_EQ(events.changes, Notes{});
  EXPECT_EQ(edits.listed(cookie)["name"].asString(), "Reel");
}

TEST_F(EditsTest, ASaveElsewhereIsNotedOnlyForAnEditOfTheOpenProjectThatIsNotOpen) {
  const Cookie cookie = made("Reel");
  ReceivedMessage elsewhere = savedMessage(cookie);
  elsewhere.fields.project = "P0001";
  noteDelivered(elsewhere);
  EXPECT_EQ(events.changes, Notes{});
  ASSERT_TRUE(edits.open(cookie));
  noteDelivered(savedMessage(cookie));
  EXPECT_EQ(events.changes, Notes{});
}

TEST_F(EditsTest, WhoSavedAnEditIsToldOfTheMessageElseOfTheFile) {
  const Cookie cookie = made("Reel");
  ReceivedMessage message = savedMessage(cookie);
  message.by = "BEN";
  noteDelivered(message);
  ASSERT_TRUE(edits.open(cookie));
  replaceInFile(cookie, "\"by\": \"anna\"", "\"by\": \"CARLA\"");
  {
    const RemoteChangeScope remote;
    edits.loaded(cookie)->readLate();
  }
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  EXPECT_EQ(events.authors, (Notes{"BEN", "CARLA", "anna"}));
}

TEST_F(EditsTest, AnEditDeletedElsewhereIsForgottenEvenWhileItIsLookedAt) {
  const Cookie cookie = made("Reel");
  EditPtr edit;
  edit.i_open(cookie, 0);
  const RemoteChangeScope remote;
  std::filesystem::remove(fileOf(cookie));
  EditManager::handleNetDelete(cookie);
  EXPECT_FALSE(edits.holds(cookie));
  EXPECT_FALSE(edit->isImported());
  EXPECT_EQ(events.changes, Notes{"edit destroyed remote"});
  EditManager::handleNetDelete(cookie);
  EXPECT_EQ(events.changes.size(), 1U);
}

TEST_F(EditsTest, ListenersAreHandedNoMoreDeletedObjectsThanTheirCounterHolds) {
  const CookieVec many(70'000, Cookie("E0001", false));
  ProjectListeners::instance().tellDeleted(many, "user");
  EXPECT_EQ(listener.heard, (Notes{"deleted 65535", "deleted 4465"}));
  listener.heard.clear();
  ProjectListeners::instance().tellDeleted({}, "user");
  EXPECT_EQ(listener.heard, Notes{});
}

TEST_F(EditsTest, AllThatAreDeletedAreAnnouncedTogether) {
  const Cookie first = made("One");
  const Cookie second = made("Two");
  ASSERT_TRUE(EditActions::remove({first, second}));
  EXPECT_EQ(listener.heard, Notes{"deleted 2"});
  EXPECT_FALSE(std::filesystem::exists(fileOf(first)));
}

TEST_F(EditsTest, UnsavedChangesOfTheUsersAreNotClosedAway) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(edits.open(cookie));
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  EXPECT_FALSE(edits.close(cookie));
  ASSERT_TRUE(EditActions::save(cookie));
  EXPECT_TRUE(edits.close(cookie));
  EXPECT_FALSE(EditManager::isOpen(cookie));
}

TEST_F(EditsTest, BrokenFilesAreReportedAndSetAsideWhileOthersGoOn) {
  const Cookie good = made("Good");
  const std::string whole = bytesOf(fileOf(good));
  const std::string broken[] = {"",     whole.substr(0, whole.size() / 2), "{}",       "[1]",
                                "null", "{\"OTIO_SCHEMA\": \"Clip.1\"}",   whole + "}"};
  std::vector<Cookie> cookies;
  for (const std::string& bytes : broken) {
    cookies.push_back(Cookie::create(CookieTypeEdit));
    write(fileOf(cookies.back()), bytes);
  }
  ASSERT_TRUE(projects.leave());
  ASSERT_TRUE(projects.enter("Film"));
  EXPECT_TRUE(edits.open(good));
  for (std::size_t row = 0; row < cookies.size(); ++row) {
    SCOPED_TRACE(broken[row]);
    EXPECT_FALSE(edits.open(cookies[row]));
    EXPECT_FALSE(EditActions::save(cookies[row]));
    EXPECT_EQ(bytesOf(fileOf(cookies[row])), broken[row]);
    EXPECT_NE(events.logged.find(cookies[row].asString().str()), std::string::npos);
  }
}

TEST_F(EditsTest, WhileAMessageIsDeliveredAFileIsFoundInTheProjectThatItNames) {
  const Cookie unknown = Cookie::create(CookieTypeEdit);
  const Cookie known = made("Reel");
  const auto found = [](const Cookie& cookie) {
    return utf8Text(getFilenameForCookie(cookie, Cookie()));
  };
  EXPECT_EQ(found(unknown), fileOf(unknown));
  const ReceivedMessage message = receivedMessage(
      "d\xAC"
      "14\xACP0002\xAC");
  const RemoteChangeScope delivery(&message);
  EXPECT_EQ(found(unknown), folder / ("P0002/" + unknown.asString().str() + ".otio"));
  EXPECT_EQ(found(known), fileOf(known));
  ASSERT_TRUE(projects.leave());
  EXPECT_EQ(found(unknown), folder / ("P0002/" + unknown.asString().str() + ".otio"));
}

TEST_F(EditsTest, AMessageThatNamesNoProjectIsAboutTheOpenOne) {
  const Cookie unknown = Cookie::create(CookieTypeEdit);
  for (const std::string named : {"", "E0002", "../P0002", "P000x"}) {
    SCOPED_TRACE(named);
    const ReceivedMessage message = receivedMessage(
        "d\xAC"
        "14\xAC" +
        named + "\xAC");
    const RemoteChangeScope delivery(&message);
    EXPECT_EQ(utf8Text(getFilenameForCookie(unknown, Cookie())), fileOf(unknown));
  }
}

TEST_F(EditsTest, NamesOfAnyKindAreKept) {
  const std::string names[] = {"a b", "\"quoted\"", "Grüße", "€", std::string(300, 'x'),
                               "a/b", ".hidden",    "E0001", "-x"};
  for (const std::string& name : names) {
    const Cookie cookie = made(name);
    const auto found = projects.resolve(name, "ES");
    ASSERT_TRUE(found) << name;
    EXPECT_EQ(*found, cookie) << name;
  }
  ASSERT_TRUE(projects.leave());
  ASSERT_TRUE(projects.enter("Film"));
  for (const std::string& name : names) EXPECT_TRUE(projects.resolve(name, "E")) << name;
}

TEST_F(EditsTest, NamesWithControlCharactersAreRefused) {
  for (const std::string& name : {std::string(), std::string("a\nb"), std::string("\x1b[2J"),
                                  std::string("a\0b", 3), std::string(1001, 'x')}) {
    EXPECT_FALSE(EditActions::create(name, CookieTypeEdit)) << name;
  }
}

TEST_F(EditsTest, TheBeginningOfACookieStandsForItWhereItIsOneObjects) {
  const Cookie first = made("Twin");
  const Cookie second = made("Twin");
  const std::string one = first.asString().str();
  const std::string two = second.asString().str();
  std::size_t common = 0;
  while (one[common] == two[common]) ++common;
  const auto found = projects.resolve(one.substr(0, std::max<std::size_t>(common + 1, 4)), "E");
  ASSERT_TRUE(found) << found.error().message;
  EXPECT_EQ(*found, first);
  EXPECT_FALSE(projects.resolve(one.substr(0, 1), "E"));
  EXPECT_FALSE(projects.resolve(one.substr(0, 4), "B"));
}

TEST_F(EditsTest, AnAmbiguousNameIsRefusedWithTheCandidates) {
  const Cookie first = made("Twin");
  const Cookie second = made("Twin");
  const auto found = projects.resolve("Twin", "ES");
  ASSERT_FALSE(found);
  for (const Cookie& each : {first, second}) {
    const std::string shortly = each.asString().str().substr(0, 8);
    EXPECT_NE(found.error().message.find(shortly), std::string::npos) << found.error().message;
  }
}

}  // namespace
