#include "tools/capture/CaptureFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pcap/dlt.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/ToolRun.h"
#include "tools/capture/HeardMessage.h"

using namespace korvel;

namespace {

const std::atomic<bool> kGoesOn{false};

HeardMessage message(std::int64_t time, const std::string& bytes) {
  return {time, {0x7F000001}, 41000, {0x7FFFFFFF}, 27015, 0, bytes};
}

int created(const std::string& path) { return ::open(path.c_str(), O_WRONLY | O_CREAT, 0600); }

/// A capture of two messages, with a field of each size from the padding of a block.
std::string writeCapture(const TestFolder& folder) {
  const std::string path = folder / "capture";
  PcapngWriter writer(created(path), path);
  EXPECT_TRUE(writer.begin("port 27015"));
  EXPECT_TRUE(writer.write(message(1'795'244'996'193'170'297,
                                   "d\xAC"
                                   "2\xAC")));
  EXPECT_TRUE(writer.write(message(1'795'244'997'000'000'001, "x")));
  EXPECT_TRUE(writer.end(2, 0, 1'795'244'998'000'000'000));
  return path;
}

std::vector<std::string> bytesIn(CaptureFile& capture) {
  std::vector<std::string> all;
  while (auto next = capture.next()) all.push_back(next->bytes);
  return all;
}

TEST(CaptureFile, ReadsBackWhatWasWritten) {
  const TestFolder folder;
  auto capture = CaptureFile::open(writeCapture(folder), kGoesOn);
  ASSERT_TRUE(capture) << capture.error().message;
  const auto first = capture->next();
  ASSERT_TRUE(first);
  EXPECT_EQ(first->time, 1'795'244'996'193'170'297);
  EXPECT_EQ(senderText(*first), "127.0.0.1:41000");
  EXPECT_EQ(textOf(first->target), "127.255.255.255");
  EXPECT_EQ(first->port, 27015);
  EXPECT_EQ(first->bytes,
            "d\xAC"
            "2\xAC");
  EXPECT_EQ(bytesIn(*capture), std::vector<std::string>{"x"});
  EXPECT_EQ(capture->problem(), "");
}

TEST(CaptureFile, OfACutFileReadsWhatIsWholeAndTellsTheRest) {
  const TestFolder folder;
  const std::string path = writeCapture(folder);
  const auto whole = std::filesystem::file_size(path);
  bool wasToldOfACut = false;
  for (auto size = whole; size-- > 160;) {
    std::filesystem::resize_file(path, size);
    auto capture = CaptureFile::open(path, kGoesOn);
    if (!capture) continue;
    const auto found = bytesIn(*capture);
    EXPECT_LE(found.size(), 2u) << size;
    if (found.size() == 1 && !capture->problem().empty()) wasToldOfACut = true;
  }
  EXPECT_TRUE(wasToldOfACut);
}

TEST(CaptureFile, ExplainsWhatIsNoCapture) {
  const TestFolder folder;
  const std::pair<std::string, std::string> rows[] = {
      {folder / "nothing", "No such file"},
      {folder.path(), "it is a folder"},
      {folder.write("text", "This is a text and no capture."), "it is no capture"},
      {folder.write("empty", ""), "it is no capture"},
  };
  for (const auto& [path, why] : rows) {
    const auto capture = CaptureFile::open(path, kGoesOn);
    ASSERT_FALSE(capture) << path;
    EXPECT_NE(capture.error().message.find(why), std::string::npos) << capture.error().message;
  }
}

TEST(PcapngWriter, CutsTheBlockThatHasNoRoomAnyMore) {
  const TestFolder folder;
  PcapngWriter nowhere(::open("/dev/full", O_WRONLY), "/dev/full");
  const auto begun = nowhere.begin("port 1");
  ASSERT_FALSE(begun);
  EXPECT_EQ(begun.error().code, ErrorCode::eFull);
  EXPECT_NE(begun.error().message.find("No space left"), std::string::npos);
}

struct FrameRow {
  int link;
  std::string before;
};

TEST(UdpFrame, IsReadBehindEveryHeaderOfALink) {
  const std::string packet = ipv4PacketOf(message(0, "hello"));
  const FrameRow rows[] = {
      {DLT_IPV4, ""},
      {DLT_RAW, ""},
      {DLT_NULL, std::string("\2\0\0\0", 4)},
      {DLT_EN10MB, std::string(12, 'm') + std::string("\x08\0", 2)},
      {DLT_EN10MB, std::string(12, 'm') + std::string("\x81\0\0\5\x08\0", 6)},
      {DLT_LINUX_SLL, std::string(14, 'c') + std::string("\x08\0", 2)},
      {DLT_LINUX_SLL2, std::string("\x08\0", 2) + std::string(18, 'c')},
  };
  for (const FrameRow& row : rows) {
    const auto found = datagramInFrame(row.link, row.before + packet + "trailer");
    ASSERT_TRUE(found) << row.link;
    EXPECT_EQ(found->bytes, "hello") << row.link;
    EXPECT_TRUE(isKnownLink(row.link)) << row.link;
  }
}

TEST(UdpFrame, CutAnywhereIsNoDatagram) {
  const std::string frame =
      std::string(12, 'm') + std::string("\x08\0", 2) + ipv4PacketOf(message(0, "hello"));
  for (std::size_t size = 0; size < frame.size(); ++size) {
    EXPECT_FALSE(datagramInFrame(DLT_EN10MB, frame.substr(0, size))) << size;
  }
}

TEST(UdpFrame, OfAFragmentOrAnotherProtocolIsNone) {
  std::string packet = ipv4PacketOf(message(0, "hello"));
  packet[6] = '\x20';
  EXPECT_FALSE(datagramInFrame(DLT_IPV4, packet));
  EXPECT_TRUE(isFragment(DLT_IPV4, packet));
  packet[6] = '\x40';  // not to be fragmented
  EXPECT_TRUE(datagramInFrame(DLT_IPV4, packet));
  packet[9] = '\x06';
  EXPECT_FALSE(datagramInFrame(DLT_IPV4, packet));
}

}  // namespace
