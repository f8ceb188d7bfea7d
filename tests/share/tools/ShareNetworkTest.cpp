#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <sstream>

#include "station/base/Json.h"
#include "tests/fakes/ScratchFolder.h"
#include "tests/support/LoopbackSender.h"
#include "tests/support/ToolRun.h"

using namespace korvel;

// monitor, record and replay, as programs, on loopback.

namespace {

/// A socket at a port of its own, as a program has it that shares its port or not.
class PortHolder {
 public:
  enum class Sharing { eShares, eKeeps };

  explicit PortHolder(Sharing sharing, int port = 0)
      : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const int on = sharing == Sharing::eShares ? 1 : 0;
    ::setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_port = htons(static_cast<std::uint16_t>(port));
    EXPECT_EQ(::bind(socket_, reinterpret_cast<sockaddr*>(&own), sizeof own), 0);
    socklen_t size = sizeof own;
    ::getsockname(socket_, reinterpret_cast<sockaddr*>(&own), &size);
    port_ = ntohs(own.sin_port);
  }
  PortHolder(const PortHolder&) = delete;
  PortHolder& operator=(const PortHolder&) = delete;
  ~PortHolder() { ::close(socket_); }

  [[nodiscard]] int port() const { return port_; }
  [[nodiscard]] std::string portText() const { return std::to_string(port_); }

