#include "app/base/EventSinks.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <string>
#include <vector>

#include "station/os/SharedFiles.h"
#include "tests/fakes/ScratchFolder.h"
#include "tests/support/BecomesTrue.h"

using namespace korvel;

namespace {

/// Events written to a named pipe that is not read before the test says so.
class EventFileTest : public testing::Test {
 protected:
  EventFileTest() {
    ::signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
    EXPECT_TRUE(file.open(path));
  }

  ~EventFileTest() override {
    if (reader >= 0) ::close(reader);
  }

  void take(const std::string& line) {
    file.take({"log", JsonValue::object({{"time", 7L}}), line, {}});
  }

  /// Reads until this text came; false after minutes.
  bool readsUntil(const std::string& text) {
    if (reader < 0) reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    std::array<char, 65536> block;
    std::size_t from = read.size();
    while (read.find(text, from) == read.npos) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      from = read.size() < text.size() ? 0 : read.size() - text.size();
      pollfd wanted{reader, POLLIN, 0};
      ::poll(&wanted, 1, 100);
      const ssize_t count = ::read(reader, block.data(), block.size());
      if (count > 0) read.append(block.data(), static_cast<std::size_t>(count));
    }
    return true;
  }

  const ScratchFolder folder;
  const std::string path = folder / "pipe";
  std::vector<std::string> told;
  EventFile file{[this](const std::string& text) { told.push_back(text); }};
  int reader = -1;
  std::string read;
};

TEST(EventFile, StopsWhereTheDiskIsNearlyFullAndGoesOnWhenThereIsRoom) {
  static double free = 0.04;
  RotatingFile::setFreePart([](int) { return free; });
  const ScratchFolder folder;
  std::vector<std::string> told;
  EventFile file([&told](const std::string& text) { told.push_back(text); });
  ASSERT_TRUE(file.open(folder / "events"));
  const auto take = [&file](const std::string& line) {
    file.take({"log", JsonValue::object({{"time", 7L}}), line, {}});
  };
  const auto content = [&folder] { return *readListed(folder / "events"); };
  take("{\"lost\":1}");
  take("{\"lost\":2}");
  EXPECT_EQ(content().find("lost"), std::string::npos);
  EXPECT_NE(content().find("The events stop: less than 5 % of the file system"), std::string::npos);
  ASSERT_EQ(told.size(), 1u);
  EXPECT_NE(told[0].find("stop: less than 5 %"), std::string::npos) << told[0];
  free = 0.05;
  EXPECT_TRUE(becomesTrue([&] {
    take("{\"more\":1}");
    return content().find("\"more\"") != std::string::npos;
  }));
  EXPECT_NE(content().find("events are missing here, for want of room."), std::string::npos);
  RotatingFile::setFreePart(nullptr);
}

// Everything that waits is read before more is written. A writer that outruns the reader fills the
// queue anew, and that is rightly told anew.
TEST_F(EventFileTest, EventsThatFoundNoRoomAreToldAtOnceAndInTheirPlace) {
  const std::string line(PipeWriter::kMaxWaiting / 3, 'x');
  take("first");
  take(line);
  take(line);
  EXPECT_TRUE(told.empty());
  take(line);
  take(line);
  ASSERT_EQ(told.size(), 1u);
  EXPECT_NE(told[0].find("Nobody reads the events written to " + path), std::string::npos);

  ASSERT_TRUE(readsUntil(line + "\n" + line + "\n")) << read.size();
  take("last");
  ASSERT_TRUE(readsUntil("\nlast\n")) << read.size();
  const std::string end = read.substr(read.rfind("x\n") + 2);
  EXPECT_NE(end.find("2 events are missing here, since nobody read them."), std::string::npos)
      << end;
  EXPECT_EQ(told.size(), 1u);
}

}  // namespace
