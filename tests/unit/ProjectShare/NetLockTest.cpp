#include "ProjectShare/NetLock.h"

#include <gtest/gtest.h>

#include <memory>

#include "tests/fakes/FakeHost.h"

using namespace korvel;

namespace {

using Strings = std::vector<std::string>;

constexpr const char* kPath = "/projects/P0001/Lock";
constexpr const char* kInfo = "/projects/P0001/Lock.inf";

class NetLockTest : public testing::Test {
 protected:
  static std::unique_ptr<NetLock> build() {
    return std::make_unique<NetLock>(L"/projects/P0001/Lock");
  }

  FakeHost host;
};

TEST_F(NetLockTest, BuildingMakesAnEmptyLockFileAndClosesItAgain) {
  const auto lock = build();
  EXPECT_TRUE(host.files.has(kPath));
  EXPECT_EQ(host.files.content(kPath), "");
  EXPECT_EQ(host.journal.effects(),
            (Strings{"iFileManager::openFile(/projects/P0001/Lock, 3, 1, 0, 32)",
                     "iFile::close(/projects/P0001/Lock)"}));
}

TEST_F(NetLockTest, EachHandleOfTheLockFileIsAskedWhetherItIsOpen) {
  const auto lock = build();
  EXPECT_EQ(host.journal.count("? iFile::isOpen(/projects/P0001/Lock)"), 1);
  host.files.failedOpensGiveHandles = true;
  host.files.heldElsewhere.insert(kPath);
  EXPECT_FALSE(lock->Lock());
  EXPECT_EQ(host.journal.count("? iFile::isOpen(/projects/P0001/Lock)"), 2);
}

TEST_F(NetLockTest, BuildingOnALockHeldElsewhereSucceedsAndChangesNothing) {
  for (const bool handle : {false, true}) {
    host.files.put(kPath, "");
    host.files.heldElsewhere.insert(kPath);
    host.files.failedOpensGiveHandles = handle;
    const auto lock = build();
    EXPECT_TRUE(lock->init());
    EXPECT_TRUE(host.files.has(kPath));
  }
}

TEST_F(NetLockTest, LockingOpensTheFileForNobodyElseAndKeepsItOpen) {
  const auto lock = build();
  host.journal.clear();
  EXPECT_TRUE(lock->Lock());
  EXPECT_EQ(host.journal.effects(),
            Strings{"iFileManager::openFile(/projects/P0001/Lock, 3, 3, 0, 32)"});
  EXPECT_EQ(host.files.openHandles(kPath), 1U);
}

TEST_F(NetLockTest, ALockHeldElsewhereIsRefusedAtOnceAndLeftAsItIs) {
  for (const bool handle : {false, true}) {
    host.files.put(kPath, "");
    host.files.heldElsewhere = {kPath};
    host.files.failedOpensGiveHandles = handle;
    auto lock = build();
    host.journal.clear();
    EXPECT_FALSE(lock->Lock());
    lock.reset();
    EXPECT_EQ(host.journal.effects(),
              Strings{"iFileManager::openFile(/projects/P0001/Lock, 3, 3, 0, 32)"});
    EXPECT_TRUE(host.files.has(kPath));
  }
}

TEST_F(NetLockTest, ASecondHolderIsRefusedUntilTheFirstUnlocksAndANewOneMakesTheFileAgain) {
  const auto first = build();
  const auto second = build();
  EXPECT_TRUE(first->Lock());
  EXPECT_FALSE(second->Lock());
  first->Unlock();
  EXPECT_FALSE(host.files.has(kPath));
  const auto third = build();
  EXPECT_TRUE(host.files.has(kPath));
  EXPECT_TRUE(third->Lock());
}

TEST_F(NetLockTest, LockingAgainOnTheSameObjectIsRefusedAndLosesTheLock) {
  const auto lock = build();
  EXPECT_TRUE(lock->Lock());
  EXPECT_FALSE(lock->Lock());
  EXPECT_EQ(host.files.openHandles(kPath), 0U);
}

TEST_F(NetLockTest, NamingTheHolderBeforeLockingIsRefusedAndMakesNoFile) {
  const auto lock = build();
  EXPECT_FALSE(lock->SetLockInfo(L"anna"));
  EXPECT_FALSE(host.files.has(kInfo));
}

TEST_F(NetLockTest, NamingTheHolderAfterARefusalIsRefusedAndMakesNoFile) {
  for (const bool handle : {false, true}) {
    host.files.heldElsewhere = {kPath};
    host.files.failedOpensGiveHandles = handle;
    const auto lock = build();
    EXPECT_FALSE(lock->Lock());
    EXPECT_FALSE(lock->SetLockInfo(L"anna"));
    EXPECT_FALSE(host.files.has(kInfo));
  }
}

TEST_F(NetLockTest, NamingTheHolderWritesTheNameWithOneWriteAndClosesTheFile) {
  const auto lock = build();
  lock->Lock();
  host.journal.clear();
  EXPECT_TRUE(lock->SetLockInfo(L"anna"));
  EXPECT_EQ(host.journal.effects(),
            (Strings{"iFileManager::openFile(/projects/P0001/Lock.inf, 3, 3, 4, 0)",
                     "iFile::write(/projects/P0001/Lock.inf, anna)",
                     "iFile::close(/projects/P0001/Lock.inf)"}));
}

TEST_F(NetLockTest, TheInformationFileHoldsExactlyTheNamesUtf8Bytes) {
  const struct {
    const wchar_t* name;
    std::string bytes;
  } rows[] = {{L"anna", "anna"},
              {L"Ren\u00e9", "Ren\xc3\xa9"},
              {L"", ""},
              {L"\u20ac uro", "\xe2\x82\xac uro"}};
  const auto lock = build();
  lock->Lock();
  for (const auto& row : rows) {
    host.files.put(kInfo, "a longer name that was here before");
    EXPECT_TRUE(lock->SetLockInfo(row.name)) << row.bytes;
    EXPECT_EQ(host.files.content(kInfo), row.bytes);
  }
}

TEST_F(NetLockTest, AnInformationFileThatCannotBeOpenedLeavesTheLockHeld) {
  for (const bool handle : {false, true}) {
    const auto lock = build();
    lock->Lock();
    host.files.failedOpensGiveHandles = handle;
    host.files.refusals[kInfo] = eFileError::eNoRights;
    EXPECT_FALSE(lock->SetLockInfo(L"anna"));
    EXPECT_EQ(host.files.openHandles(kPath), 1U);
    host.files.failedOpensGiveHandles = false;
    lock->Unlock();
  }
}

TEST_F(NetLockTest, AfterAFailedWriteTheInformationFileStaysOpenUntilTheLockIsDestroyed) {
  host.files.writesFail = true;
  auto lock = build();
  lock->Lock();
  EXPECT_FALSE(lock->SetLockInfo(L"anna"));
  EXPECT_EQ(host.files.openHandles(kInfo), 1U);
  lock->Unlock();
  EXPECT_EQ(host.files.openHandles(kInfo), 1U);
  lock.reset();
  EXPECT_EQ(host.files.openHandles(kInfo), 0U);
}

TEST_F(NetLockTest, UnlockingClosesTheLockBeforeItRemovesBothFiles) {
  const auto lock = build();
  lock->Lock();
  lock->SetLockInfo(L"anna");
  host.journal.clear();
  EXPECT_TRUE(lock->Unlock());
  EXPECT_EQ(host.journal.effects(),
            (Strings{"iFile::close(/projects/P0001/Lock)",
                     "iFileManager::removeFile(/projects/P0001/Lock)",
                     "iFileManager::removeFile(/projects/P0001/Lock.inf)"}));
  EXPECT_FALSE(host.files.has(kPath));
  EXPECT_FALSE(host.files.has(kInfo));
}

TEST_F(NetLockTest, UnlockingWithoutAnAttemptedInformationFileRemovesTheLockFileAlone) {
  host.files.put(kInfo, "somebody");
  const auto lock = build();
  lock->Lock();
  host.journal.clear();
  EXPECT_TRUE(lock->Unlock());
  EXPECT_EQ(host.journal.effects(), (Strings{"iFile::close(/projects/P0001/Lock)",
                                             "iFileManager::removeFile(/projects/P0001/Lock)"}));
  EXPECT_FALSE(host.files.has(kPath));
  EXPECT_TRUE(host.files.has(kInfo));
}

TEST_F(NetLockTest, UnlockingAfterAFailedInformationFileStillRemovesIt) {
  const auto lock = build();
  lock->Lock();
  host.files.refusals[kInfo] = eFileError::eNoRights;
  lock->SetLockInfo(L"anna");
  host.files.refusals.clear();
  host.files.put(kInfo, "old");
  lock->Unlock();
  EXPECT_FALSE(host.files.has(kInfo));
}

TEST_F(NetLockTest, UnlockingAgainRemovesTheInformationFileAgain) {
  const auto lock = build();
  lock->Lock();
  lock->SetLockInfo(L"anna");
  lock->Unlock();
  host.files.put(kInfo, "another");
  EXPECT_TRUE(lock->Unlock());
  EXPECT_FALSE(host.files.has(kInfo));
}

TEST_F(NetLockTest, UnlockingSaysTrueEvenIfNeitherFileCanBeRemoved) {
  const auto lock = build();
  lock->Lock();
  lock->SetLockInfo(L"anna");
  host.files.refusals = {{kPath, eFileError::eNoRights}, {kInfo, eFileError::eNoRights}};
  EXPECT_TRUE(lock->Unlock());
  EXPECT_TRUE(host.files.has(kPath));
  EXPECT_TRUE(host.files.has(kInfo));
}

TEST_F(NetLockTest, UnlockingWhatWasNeverLockedRemovesTheLockFileAndSaysTrue) {
  const auto lock = build();
  EXPECT_TRUE(lock->Unlock());
  EXPECT_FALSE(host.files.has(kPath));
  EXPECT_TRUE(lock->Unlock());
  EXPECT_EQ(host.journal.count("iFileManager::removeFile(/projects/P0001/Lock)"), 2);
}

TEST_F(NetLockTest, DestroyingAHeldLockGivesItUpAndLeavesBothFiles) {
  auto lock = build();
  lock->Lock();
  lock->SetLockInfo(L"anna");
  lock.reset();
  EXPECT_EQ(host.files.openHandles(kPath), 0U);
  EXPECT_TRUE(host.files.has(kPath));
  EXPECT_EQ(host.files.content(kInfo), "anna");
}

TEST_F(NetLockTest, ALockLeftBehindByAHolderThatStoppedCanBeTaken) {
  host.files.put(kPath, "");
  host.files.put(kInfo, "gone");
  const auto lock = build();
  EXPECT_TRUE(lock->Lock());
  EXPECT_TRUE(lock->SetLockInfo(L"anna"));
  EXPECT_EQ(host.files.content(kInfo), "anna");
}

}  // namespace
