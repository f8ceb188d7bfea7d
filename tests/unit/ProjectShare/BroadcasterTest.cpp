#include "ProjectShare/Broadcaster.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "ProjectShare/NetMessage.h"
#include "ProjectShare/PermissionsManager.h"
#include "tests/fakes/FakeHost.h"
#include "tests/support/Cookies.h"

using namespace korvel;

namespace {

using ProjectSharing::Broadcaster;

using Strings = std::vector<std::string>;

class BroadcasterTest : public testing::Test {
 protected:
  void build() {
    broadcaster = new Broadcaster;
    host.journal.clear();
  }

  void buildEnabled() {
    build();
    Broadcaster::enable();
  }

  NetMessage sent(std::size_t index) const {
    return NetMessage(LightweightString<char>(host.network.sent.at(index).c_str()));
  }

  std::size_t count() const { return host.network.sent.size(); }

  void notifyMedia(NotifyMsgType type, const FsysDirectoryEntry& entry) {
    host.media.registrations.notify(type, &entry);
  }

  FakeHost host;
  Kv::Ptr<Broadcaster> broadcaster;
};

FsysDirectoryEntry mediaEntry() {
  FsysDirectoryEntry entry(cookie("V0001"), MaterialFilename(L"/media/day one/b\u00e4r.mov"));
  entry.addProxyFile(MaterialFilename(L"/media/proxies/first.mov"));
  entry.addProxyFile(MaterialFilename(L"/media/proxies/second.mov"));
  return entry;
}

TEST_F(BroadcasterTest, WithoutAConfiguredPortItSendsOnPort27015) {
  build();
  broadcaster->broadcast(NetMessage(NetMessage::eEditSaved, cookie("E0001")));
  EXPECT_EQ(host.network.sentPorts, std::vector<int>{27015});
}

TEST_F(BroadcasterTest, WhatIsSentThroughTheCurrentOneBeforeItIsCompleteIsNotSent) {
  bool isAsked = false;
  host.journal.onLine = [&isAsked](const std::string& line) {
    if (line.find("createUDPBroadcaster") == line.npos) return;
    isAsked = true;
    Broadcaster::broadcastMessage(NetMessage(NetMessage::eEditSaved, cookie("E0001")));
  };
  build();
  EXPECT_TRUE(isAsked);
  EXPECT_EQ(count(), 0u);
}

TEST_F(BroadcasterTest, AConfiguredPortIsUsedUnchanged) {
  host.configure("shared_projects_udp_port", "70000");
  build();
  broadcaster->broadcast(NetMessage(NetMessage::eEditSaved, cookie("E0001")));
  EXPECT_EQ(host.network.sentPorts, std::vector<int>{70000});
}

TEST_F(BroadcasterTest, ItListensForAnyChangeOfFourNotifiersBeforeItOpensItsPort) {
  broadcaster = new Broadcaster;
  const std::string any =
      std::to_string(NotifyMsgTypeDictionary::instance()[NotifyMsgTypeDictionary::eAnyChange]);
  EXPECT_EQ(host.journal.effects(),
            (Strings{"ProjectListener()", "BinManager::registerInternal(" + any + ")",
                     "ProjectFilterManager::registerInternal(" + any + ")",
                     "RackManager::registerInternal(" + any + ")",
                     "SystemCache::registerInternal(" + any + ")",
                     "iNetworkService::createUDPBroadcaster(27015)"}));
}

TEST_F(BroadcasterTest, DestructionClosesTheSenderThenTheListenerThenTheRegistrations) {
  build();
  broadcaster.reset();
  EXPECT_EQ(host.journal.effects(),
            (Strings{"iUDPBroadcaster::close(27015)", "~ProjectListener()",
                     "BinManager::endRegistration()", "ProjectFilterManager::endRegistration()",
                     "RackManager::endRegistration()", "SystemCache::endRegistration()"}));
}

TEST_F(BroadcasterTest, ItIsSilentUntilItIsEnabled) {
  build();
  broadcaster->handleLogStorage(cookie("E0001"), false);
  EXPECT_EQ(count(), 0U);
  Broadcaster::enable();
  broadcaster->handleLogStorage(cookie("E0001"), false);
  EXPECT_EQ(count(), 1U);
}

TEST_F(BroadcasterTest, EnablingOnAMachineOutsideNetworkModeLeavesItSilent) {
  host.project.networkMode = false;
  buildEnabled();
  broadcaster->handleLogStorage(cookie("E0001"), false);
  EXPECT_EQ(count(), 0U);
}

TEST_F(BroadcasterTest, EnablingAgainAfterNetworkModeEndedSilencesIt) {
  buildEnabled();
  host.project.networkMode = false;
  Broadcaster::enable();
  broadcaster->handleLogStorage(cookie("E0001"), false);
  EXPECT_EQ(count(), 0U);
}

TEST_F(BroadcasterTest, StaticCallsWithoutABroadcasterDoNothing) {
  const NetMessage message(NetMessage::eEditSaved, cookie("E0001"));
  const auto callAll = [&message] {
    Broadcaster::enable();
    Broadcaster::disable();
    Broadcaster::broadcastMessage(message);
  };
  callAll();
  build();
  broadcaster.reset();
  callAll();
  EXPECT_EQ(count(), 0U);
}

TEST_F(BroadcasterTest, AMessageSentWhileDisabledGoesOutAndIsLoggedUnderSent) {
  build();
  Broadcaster::broadcastMessage(NetMessage(NetMessage::eEditSaved, cookie("E0001")));
  EXPECT_EQ(host.network.sent, (Strings{"d\xac"
                                        "2\xacP0001\xac"
                                        "E0001\xac"}));
  EXPECT_EQ(host.logLines,
            (Strings{"both: Sent :\n", "both: {\n", "both:    Project : P0001\n",
                     "both:    Type    : EditSaved\n", "both:    Cookie  : E0001\n", "both: }\n"}));
}

TEST_F(BroadcasterTest, WordsOfTheUserGoOutOutsideNetworkModeToo) {
  host.project.networkMode = false;
  buildEnabled();
  Broadcaster::broadcastMessage(NetMessage(NetMessage::eUserMessage, LightweightString<char>("BOB"),
                                           LightweightString<char>("hello")));
  ASSERT_EQ(count(), 1U);
  EXPECT_EQ(sent(0).data, "hello");
}

TEST_F(BroadcasterTest, AMessageIsSentBeforeItIsLogged) {
  build();
  std::size_t loggedWhenSent = 99;
  host.journal.onLine = [&](const std::string& line) {
    if (line.find("iUDPBroadcaster::broadcast") != line.npos) loggedWhenSent = host.logLines.size();
  };
  Broadcaster::broadcastMessage(NetMessage(NetMessage::eEditSaved, cookie("E0001")));
  EXPECT_EQ(loggedWhenSent, 0U);
  EXPECT_FALSE(host.logLines.empty());
}

TEST_F(BroadcasterTest, ANewerBroadcasterReplacesTheOlderAsTheCurrentOne) {
  build();
  host.configure("shared_projects_udp_port", "27016");
  const Kv::Ptr<Broadcaster> newer(new Broadcaster);
  Broadcaster::broadcastMessage(NetMessage(NetMessage::eEditSaved, cookie("E0001")));
  EXPECT_EQ(host.network.sentPorts, std::vector<int>{27016});
}

TEST_F(BroadcasterTest, AfterAnyBroadcasterIsDestroyedNoneIsCurrent) {
  build();
  const Kv::Ptr<Broadcaster> newer(new Broadcaster);
  broadcaster.reset();
  Broadcaster::broadcastMessage(NetMessage(NetMessage::eEditSaved, cookie("E0001")));
  EXPECT_EQ(count(), 0U);
}

TEST_F(BroadcasterTest, EnteringAProjectEnablesItAndAnnouncesTheRooms) {
  build();
  host.project.eachListener([](ProjectListener& listener) { listener.handleProjectEntry(); });
  ASSERT_EQ(count(), 1U);
  EXPECT_EQ(sent(0).type, NetMessage::eRoomChange);
  EXPECT_EQ(sent(0).cookie, cookie("P0001"));
  broadcaster->handleLogStorage(cookie("E0001"), false);
  EXPECT_EQ(count(), 2U);
}

TEST_F(BroadcasterTest, EnteringAProjectOutsideNetworkModeSilencesIt) {
  buildEnabled();
  host.project.networkMode = false;
  broadcaster->handleProjectEntry();
  broadcaster->handleLogStorage(cookie("E0001"), false);
  EXPECT_EQ(count(), 0U);
}

TEST_F(BroadcasterTest, LeavingAProjectSilencesEvenABroadcasterEnabledByHand) {
  buildEnabled();
  broadcaster->handleProjectExit();
  broadcaster->handleLogStorage(cookie("E0001"), false);
  EXPECT_EQ(count(), 0U);
}

TEST_F(BroadcasterTest, ThreeEditsDeletedAtOnceAreThreeMessagesInListOrder) {
  buildEnabled();
  broadcaster->handleLogsDeletion({cookie("E0003"), cookie("E0001"), cookie("S0002")}, "by hand");
  ASSERT_EQ(count(), 3U);
  EXPECT_EQ(sent(0).type, NetMessage::eEditDeleted);
  EXPECT_EQ(sent(0).cookie, cookie("E0003"));
  EXPECT_EQ(sent(1).cookie, cookie("E0001"));
  EXPECT_EQ(sent(2).cookie, cookie("S0002"));
}

TEST_F(BroadcasterTest, AnEmptyListOfDeletionsSendsNothing) {
  buildEnabled();
  broadcaster->handleLogsDeletion({}, "");
  EXPECT_EQ(count(), 0U);
}

TEST_F(BroadcasterTest, The16BitIndexOfALongListWrapsToTheFirstEntry) {
  constexpr std::size_t kIndexes = 65536;
  CookieVec deleted(kIndexes + 10, cookie("E0002"));
  deleted[0] = cookie("E0001");
  buildEnabled();
  host.journal.onLine = [this](const std::string&) {
    if (count() > kIndexes) throw std::runtime_error("enough");
  };
  broadcaster->handleLogsDeletion(deleted, "");
  host.journal.onLine = nullptr;
  ASSERT_EQ(count(), kIndexes + 1);
  EXPECT_EQ(sent(kIndexes - 1).cookie, cookie("E0002"));
  EXPECT_EQ(sent(kIndexes).cookie, cookie("E0001"));
}

TEST_F(BroadcasterTest, SavingANewEditAnnouncesACreationAndAnOldOneASave) {
  buildEnabled();
  broadcaster->handleLogStorage(cookie("E0001"), true);
  broadcaster->handleLogStorage(cookie("E0002"), false);
  ASSERT_EQ(count(), 2U);
  EXPECT_EQ(sent(0).type, NetMessage::eEditCreated);
  EXPECT_EQ(sent(0).cookie, cookie("E0001"));
  EXPECT_EQ(sent(1).type, NetMessage::eEditSaved);
  EXPECT_EQ(sent(1).cookie, cookie("E0002"));
}

TEST_F(BroadcasterTest, ADirtiedLogAnnouncesTheCurrentUserUnlessItIsAnEditOrScratch) {
  const struct {
    const char* what;
    bool opens;
    int logType;
    bool scratch;
    std::size_t messages;
  } rows[] = {{"a shot", true, 1, false, 1},
              {"another kind of log", true, 0, false, 1},
              {"an edit", true, 2, false, 0},
              {"a scratch log", true, 1, true, 0},
              {"a log that does not open", false, 1, false, 0}};
  PermissionsManager permissions;
  buildEnabled();
  for (const auto& row : rows) {
    host.network.sent.clear();
    FakeEdit& edit = host.edits.add(cookie("S0001"));
    edit.canBeOpened = row.opens;
    edit.logType = row.logType;
    edit.scratch = row.scratch;
    broadcaster->handleLogDirtied(cookie("S0001"));
    EXPECT_EQ(count(), row.messages) << row.what;
  }
}

TEST_F(BroadcasterTest, ADirtiedLogsMessageHoldsItsCookieAndTheUpperCasedUserInUtf8) {
  host.os.hostName = L"\u00fcber-1";
  PermissionsManager permissions;
  host.edits.add(cookie("S0001")).logType = 1;
  buildEnabled();
  broadcaster->handleLogDirtied(cookie("S0001"));
  ASSERT_EQ(count(), 1U);
  EXPECT_EQ(sent(0).type, NetMessage::ePermissionsChange);
  EXPECT_EQ(sent(0).cookie, cookie("S0001"));
  EXPECT_EQ(sent(0).data,
            "\xc3\x9c"
            "BER-1");
}

TEST_F(BroadcasterTest, AModificationIsAnnouncedWholeWhileTheEditIsOpenedWithoutFlags) {
  host.edits.add(cookie("E0001"));
  buildEnabled();
  EditModification trim(eModTrim);
  trim.range_ = NumRange<double>(1.5, 2.5);
  trim.subject_ = "0/2/1";
  broadcaster->handleLogModification(cookie("E0001"), trim);
  ASSERT_EQ(count(), 1U);
  EXPECT_EQ(sent(0).type, NetMessage::eEditModification);
  EXPECT_EQ(sent(0).cookie, cookie("E0001"));
  EXPECT_EQ(sent(0).editModification.asString(), trim.asString());
  EXPECT_EQ(host.journal.effects().front(), "EditPtr::i_open(E0001, 0)");
  EXPECT_EQ(host.journal.effects().back(), "EditPtr::i_close(E0001)");
}

TEST_F(BroadcasterTest, AChangeOfOwnerIsAnnouncedAsPermissionsWithTheStoredOwner) {
  host.edits.add(cookie("E0001")).settings.values["OWNER"] = "bob";
  buildEnabled();
  broadcaster->handleLogModification(cookie("E0001"), EditModification(eModOwnerChanged));
  ASSERT_EQ(count(), 1U);
  EXPECT_EQ(sent(0).type, NetMessage::ePermissionsChange);
  EXPECT_EQ(sent(0).cookie, cookie("E0001"));
  EXPECT_EQ(sent(0).data, "bob");
}

TEST_F(BroadcasterTest, AModificationOfAnEditThatIsNotImportedOrNotThereSendsNothing) {
  host.edits.add(cookie("E0001")).imported = false;
  buildEnabled();
  for (const EditModificationType type : {eModTrim, eModOwnerChanged}) {
    broadcaster->handleLogModification(cookie("E0001"), EditModification(type));
    broadcaster->handleLogModification(cookie("E0002"), EditModification(type));
  }
  EXPECT_EQ(count(), 0U);
  EXPECT_EQ(host.journal.count("EditPtr::i_close(E0001)"), 2);
}

TEST_F(BroadcasterTest, TheFlagsOfAContainersChangeDecideTheAnnouncedValue) {
  const struct {
    std::uint32_t flags;
    int value;  ///< -1: nothing is sent
  } rows[] = {{0x80, 2}, {0x82, 1},       {0x04, 3},       {0x84, 3},  {0x86, 3},
              {0x06, 3}, {0xffffffff, 3}, {0x02, -1},      {0x08, -1}, {0x00, -1},
              {0x88, 2}, {0x8a, 1},       {0xfffffffb, 1}, {0x79, -1}};
  buildEnabled();
  for (const auto& row : rows) {
    host.network.sent.clear();
    host.bins.notifyChange(cookie("G0001"), row.flags);
    host.racks.notifyChange(cookie("B0001"), row.flags);
    host.filters.notifyChange(cookie("F0001"), row.flags);
    ASSERT_EQ(count(), row.value < 0 ? 0U : 3U) << std::hex << row.flags;
    for (std::size_t i = 0; i < count(); ++i) {
      EXPECT_EQ(sent(i).containerModification.value_, static_cast<std::uint32_t>(row.value))
          << std::hex << row.flags;
    }
  }
}

TEST_F(BroadcasterTest, BinsAndRacksAreContainersAndFiltersHaveATypeOfTheirOwn) {
  buildEnabled();
  host.bins.notifyChange(cookie("G0001"), 0x80);
  host.racks.notifyChange(cookie("B0002-ff01"), 0x80);
  host.filters.notifyChange(cookie("F0003"), 0x80);
  ASSERT_EQ(count(), 3U);
  EXPECT_EQ(sent(0).type, NetMessage::eContainerModification);
  EXPECT_EQ(sent(0).cookie, cookie("G0001"));
  EXPECT_EQ(sent(1).type, NetMessage::eContainerModification);
  EXPECT_EQ(sent(1).cookie, cookie("B0002-ff01"));
  EXPECT_EQ(sent(2).type, NetMessage::eFilterModification);
  EXPECT_EQ(sent(2).cookie, cookie("F0003"));
}

TEST_F(BroadcasterTest, AFiltersChangeWithoutAnObjectSendsNothing) {
  buildEnabled();
  host.filters.notifyChange(Cookie(), 0x84);
  EXPECT_EQ(count(), 0U);
  EXPECT_TRUE(host.logLines.empty());
}

TEST_F(BroadcasterTest, MediaIsAnnouncedByItsNetworkPathAndAProxyByTheFirstOne) {
  const std::string file = "//store/rushes/day one/b\xc3\xa4r.mov";
  const std::string proxy = "//store/rushes/proxies/first.mov";
  const struct {
    NotifyMsgType notification;
    NetMessage::Type type;
    std::string path;
  } rows[] = {{SystemCache::fileAddedMsgType_, NetMessage::eAddMaterial, file},
              {SystemCache::fileRemovedMsgType_, NetMessage::eRemoveMaterial, file},
              {SystemCache::proxyAddedMsgType_, NetMessage::eAddMaterial, proxy},
              {SystemCache::proxyRemovedMsgType_, NetMessage::eRemoveMaterial, proxy}};
  buildEnabled();
  for (const auto& row : rows) {
    host.network.sent.clear();
    notifyMedia(row.notification, mediaEntry());
    ASSERT_EQ(count(), 1U) << row.notification;
    EXPECT_EQ(sent(0).type, row.type) << row.notification;
    EXPECT_EQ(sent(0).data.str(), row.path) << row.notification;
  }
}

TEST_F(BroadcasterTest, AnotherMediaNotificationSendsNothing) {
  buildEnabled();
  notifyMedia(999, mediaEntry());
  EXPECT_EQ(count(), 0U);
}

TEST_F(BroadcasterTest, WhileDisabledNoHandlerSendsAnythingOrOpensAnEdit) {
  PermissionsManager permissions;
  host.edits.add(cookie("S0001")).logType = 1;
  buildEnabled();
  Broadcaster::disable();
  broadcaster->handleLogStorage(cookie("S0001"), true);
  broadcaster->handleLogsDeletion({cookie("S0001")}, "");
  broadcaster->handleLogDirtied(cookie("S0001"));
  broadcaster->handleLogModification(cookie("S0001"), EditModification(eModTrim));
  host.bins.notifyChange(cookie("G0001"), 0x84);
  host.racks.notifyChange(cookie("B0001"), 0x84);
  host.filters.notifyChange(cookie("F0001"), 0x84);
  notifyMedia(SystemCache::fileAddedMsgType_, mediaEntry());
  EXPECT_TRUE(host.journal.effects().empty());
}

TEST_F(BroadcasterTest, AChangeOfSeveralLogsAtOnceIsNotHeard) {
  buildEnabled();
  host.project.eachListener(
      [](ProjectListener& listener) { listener.handleLogsModification({cookie("E0001")}); });
  EXPECT_EQ(count(), 0U);
}

TEST_F(BroadcasterTest, NotifierCallbacksReturnZeroWhateverHappens) {
  buildEnabled();
  const ContainerManagerBase::Modification<RackData> wrong(nullptr, 0x80);
  const NotifyMsg message(FakeBins::kChange, &wrong);
  EXPECT_EQ(broadcaster->handleBinModifications(message), 0);
  EXPECT_EQ(broadcaster->handleFilterModifications(message), 0);
  EXPECT_EQ(broadcaster->handleMediaAvailability(message), 0);
  Broadcaster::disable();
  EXPECT_EQ(broadcaster->handleRackModifications(message), 0);
}

TEST_F(BroadcasterTest, AnExceptionInAHandlerIsLoggedOnceAndDoesNotReachTheHost) {
  buildEnabled();
  host.journal.onLine = [](const std::string&) { throw std::runtime_error("no memory"); };
  broadcaster->handleLogModification(cookie("E0001"), EditModification(eModTrim));
  EXPECT_EQ(host.logLines,
            (Strings{"both: Project Share: handleLogModification failed: no memory\n"}));
  host.journal.onLine = nullptr;
}

TEST_F(BroadcasterTest, AProxyNotificationWithoutAProxyIsLoggedAndSendsNothing) {
  buildEnabled();
  const FsysDirectoryEntry entry(cookie("V0001"), MaterialFilename(L"/media/a.mov"));
  notifyMedia(SystemCache::proxyAddedMsgType_, entry);
  EXPECT_EQ(count(), 0U);
  ASSERT_EQ(host.logLines.size(), 1U);
  EXPECT_EQ(host.logLines[0].rfind("both: Project Share: handleMediaAvailability failed: ", 0), 0U);
}

}  // namespace
