#include "tests/contract/FileManagerContract.h"

#include <vector>

namespace korvel {

TEST_P(FileManagerContract, AMissingFileIsNotOpenedUnlessItMayBeMade) {
  EXPECT_FALSE(open("a", eFileRead, eFileOpenExisting, eFileShareRead));
  EXPECT_EQ(files().lastError(), eFileError::eMissing);
  EXPECT_TRUE(open("a", eFileReadWrite, eFileCreate, eFileShareWrite));
  EXPECT_EQ(files().lastError(), eFileError::eNone);
  EXPECT_EQ(read("a"), "");
}

TEST_P(FileManagerContract, AnExclusiveOpenMakesAnEmptyFile) {
  EXPECT_TRUE(open("Lock", eFileReadWrite, eFileCreate, eFileShareNone, eFileGroupShared));
  EXPECT_EQ(read("Lock"), "");
}

TEST_P(FileManagerContract, WhileOneHoldsAFileExclusivelyEveryOtherOpenFails) {
  const auto holder = openExclusively("Lock");
  ASSERT_TRUE(holder);
  struct Row {
    int access, disposition, share;
  };
  for (const Row& row : std::vector<Row>{{eFileReadWrite, eFileCreate, eFileShareNone},
                                         {eFileReadWrite, eFileReplace, eFileShareNone},
                                         {eFileReadWrite, eFileReplace, eFileShareWrite},
                                         {eFileReadWrite, eFileOpenExisting, eFileShareNone},
                                         {eFileRead, eFileOpenExisting, eFileShareRead}}) {
    EXPECT_FALSE(open("Lock", row.access, row.disposition, row.share))
        << row.access << ' ' << row.disposition << ' ' << row.share;
    EXPECT_EQ(files().lastError(), eFileError::eHeld);
  }
}

TEST_P(FileManagerContract, AReleasedFileCanBeHeldAgain) {
  for (int round = 0; round < 3; ++round) {
    const auto holder = openExclusively("Lock");
    EXPECT_TRUE(holder) << round;
    EXPECT_FALSE(openExclusively("Lock")) << round;
  }
}

TEST_P(FileManagerContract, ACopyOfTheHandleKeepsTheFileHeld) {
  auto first = openExclusively("Lock");
  const Kv::Ptr<iFile> second = first;
  first.reset();
  EXPECT_FALSE(openExclusively("Lock"));
}

TEST_P(FileManagerContract, OneHeldFileDoesNotHinderAnother) {
  const auto a = openExclusively("a.lck");
  const auto b = openExclusively("b.lck");
  EXPECT_TRUE(a);
  EXPECT_TRUE(b);
}

TEST_P(FileManagerContract, AnExclusiveOpenTruncatesNothing) {
  ASSERT_TRUE(write("a", "content"));
  EXPECT_TRUE(openExclusively("a"));
  EXPECT_EQ(read("a"), "content");
}

TEST_P(FileManagerContract, OpensThatShareDoNotHinderEachOther) {
  ASSERT_TRUE(write("a", "x"));
  const auto reader = open("a", eFileRead, eFileOpenExisting, eFileShareRead);
  const auto writer = open("a", eFileReadWrite, eFileReplace, eFileShareWrite);
  const auto another = open("a", eFileRead, eFileOpenExisting, eFileShareRead);
  EXPECT_TRUE(reader && writer && another);
}

TEST_P(FileManagerContract, AReplacingOpenLeavesExactlyWhatWasWritten) {
  ASSERT_TRUE(write("a", "a long content"));
  EXPECT_TRUE(write("a", "short"));
  EXPECT_EQ(read("a"), "short");
  EXPECT_TRUE(write("a", ""));
  EXPECT_EQ(read("a"), "");
}

TEST_P(FileManagerContract, LaterWritesOfAReplacingOpenGoOnBehindTheFirst) {
  ASSERT_TRUE(write("a", "a long content"));
  const auto file = open("a", eFileReadWrite, eFileReplace, eFileShareWrite);
  ASSERT_TRUE(file && file->write("on", 2) && file->write("e two", 5));
  EXPECT_EQ(read("a"), "one two");
}

TEST_P(FileManagerContract, AReplacingOpenWithoutAWriteKeepsTheContent) {
  ASSERT_TRUE(write("a", "content"));
  EXPECT_TRUE(open("a", eFileReadWrite, eFileReplace, eFileShareWrite));
  EXPECT_EQ(read("a"), "content");
}

TEST_P(FileManagerContract, ACreatingOpenKeepsTheContent) {
  ASSERT_TRUE(write("a", "content"));
  EXPECT_TRUE(open("a", eFileReadWrite, eFileCreate, eFileShareNone));
  EXPECT_EQ(read("a"), "content");
}

TEST_P(FileManagerContract, AReadGivesAtMostWhatWasAskedForAndGoesOnFromThere) {
  ASSERT_TRUE(write("a", "abcdef"));
  const auto file = open("a", eFileRead, eFileOpenExisting, eFileShareRead);
  char bytes[8] = {};
  EXPECT_EQ(file->read(bytes, 4), 4U);
  EXPECT_STREQ(bytes, "abcd");
  EXPECT_EQ(file->read(bytes, 8), 2U);
  EXPECT_EQ(file->read(bytes, 8), 0U);
  EXPECT_EQ(file->size(), 6U);
}

TEST_P(FileManagerContract, ARemovedFileIsGone) {
  ASSERT_TRUE(write("a", "x"));
  EXPECT_TRUE(files().removeFile(at("a")));
  EXPECT_EQ(files().lastError(), eFileError::eNone);
  EXPECT_FALSE(exists("a"));
}

TEST_P(FileManagerContract, RemovingWhatIsNotThereSucceeds) {
  EXPECT_TRUE(files().removeFile(at("a")));
}

TEST_P(FileManagerContract, AHeldFileIsNotRemoved) {
  auto holder = openExclusively("Lock");
  EXPECT_FALSE(files().removeFile(at("Lock")));
  EXPECT_EQ(files().lastError(), eFileError::eHeld);
  holder.reset();
  EXPECT_TRUE(exists("Lock"));
  EXPECT_TRUE(files().removeFile(at("Lock")));
}

TEST_P(FileManagerContract, AListingHoldsTheNamesThatMatch) {
  for (const char* const name : {"ANNA.cli", "BOB.cli", "BOB.cli.old", "cli", "x.clip"}) {
    ASSERT_TRUE(write(name, "12345")) << name;
  }
  struct Row {
    std::string pattern;
    std::size_t count;
  };
  for (const Row& row : std::vector<Row>{{"*.cli", 2},
                                         {"*", 5},
                                         {"B*", 2},
                                         {"*B*.c*i*", 2},
                                         {"BOB.cli", 1},
                                         {"bob.cli", 0},
                                         {"?OB.cli", 0},
                                         {"*.cl", 0},
                                         {"**.cli", 2}}) {
    EXPECT_EQ(count(row.pattern), row.count) << row.pattern;
  }
}

TEST_P(FileManagerContract, AListingIsAppendedWithSizesOnlyWhereAskedFor) {
  ASSERT_TRUE(write("ANNA.cli", "12345"));
  Vector<iFileManager::DirectoryItem> items(1);
  ASSERT_TRUE(files().listDirectory(at("*.cli"), iFileManager::eListFiles, 0, items));
  ASSERT_TRUE(files().listDirectory(at("*.cli"), iFileManager::eListFiles, 1, items));
  ASSERT_EQ(items.size(), 3U);
  EXPECT_EQ(items[1].name, L"ANNA.cli");
  EXPECT_EQ(items[1].size, 0U);
  EXPECT_EQ(items[2].size, 5U);
}

TEST_P(FileManagerContract, AMarkerExistsAfterEitherMarkAndKeepsItsContent) {
  EXPECT_TRUE(files().markFile(at("ANNA.cli"), iFileManager::eMarkPresent));
  EXPECT_TRUE(files().markFile(at("BOB.cli"), iFileManager::eMarkLeft));
  EXPECT_EQ(count("*.cli"), 2U);
  ASSERT_TRUE(write("ANNA.cli", "note"));
  EXPECT_TRUE(files().markFile(at("ANNA.cli"), iFileManager::eMarkLeft));
  EXPECT_TRUE(files().markFile(at("ANNA.cli"), iFileManager::eMarkPresent));
  EXPECT_EQ(read("ANNA.cli"), "note");
}

TEST_P(FileManagerContract, NamesMayHoldWhatPeopleType) {
  for (const std::string& name : std::vector<std::string>{
           "with blanks.lck", "M\xC3\xBCller \xE2\x82\xAC.lck", "\xF0\x9F\x98\x80.inf", "a'b\"c\\d",
           "*.cli", "bytes \xFF\xC3.lck", std::string(255, 'x')}) {
    EXPECT_TRUE(openExclusively(name)) << name;
    ASSERT_TRUE(write(name, name)) << name;
    EXPECT_EQ(read(name), name);
    EXPECT_TRUE(files().removeFile(at(name))) << name;
    EXPECT_FALSE(exists(name)) << name;
  }
}

}  // namespace korvel
