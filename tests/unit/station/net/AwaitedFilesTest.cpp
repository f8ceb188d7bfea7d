#include "station/net/DeliveryLanes.h"

#include <gtest/gtest.h>

#include <fstream>
#include <vector>

#include "tests/fakes/ScratchFolder.h"
#include "tests/support/BecomesTrue.h"

using namespace korvel;

namespace {

using Texts = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

constexpr DeliveryLanes::Source kAnnaAway{Ipv4{0x0A000001}, 0};
constexpr DeliveryLanes::Source kStrangerAway{Ipv4{0x0A000002}, 0};

/// Edits that are announced await a file of their cookie's name; owners of "E404" are dropped.
class AwaitedFilesTest : public testing::Test {
 protected:
  static ReceivedMessage message(int type, const std::string& cookie,
                                 const std::string& data = {}) {
    std::string text;
    for (const std::string& field :
         {std::string("d"), std::to_string(type), std::string("P0001"), cookie, data}) {
      text += field + kFieldSeparator;
    }
    return receivedMessage(text);
  }

  [[nodiscard]] MessageGate judge(const ReceivedMessage& message) const {
    const MessageFields& fields = message.fields;
    if (fields.type == MessageType::eEditCreated) {
      return {MessageGate::eAwaitFile, folder_ / fields.cookie};
    }
    return {fields.cookie == "E404" ? MessageGate::eDrop : MessageGate::eDeliver, {}};
  }

  void deliver(const ReceivedMessage& message, AwaitedFiles::Waited waited) {
    const bool isWaited = waited == AwaitedFiles::Waited::eYes;
    delivered_.push_back(message.fields.typeName + " " + message.fields.cookie +
                         (isWaited ? " waited" : ""));
  }

  /// As many as are held of one source: edits E00000, E00001, ... without a file.
  void takeAsManyAsAreHeld(const DeliveryLanes::Source& source, std::size_t heldBefore = 0) {
    for (std::size_t each = 0; each < AwaitedFiles::kMaxOfSource - heldBefore; ++each) {
      files_->take(source, message(14, "E0000" + std::to_string(each)));
    }
    ASSERT_TRUE(delivered_.empty());
  }

  bool delivers(std::size_t count) {
    return becomesTrue([&] {
      hostThread_.runPending();
      return delivered_.size() >= count;
    });
  }

  void write(const std::string& cookie) { std::ofstream(folder_ / cookie) << "x"; }