  /// The next datagram's text, with "|" for each separator; "nothing" where none comes.
  [[nodiscard]] std::string heard(int milliseconds = 20'000) const {
    pollfd waitFor{socket_, POLLIN, 0};
    if (::poll(&waitFor, 1, milliseconds) != 1) return "nothing";
    char bytes[65'536];
    const ssize_t count = ::recv(socket_, bytes, sizeof bytes, 0);
    std::string text(bytes, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    std::replace(text.begin(), text.end(), '\xAC', '|');
    return text;
  }

 private:
  int socket_;
  int port_ = 0;
};

std::vector<JsonValue> objectsIn(const std::string& lines) {
  std::vector<JsonValue> objects;
  std::istringstream stream(lines);
  for (std::string line; std::getline(stream, line);) {
    auto object = parseJson(line);
    EXPECT_TRUE(object) << line;
    if (object) objects.push_back(std::move(*object));
  }
  return objects;
}

class ShareNetworkTest : public testing::Test {
 protected:
  void say(const std::string& number) const {
    ASSERT_TRUE(sender_.send({"d", "10", "P0001", "ANN", "<All>", number}));
  }

  /// Records messages "0" to "4", then asks the recorder to end so.
  ToolRun recordFive(const std::string& file, int endedBy) const {
    BackgroundTool tool({"record", file, "--port", station_.portText()});
    EXPECT_TRUE(tool.hasWritten("recording port")) << "it does not record";
    for (int number = 0; number < 5; ++number) say(std::to_string(number));
    // Whatever is in the file by then: the last message is there once the file no longer grows.
    std::string before;
    for (int tries = 0; tries < 1000 && contentOf(file).find("<All>\xAC"
                                                             "4\xAC") == before.npos;
         ++tries)
      ::usleep(10'000);
    tool.signal(endedBy);
    return tool.finish();
  }

  TestFolder folder_;
  PortHolder station_{PortHolder::Sharing::eShares};  ///< in a station's place
  LoopbackSender sender_{station_.port()};
};

TEST_F(ShareNetworkTest, MonitorShowsMessagesAndCountsThemAtTheEnd) {
  BackgroundTool tool({"monitor", "--port", station_.portText(), "--type", "user-message"});
  ASSERT_TRUE(tool.hasWritten("object"));
  ASSERT_TRUE(sender_.send({"d", "2", "P0001", "E0001"}));
  say("hello \x1b[2J");
  ASSERT_TRUE(tool.hasWritten("P0001"));
  tool.signal(SIGINT);
  const ToolRun run = tool.finish();
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("ANN to <All>: hello ?[2J\n"), std::string::npos) << run.out;
  EXPECT_EQ(run.out.find("EditSaved"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("1 message of 1 sender in "), std::string::npos) << run.out;
  EXPECT_EQ(run.out.find('\x1b'), std::string::npos) << run.out;
}

TEST_F(ShareNetworkTest, MonitorShowsTheNamesOfAProjectsDirectoryBesideCookies) {
  const TestFolder projects;
  static_cast<void>(projects.write("P0001/project.json", R"({"name":"Feature"})"));
  static_cast<void>(projects.write("P0001/E0001.otio",
                                   R"({"OTIO_SCHEMA":"Timeline.1","name":"Harbour at dawn"})"));
  BackgroundTool tool({"monitor", "--port", station_.portText(), "--projects", projects.path()});
  ASSERT_TRUE(tool.hasWritten("object"));
  ASSERT_TRUE(sender_.send({"d", "2", "P0001", "E0001"}));
  ASSERT_TRUE(sender_.send({"d", "2", "P0001", "E0002"}));
  ASSERT_TRUE(tool.hasWritten("  E0002\n"));
  // Saved under another name a moment later.
  static_cast<void>(projects.write("P0001/E0001.otio",
                                   R"({"OTIO_SCHEMA":"Timeline.1","name":"Harbour at noon"})"));
  ASSERT_TRUE(sender_.send({"d", "2", "P0001", "E0001"}));
  EXPECT_TRUE(tool.hasWritten("  Harbour at noon (E0001)\n"));
  tool.signal(SIGINT);
  const ToolRun run = tool.finish();
  EXPECT_NE(run.out.find("Feature (P0001)"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("  Harbour at dawn (E0001)\n"), std::string::npos) << run.out;
}

TEST_F(ShareNetworkTest, MonitorTakesNoDatagramFromAStationThatWasThereBeforeOrComesLater) {
  BackgroundTool tool({"monitor", "--port", station_.portText()});
  ASSERT_TRUE(tool.hasWritten("object"));
  const LoopbackSender toOne(station_.port(), "127.0.0.1");
  for (int number = 0; number < 20; ++number) {
    ASSERT_TRUE(toOne.send({"d", "2", "P0001", "E0001"}));
    EXPECT_EQ(station_.heard(), "d|2|P0001|E0001|");
  }
  const PortHolder later(PortHolder::Sharing::eShares, station_.port());
  ASSERT_TRUE(toOne.send({"d", "2", "P0001", "E0001"}));
  EXPECT_NE(station_.heard(0) + later.heard(0), "nothingnothing");
  say("last");
  ASSERT_TRUE(tool.hasWritten("last"));
  tool.signal(SIGINT);
  EXPECT_NE(tool.finish().out.find("\n1 message of 1 sender"), std::string::npos);
}

TEST_F(ShareNetworkTest, MonitorSaysExactlyHowManyItMissed) {
  constexpr int kSent = 4000;
  BackgroundTool tool({"monitor", "--json", "--stats", "--port", station_.portText()});
  ASSERT_TRUE(tool.hasWritten("hearing"));
  tool.signal(SIGSTOP);
  const std::string text(8000, 'x');
  for (int number = 0; number < kSent; ++number) say(text);
  tool.signal(SIGCONT);
  tool.signal(SIGTERM);
  const ToolRun run = tool.finish();
  ASSERT_FALSE(run.out.empty()) << run.err;
  const JsonValue counts = objectsIn(run.out).back();
  EXPECT_GT(counts["missed_by_system"].asLong(), 0) << run.out;
  EXPECT_EQ(counts["messages"].asLong() + counts["missed_by_system"].asLong() +
                counts["missed_by_reader"].asLong(),
            kSent)
      << run.out;
}

TEST_F(ShareNetworkTest, MonitorEndsByItselfAndTellsWhenFewerCame) {
  const ToolRun run =
      runTool({"monitor", "--port", station_.portText(), "--for", "0.1", "--count", "1"});
  EXPECT_EQ(run.status, 1) << run.out;
  EXPECT_NE(run.out.find("0 messages of 0 senders"), std::string::npos) << run.out;
}

TEST(ShareMonitor, CapturesWhereAProgramKeepsThePortToItself) {
  const PortHolder holder(PortHolder::Sharing::eKeeps);
  const int packets = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
  BackgroundTool tool({"monitor", "--port", holder.portText(), "--count", "1", "--for", "20"});
  if (packets < 0) {
    const ToolRun run = tool.finish();
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("is held by a program that does not share it, and packets cannot"),
              run.err.npos)
        << run.err;
    return;
  }
  ::close(packets);
  EXPECT_TRUE(tool.hasWritten("hearing captured packets"));
  ASSERT_TRUE(LoopbackSender(holder.port()).send({"d", "2", "P0001", "E0001"}));
  const ToolRun run = tool.finish();
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("E0001"), std::string::npos) << run.out;
}

TEST_F(ShareNetworkTest, ReplaysWhatWasRecordedInOrder) {
  const std::string file = folder_ / "capture";
  const ToolRun recorded = recordFive(file, SIGINT);
  EXPECT_EQ(recorded.status, 0) << recorded.err;
  EXPECT_NE(recorded.err.find("recorded 5 messages, none missed"), std::string::npos);
  const PortHolder other(PortHolder::Sharing::eShares);
  const ToolRun run = runTool({"replay", file, "--port", other.portText(), "--speed", "max"});
  EXPECT_EQ(run.status, 0) << run.err;
  for (const char* const number : {"0", "1", "2", "3", "4"}) {
    EXPECT_EQ(other.heard(), "d|10|P0001|ANN|<All>|" + std::string(number) + "|");
  }
  EXPECT_EQ(runTool({"record", file, "--for", "1"}).status, 2) << "replaces a file unasked";
}

TEST_F(ShareNetworkTest, ARecordingOfAKilledRecorderCanBeReplayed) {
  const std::string file = folder_ / "capture";
  EXPECT_EQ(recordFive(file, SIGKILL).status, 128 + SIGKILL);
  const ToolRun run = runTool({"replay", file, "--speed", "max", "--port", station_.portText()});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out.rfind("replayed 5 messages to 127.255.255.255", 0), 0u) << run.out;
}

TEST_F(ShareNetworkTest, RecordingToAFullDiskIsToldAndKeepsWhatItHas) {
  const std::string file = folder_ / "capture";
  // A limit on the size of a file stands for the end of the disk: a block of 1 KiB.
  struct rlimit before {};
  ::getrlimit(RLIMIT_FSIZE, &before);
  const struct rlimit small { 1024, before.rlim_max };
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  BackgroundTool tool({"record", file, "--port", station_.portText(), "--for", "20"});
  ::setrlimit(RLIMIT_FSIZE, &before);
  ASSERT_TRUE(tool.hasWritten("recording port"));
  for (int number = 0; number < 20; ++number) say(std::string(50, 'y'));
  const ToolRun run = tool.finish();
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("takes no more (File too large)"), std::string::npos) << run.err;
  const ToolRun replayed =
      runTool({"replay", file, "--speed", "max", "--port", station_.portText()});
  EXPECT_EQ(replayed.status, 0) << replayed.err;
  const auto said = run.err.find("kv-share: recorded ");
  ASSERT_NE(said, run.err.npos) << run.err;
  const int recorded = std::stoi(run.err.substr(said + 19));
  EXPECT_GT(recorded, 2);
  EXPECT_LT(recorded, 20);
  EXPECT_EQ(replayed.out.rfind("replayed " + std::to_string(recorded) + " messages", 0), 0u)
      << replayed.out << run.err;
}

