#include "station/seal/Seals.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/fakes/ScratchFolder.h"
#include "tests/support/RecordedEvents.h"

namespace korvel {

namespace {

namespace fs = std::filesystem;

using Verdict = Seals::Verdict;

constexpr std::int64_t kNow = 1'700'000'000'000;

KeyRing ringOfOne() {
  KeyRing ring;
  EXPECT_TRUE(ring.add());
  return ring;
}

/// A datagram as a station would send it now, with what is changed of it.
std::string sealedNow(const KeyRing& ring, std::string_view text, Seal seal) {
  if (seal.time == 0) seal.time = kNow;
  return sealed(text, seal, *ring.used());
}

Seal numbered(std::uint64_t sequence, std::uint64_t boot = 7) {
  Seal seal;
  seal.sender = 3;
  seal.boot = boot;
  seal.sequence = sequence;
  return seal;
}

class SealsTest : public testing::Test {
 protected:
  Verdict verdict(const std::string& datagram, std::int64_t now = kNow) {
    return seals_.judge(datagram, now).verdict;
  }
  Verdict heard(std::uint64_t sequence, std::uint64_t boot = 7) {
    return verdict(sealedNow(ring_, "words", numbered(sequence, boot)));
  }

  const KeyRing ring_ = ringOfOne();
  Seals seals_{SealPolicy::eAccept, ring_, 1};
};

TEST_F(SealsTest, APlainReceiverEndsTheTextWhereTheSealBegins) {
  const std::string datagram = sealedNow(ring_,
                                         "d\xAC"
                                         "10\xAC",
                                         numbered(1));
  EXPECT_EQ(datagram.size(), 5 + Seal::kBytes);
  EXPECT_EQ(std::string(datagram.c_str()),
            "d\xAC"
            "10\xAC");
}

TEST_F(SealsTest, WhatWasSealedIsReadBack) {
  const Seal said = numbered(0x0102030405060708, 0xFFFFFFFFFFFFFFFF);
  const std::string datagram = sealedNow(ring_, "words", said);
  const SealedText parts = takeSealApart(datagram);
  ASSERT_TRUE(parts.seal);
  EXPECT_EQ(parts.text, "words");
  EXPECT_EQ(parts.seal->sequence, said.sequence);
  EXPECT_EQ(parts.seal->boot, said.boot);
  EXPECT_EQ(parts.seal->sender, 3u);
  EXPECT_EQ(parts.seal->time, kNow);
  EXPECT_EQ(parts.seal->keyText(), ring_.keys().front().idText());
}

TEST_F(SealsTest, EachChangedByteOfADatagramIsNoticed) {
  const std::string datagram = sealedNow(ring_, "words", numbered(1));
  for (std::size_t at = 0; at < datagram.size(); ++at) {
    for (const int bit : {1, 0x80}) {
      std::string changed = datagram;
      changed[at] = static_cast<char>(changed[at] ^ bit);
      EXPECT_NE(verdict(changed), Verdict::eSealed) << at;
    }
  }
  EXPECT_EQ(verdict(datagram), Verdict::eSealed);
}

TEST_F(SealsTest, WordsUnderAnothersSealAreForged) {
  const std::string datagram = sealedNow(ring_, "words", numbered(1));
  const std::string seal = datagram.substr(5);
  EXPECT_EQ(verdict("other" + seal), Verdict::eForged);
  EXPECT_EQ(verdict(seal), Verdict::eForged);
}

TEST_F(SealsTest, AKeyThatIsNotKnownVouchesForNothing) {
  const KeyRing others = ringOfOne();
  EXPECT_EQ(verdict(sealedNow(others, "words", numbered(1))), Verdict::eUnsealed);
  Seals strict(SealPolicy::eRequire, ring_, 1);
  EXPECT_EQ(strict.judge(sealedNow(others, "words", numbered(1)), kNow).verdict, Verdict::eRefused);
  EXPECT_EQ(strict.judge("words", kNow).verdict, Verdict::eRefused);
  EXPECT_EQ(strict.judge(sealedNow(ring_, "words", numbered(1)), kNow).verdict, Verdict::eSealed);
}

TEST_F(SealsTest, NothingIsTakenTwice) {
  EXPECT_EQ(heard(5), Verdict::eSealed);
  EXPECT_EQ(heard(5), Verdict::eRepeated);
  EXPECT_EQ(heard(3), Verdict::eSealed) << "overtaken, and new";
  EXPECT_EQ(heard(3), Verdict::eRepeated);
  EXPECT_EQ(heard(5 + ReplayWindow::kWidth), Verdict::eSealed);
  EXPECT_EQ(heard(5), Verdict::eRepeated) << "too old to tell";
  EXPECT_EQ(heard(4 + ReplayWindow::kWidth), Verdict::eSealed);
  EXPECT_EQ(heard(1'000'000), Verdict::eSealed);
  EXPECT_EQ(heard(1'000'000 - ReplayWindow::kWidth + 1), Verdict::eSealed);
}

TEST_F(SealsTest, EachStartOfAStationHasNumbersOfItsOwn) {
  EXPECT_EQ(heard(1, 7), Verdict::eSealed);
  EXPECT_EQ(heard(1, 8), Verdict::eSealed);
  EXPECT_EQ(heard(1, 7), Verdict::eRepeated);
}

TEST_F(SealsTest, ARecordingOfAnEarlierStartIsNotTakenForSealed) {
  const std::string recording = sealedNow(ring_, "words", numbered(1));
  const std::int64_t later = kNow + ReplayWindow::kTolerance + 1;
  EXPECT_EQ(verdict(recording, later), Verdict::eUnsealed);
  EXPECT_EQ(verdict(recording, kNow - ReplayWindow::kTolerance - 1), Verdict::eUnsealed);
  EXPECT_EQ(verdict(recording, kNow + ReplayWindow::kTolerance), Verdict::eSealed);
  EXPECT_EQ(verdict(sealedNow(ring_, "more", numbered(2)), later), Verdict::eSealed)
      << "of a start that is known, whatever the clock";
  Seals strict(SealPolicy::eRequire, ring_, 1);
  EXPECT_EQ(strict.judge(recording, later).verdict, Verdict::eRefused);
}

TEST_F(SealsTest, VeryManyStartsCostBoundedMemoryAndTheLongestUnheardGoesFirst) {
  for (std::uint64_t boot = 0; boot <= ReplayWindow::kMostBoots; ++boot) {
    const auto at = kNow + static_cast<std::int64_t>(boot % 1000);
    EXPECT_EQ(verdict(sealedNow(ring_, "w", numbered(1, boot)), at), Verdict::eSealed);
  }
  EXPECT_EQ(heard(1, ReplayWindow::kMostBoots), Verdict::eRepeated);
  EXPECT_EQ(heard(1, 0), Verdict::eSealed) << "forgotten, and of now";
}

TEST_F(SealsTest, AStationSealsWithTheUsedKeyAndNumbersWhatItSends) {
  Seals other(SealPolicy::eRequire, ring_, 2);
  const std::int64_t now = millisecondsNow();
  const std::string first = seals_.outgoing("one");
  const std::string second = seals_.outgoing("one");
  EXPECT_NE(first, second);
  EXPECT_EQ(other.judge(first, now).verdict, Verdict::eSealed);
  EXPECT_EQ(other.judge(second, now).text, "one");
  EXPECT_EQ(Seals(SealPolicy::eOff, ring_, 2).outgoing("one"), "one");
  EXPECT_EQ(Seals(SealPolicy::eRequire, KeyRing(), 2).outgoing("one"), "one");
}

TEST_F(SealsTest, WhereSealsAreOffTheyAreTakenOffAndNotLookedAt) {
  Seals off(SealPolicy::eOff, ring_, 1);
  const std::string datagram = sealedNow(ringOfOne(), "words", numbered(1));
  const auto judged = off.judge(datagram, kNow);
  EXPECT_EQ(judged.verdict, Verdict::eUnsealed);
  EXPECT_EQ(judged.text, "words");
  EXPECT_FALSE(off.marksUnsealed());
  EXPECT_TRUE(seals_.marksUnsealed());
  EXPECT_FALSE(Seals(SealPolicy::eAccept, KeyRing(), 1).marksUnsealed());
}

class KeyRingTest : public testing::Test {
 protected:
  [[nodiscard]] std::string path() const { return scratch_ / KeyRing::kFile; }
  [[nodiscard]] std::string problemOf(const std::string& bytes) const {
    std::ofstream(path()) << bytes;
    const auto ring = KeyRing::read(scratch_.path());
    return ring ? std::string() : ring.error().message;
  }