  ScratchFolder folder_;
  HostThread hostThread_;
  Texts delivered_;
  std::shared_ptr<AwaitedFiles> files_ = std::make_shared<AwaitedFiles>(
      hostThread_, [this](const ReceivedMessage& each) { return judge(each); },
      [this](const ReceivedMessage& each, AwaitedFiles::Waited waited) { deliver(each, waited); });
};

TEST_F(AwaitedFilesTest, AFileThatIsThereIsNotAwaited) {
  write("E0001");
  files_->take(kAnnaAway, message(14, "E0001"));
  EXPECT_EQ(delivered_, Texts{"EditCreated E0001"});
}

TEST_F(AwaitedFilesTest, AMessageIsHeldUntilItsFileComes) {
  files_->take(kAnnaAway, message(14, "E0001"));
  EXPECT_EQ(files_->held(), 1u);
  write("E0001");
  ASSERT_TRUE(delivers(1));
  EXPECT_EQ(delivered_, Texts{"EditCreated E0001"});
  EXPECT_EQ(files_->held(), 0u);
}

TEST_F(AwaitedFilesTest, AHundredAndTwentyWithoutAFileDelayNoOther) {
  write("E0001");
  const auto start = Clock::now();
  for (int each = 0; each < 120; ++each) {
    files_->take(kStrangerAway, message(14, "E00" + std::to_string(100 + each)));
  }
  files_->take(kAnnaAway, message(14, "E0001"));
  // What no longer found room was given to the plug-in at once, as waited for.
  ASSERT_EQ(delivered_.size(), 120 - AwaitedFiles::kMaxOfSource + 1);
  EXPECT_EQ(delivered_.back(), "EditCreated E0001");
  ASSERT_TRUE(delivers(121));
  EXPECT_GE(Clock::now() - start, AwaitedFiles::kLongest);
  EXPECT_EQ(delivered_.back(), "EditCreated E00163 waited");
  EXPECT_EQ(files_->held(), 0u);
}

TEST_F(AwaitedFilesTest, ALaterMessageAboutTheObjectStaysBehind) {
  files_->take(kAnnaAway, message(14, "E0001"));
  files_->take(kAnnaAway, message(2, "E0001"));
  files_->take(kAnnaAway, message(2, "E0002"));
  EXPECT_EQ(delivered_, Texts{"EditSaved E0002"});
  write("E0001");
  ASSERT_TRUE(delivers(3));
  EXPECT_EQ(delivered_, (Texts{"EditSaved E0002", "EditCreated E0001", "EditSaved E0001"}));
}

TEST_F(AwaitedFilesTest, InAllNoMoreThan256AreHeld) {
  for (std::uint32_t each = 0; each < 1000; ++each) {
    files_->take({Ipv4{0x0B000000 + each}, 0}, message(14, "E0" + std::to_string(1000 + each)));
    ASSERT_LE(files_->held(), AwaitedFiles::kMaxInAll);
  }
  EXPECT_EQ(delivered_.size(), 1000 - AwaitedFiles::kMaxInAll);
  ASSERT_TRUE(delivers(1000));
}

TEST_F(AwaitedFilesTest, WithoutRoomTheOrderOfAnObjectsMessagesStays) {
  files_->take(kAnnaAway, message(14, "E0001"));
  files_->take(kAnnaAway, message(2, "E0001"));
  takeAsManyAsAreHeld(kAnnaAway, 2);
  files_->take(kAnnaAway, message(3, "E0001"));
  EXPECT_EQ(delivered_,
            (Texts{"EditCreated E0001 waited", "EditSaved E0001", "EditDeleted E0001"}));
  EXPECT_EQ(files_->held(), AwaitedFiles::kMaxOfSource - 2);
}

TEST_F(AwaitedFilesTest, AMessageThatAwaitsNoFileIsNeverDeliveredAsWaitedFor) {
  files_->take(kAnnaAway, message(14, "E0001"));
  takeAsManyAsAreHeld(kStrangerAway);
  files_->take(kStrangerAway, message(2, "E0001"));
  EXPECT_EQ(delivered_, Texts{"EditSaved E0001"});
}

TEST_F(AwaitedFilesTest, AStrangerWithoutRoomHurriesNoMessageOfAnother) {
  files_->take(kAnnaAway, message(14, "E0001"));
  files_->take(kStrangerAway, message(2, "E0001"));
  files_->take(kAnnaAway, message(2, "E0001"));
  takeAsManyAsAreHeld(kStrangerAway, 1);
  files_->take(kStrangerAway, message(15, "E0001"));
  EXPECT_EQ(delivered_, Texts{"EditSaved E0001"});
  write("E0001");
  ASSERT_TRUE(delivers(4));
  EXPECT_EQ(delivered_, (Texts{"EditSaved E0001", "EditCreated E0001", "EditSaved E0001",
                               "FilterModification E0001"}));
}

TEST_F(AwaitedFilesTest, WhatAwaitsNothingFollowsAtOnceWhenTheMessageBeforeItIsGone) {
  files_->take(kStrangerAway, message(14, "E0001"));
  files_->take(kAnnaAway, message(2, "E0001"));
  takeAsManyAsAreHeld(kStrangerAway, 1);
  files_->take(kStrangerAway, message(3, "E0001"));
  EXPECT_EQ(delivered_,
            (Texts{"EditCreated E0001 waited", "EditSaved E0001", "EditDeleted E0001"}));
}

TEST_F(AwaitedFilesTest, AMessageAboutNothingThatThereIsIsDropped) {
  files_->take(kStrangerAway, message(5, "E404", "BOB"));
  hostThread_.runPending();
  EXPECT_EQ(delivered_, Texts{});
}

TEST_F(AwaitedFilesTest, NothingIsDeliveredOnceItIsGone) {
  files_->take(kAnnaAway, message(14, "E0001"));
  files_.reset();
  write("E0001");
  hostThread_.runPending();
  EXPECT_EQ(delivered_, Texts{});
}

}  // namespace