TEST_F(ShareNetworkTest, RecordingToADiskThatIsFullAtOnceIsToldInJsonToo) {
  const ToolRun run =
      runTool({"record", "/dev/full", "--json", "--port", station_.portText(), "--for", "20"});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.out.find("\"messages\":0,"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("\"problem\":\"/dev/full takes no more (No space"), std::string::npos)
      << run.out;
}

TEST_F(ShareNetworkTest, ARecordingThroughANamedPipeWaitsForItsReader) {
  const std::string pipe = folder_ / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  BackgroundTool tool({"record", pipe, "--port", station_.portText(), "--count", "1"});
  BackgroundTool reader({"replay", pipe, "--speed", "max", "--json"});
  ASSERT_TRUE(tool.hasWritten("recording port"));
  say("through the pipe");
  EXPECT_EQ(tool.finish().status, 0);
  const ToolRun read = reader.finish();
  EXPECT_EQ(read.status, 0) << read.err;
  EXPECT_NE(read.out.find("\"messages\":1,"), std::string::npos) << read.out;
}

TEST_F(ShareNetworkTest, AReplayWhoseInputStandsStillIsEndedByOneSignal) {
  const std::string file = folder_ / "capture";
  const std::string pipe = folder_ / "pipe";
  recordFive(file, SIGINT);
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const PortHolder other(PortHolder::Sharing::eShares);
  BackgroundTool tool({"replay", pipe, "--speed", "max", "--port", other.portText()});
  std::ofstream input(pipe, std::ios::binary);
  input << contentOf(file) << std::flush;
  for (int number = 0; number < 5; ++number) EXPECT_NE(other.heard(), "nothing");
  tool.signal(SIGTERM);
  const ToolRun run = tool.finish();
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out.rfind("replayed 5 messages to", 0), 0u) << run.out;
}