  ScratchFolder scratch_;
};

TEST_F(KeyRingTest, ARotationAddsUsesAndRemoves) {
  KeyRing ring;
  const auto first = ring.add();
  const auto second = ring.add();
  ASSERT_TRUE(first && second);
  EXPECT_EQ(ring.used()->idText(), *first) << "the first is used at once, the next is not";
  EXPECT_FALSE(ring.remove(*first, false)) << "in use";
  EXPECT_TRUE(ring.use(second->substr(0, 6)));
  EXPECT_EQ(ring.used()->idText(), *second);
  EXPECT_TRUE(ring.remove(*first, false));
  EXPECT_TRUE(ring.remove(*second, true));
  EXPECT_TRUE(ring.isEmpty());
  EXPECT_FALSE(ring.use("ab"));
  EXPECT_FALSE(ring.use(""));
}

TEST_F(KeyRingTest, TheFileIsForItsOwnerAndTheGroupAlone) {
  KeyRing ring;
  EXPECT_TRUE(ring.add());
  ASSERT_TRUE(ring.write(scratch_.path()));
  struct stat status {};
  ASSERT_EQ(::stat(path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640u);
  const auto again = KeyRing::read(scratch_.path());
  ASSERT_TRUE(again);
  EXPECT_EQ(again->keys().front().bytes, ring.keys().front().bytes);
  EXPECT_TRUE(again->used());
}

TEST_F(KeyRingTest, NoFileIsNoKeysAndABrokenOneIsRefusedWithItsName) {
  const auto none = KeyRing::read(scratch_.path());
  ASSERT_TRUE(none);
  EXPECT_TRUE(none->isEmpty());
  for (
      const std::string bytes :
      {"", "{", "[]", R"({"version": 2, "keys": []})", R"({"version": 1, "keys": [{"key": "12"}]})",
       R"({"version": 1, "keys": [{"key": "zz34567890123456789012345678901234567890123456789012345678901234"}]})"}) {
    EXPECT_NE(problemOf(bytes).find(KeyRing::kFile), std::string::npos) << bytes;
  }
  fs::remove(path());
  fs::create_directory(path());
  EXPECT_FALSE(KeyRing::read(scratch_.path()));
}

TEST_F(KeyRingTest, MoreKeysThanARingMayHoldAreRefused) {
  KeyRing ring;
  for (std::size_t i = 0; i < KeyRing::kMostKeys; ++i) EXPECT_TRUE(ring.add());
  EXPECT_FALSE(ring.add());
}

// The ring is looked at every few seconds.
TEST_F(KeyRingTest, AStationFollowsTheFileWithoutARestart) {
  RecordedEvents events;
  Seals seals(SealPolicy::eAccept, scratch_.path(), 1);
  EXPECT_EQ(seals.outgoing("one"), "one");
  KeyRing ring;
  EXPECT_TRUE(ring.add());
  ASSERT_TRUE(ring.write(scratch_.path()));
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
  while (seals.outgoing("one") == "one" && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  EXPECT_NE(seals.outgoing("one"), "one");
  std::ofstream(path()) << "broken";
  while (!events.loggedThat(KeyRing::kFile) && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  EXPECT_NE(seals.outgoing("one"), "one") << "the keys known before stay";
}

TEST(ImpostorsTest, WhoSealsIsTheOneWhoIsNamed) {
  Impostors impostors;
  for (int times = 0; times < 3; ++times) {
    EXPECT_EQ(impostors.note("ANNA", 1), "");
    EXPECT_EQ(impostors.note("BEN", 2), "");
  }
}

TEST(ImpostorsTest, OfWhoNeverSealedNothingIsKnown) {
  Impostors impostors;
  EXPECT_EQ(impostors.note("ANNA", 0), "");
  EXPECT_EQ(impostors.note("ANNA", 1), "") << "she seals from now on";
  EXPECT_EQ(impostors.note("", 1), "") << "a message that names nobody";
  EXPECT_EQ(impostors.note("", 2), "");
}

TEST(ImpostorsTest, AMessageWithoutASealInTheNameOfOneWhoSealsIsToldOnce) {
  Impostors impostors;
  impostors.note("ANNA", 1);
  EXPECT_NE(impostors.note("ANNA", 0).find("\"ANNA\" bears no seal"), std::string::npos);
  EXPECT_EQ(impostors.note("ANNA", 0), "");
  EXPECT_EQ(impostors.note("ANNA", 1), "");
}

TEST(ImpostorsTest, ANameFromTwoSendersIsToldOnce) {
  Impostors impostors;
  impostors.note("ANNA", 1);
  EXPECT_NE(impostors.note("ANNA", 2).find("come from two stations"), std::string::npos);
  EXPECT_EQ(impostors.note("ANNA", 2), "");
  EXPECT_EQ(impostors.note("ANNA", 1), "");
}

TEST(ImpostorsTest, InventedNamesFillNoMemoryAndHideNoKnownOne) {
  Impostors impostors;
  impostors.note("ANNA", 1);
  for (std::size_t i = 0; i < 2 * Impostors::kMostNames; ++i) {
    EXPECT_EQ(impostors.note("user " + std::to_string(i), 2), "");
  }
  EXPECT_NE(impostors.note("ANNA", 2), "");
  EXPECT_EQ(impostors.note("user " + std::to_string(2 * Impostors::kMostNames - 1), 0), "")
      << "it was not remembered";
}

}  // namespace

}  // namespace korvel