TEST(ShareRecord, RefusesWhatItCannotRecordToBeforeItHearsAnything) {
  const TestFolder folder;
  const std::pair<std::vector<std::string>, std::string> rows[] = {
      {{""}, "name a file to record to"},
      {{folder.path()}, "is a folder: name a file in it"},
      {{"-", "--json"}, "--json writes to standard output"},
      {{"x", "--for", "nan"}, "--for: must be a number"},
  };
  for (const auto& [words, why] : rows) {
    std::vector<std::string> all = {"record"};
    all.insert(all.end(), words.begin(), words.end());
    const ToolRun run = runTool(all);
    EXPECT_EQ(run.status, 2) << why;
    EXPECT_NE(run.err.find(why), std::string::npos) << run.err;
  }
}

TEST(ShareReplay, RefusesTimesThatMakeNoSense) {
  for (const char* const option : {"--from", "--to", "--speed", "--loss"}) {
    const ToolRun run = runTool({"replay", "x", option, "nan"});
    EXPECT_EQ(run.status, 2) << option;
    EXPECT_NE(run.err.find(option), std::string::npos) << run.err;
  }
  const ToolRun run = runTool({"replay", "x", "--from", "5", "--to", "2"});
  EXPECT_EQ(run.status, 2);
  EXPECT_NE(run.err.find("--from is behind --to"), std::string::npos) << run.err;
}

TEST(ShareReplay, KeepsToThisMachineUnlessTold) {
  const TestFolder folder;
  const std::string file = folder.write("x", "");
  for (const char* const address : {"10.255.255.255", "255.255.255.255", "239.1.2.3"}) {
    const ToolRun run = runTool({"replay", file, "--send-to", address});
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find(std::string("say --onto ") + address), std::string::npos) << run.err;
  }
}

/// A capture in pcap of two gigabytes, most of it a hole: large packets of zeros, then a message.
std::string largeCapture(const ScratchFolder& folder) {
  constexpr std::uint32_t kPacket = 262'128;
  constexpr std::uint64_t kSize = 2ULL << 30;
  const std::string path = folder / "large";
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  const std::uint32_t head[] = {0xA1B2C3D4, 0x00040002, 0, 0, 262'144, 228};
  EXPECT_EQ(::pwrite(file, head, sizeof head, 0), ssize_t{sizeof head});
  off_t at = sizeof head;
  const std::uint32_t packet[] = {1, 0, kPacket, kPacket};
  for (; static_cast<std::uint64_t>(at) < kSize; at += off_t{sizeof packet} + kPacket) {
    EXPECT_EQ(::pwrite(file, packet, sizeof packet, at), ssize_t{sizeof packet});
  }
  std::string last(28, '\0');
  last[0] = '\x45';
  last[9] = '\x11';
  last[12] = last[16] = '\x7F';
  last[25] = '\x0D';
  last += std::string(
      "d\xAC"
      "2\xAC\xAC",
      5);
  const auto size = static_cast<std::uint32_t>(last.size());
  const std::uint32_t lastHead[] = {1, 0, size, size};
  EXPECT_EQ(::pwrite(file, lastHead, sizeof lastHead, at), ssize_t{sizeof lastHead});
  EXPECT_EQ(::pwrite(file, last.data(), size, at + off_t{sizeof lastHead}), ssize_t{size});
  ::close(file);
  return path;
}

TEST(ShareReplay, ReadsACaptureOfTwoGigabytesWithoutHoldingIt) {
  const ScratchFolder folder("/dev/shm");  // where reading a hole is cheap
  const PortHolder other(PortHolder::Sharing::eShares);
  const std::string file = largeCapture(folder);
  const ToolRun run = runTool({"replay", file, "--port", other.portText()});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out.rfind("replayed 1 message to", 0), 0u) << run.out;
  struct rusage used {};
  ::getrusage(RUSAGE_CHILDREN, &used);
  EXPECT_LT(used.ru_maxrss, 512 * 1024) << "kilobytes held";
}

TEST(ShareReplay, TellsOfACaptureThatIsCutOrOfAnotherProtocol) {
  const TestFolder folder;
  const std::uint32_t head[] = {0xA1B2C3D4, 0x00040002, 0, 0, 65'535, 228};
  const std::string begin(reinterpret_cast<const char*>(head), sizeof head);
  const ToolRun other = runTool({"replay", folder.write("other", begin)});
  EXPECT_EQ(other.status, 1);
  EXPECT_NE(other.err.find("holds no messages of stations, in 0 packets"), std::string::npos);
  const ToolRun cut = runTool({"replay", folder.write("cut", begin + "half")});
  EXPECT_EQ(cut.status, 1);
  EXPECT_NE(cut.err.find("is cut or damaged behind packet 0"), std::string::npos) << cut.err;
}

}  // namespace
