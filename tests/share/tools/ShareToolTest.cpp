#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "station/base/Json.h"
#include "tests/support/ToolRun.h"

using namespace korvel;

namespace {

std::string wire(std::string text) {
  std::replace(text.begin(), text.end(), '|', '\xAC');
  return text;
}

JsonValue parsed(const std::string& text) {
  auto value = parseJson(text);
  EXPECT_TRUE(value) << text;
  return value ? *value : JsonValue();
}

/// Hears what is broadcast on loopback, on a port of its own.
class Ear {
 public:
  Ear() : socket_(socket(AF_INET, SOCK_DGRAM, 0)) {
    sockaddr_in own{};
    own.sin_family = AF_INET;
    bind(socket_, reinterpret_cast<sockaddr*>(&own), sizeof own);
  }
  Ear(const Ear&) = delete;
  Ear& operator=(const Ear&) = delete;
  ~Ear() { close(socket_); }

  [[nodiscard]] std::string port() const {
    sockaddr_in own{};
    socklen_t size = sizeof own;
    getsockname(socket_, reinterpret_cast<sockaddr*>(&own), &size);
    return std::to_string(ntohs(own.sin_port));
  }

  /// The next datagram, or "nothing" where none comes.
  [[nodiscard]] std::string heard() const {
    char bytes[65'536];
    pollfd waitFor{socket_, POLLIN, 0};
    if (poll(&waitFor, 1, 5000) != 1) return "nothing";
    const ssize_t count = recv(socket_, bytes, sizeof bytes, 0);
    return {bytes, static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
  }

 private:
  int socket_;
};

TEST(ShareTool, DecodesARawDatagramFromStandardInput) {
  const ToolRun run = runTool({"decode"}, wire("d|2|P0001|E0001|"));
  EXPECT_EQ(run.status, 0) << run.err;
  const JsonValue message = parsed(run.out);
  EXPECT_EQ(message["type"].asLong(), 2);
  EXPECT_EQ(message["type_name"].asString(), "EditSaved");
  EXPECT_EQ(message["cookie"].asString(), "E0001");
  EXPECT_TRUE(message["valid"].asBool());
}

TEST(ShareTool, DecodesHexLinesOfAFileAndTellsOfTheInvalidOne) {
  const TestFolder folder;
  const std::string file = folder.write("captured", "64ac32acac4530303031ac\n\n64 AC:39\r\n");
  const ToolRun run = runTool({"decode", "--hex", file});
  EXPECT_EQ(run.status, 1) << run.err;
  ASSERT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 2) << run.out;
  EXPECT_TRUE(parsed(run.out.substr(0, run.out.find('\n')))["valid"].asBool());
  EXPECT_FALSE(parsed(run.out.substr(run.out.find('\n') + 1))["valid"].asBool());
}

TEST(ShareTool, NamesTheLineThatIsNoHexAndGoesOn) {
  const ToolRun run = runTool({"decode", "--hex"}, "64ac3\nzz\n64ac32acac4530303031ac\n");
  EXPECT_EQ(run.status, 2);
  EXPECT_NE(run.err.find("standard input line 1 is not pairs of hex digits"), std::string::npos);
  EXPECT_NE(run.err.find("standard input line 2"), std::string::npos);
  EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 1);
}

TEST(ShareTool, SaysThatAFileCannotBeRead) {
  const ToolRun run = runTool({"decode", "/nowhere/at/all"});
  EXPECT_EQ(run.status, 2);
  EXPECT_NE(run.err.find("/nowhere/at/all cannot be read (No such file"), std::string::npos);
}

struct SendRow {
  std::vector<std::string> words;
  const char* sent;
};

TEST(ShareTool, SendsWhatStationsSendOfEveryType) {
  const SendRow rows[] = {
      {{"1", "--cookie", "E0001", "--data", "1;2;4;0;"}, "d|1|P0001|E0001|1;2;4;0;|"},
      {{"edit-saved", "--cookie", "E0001"}, "d|2|P0001|E0001|"},
      {{"eEditDeleted", "--cookie", "E0001"}, "d|3|P0001|E0001|"},
      {{"4", "--cookie", "E0001"}, "d|4|P0001|E0001|"},
      {{"5", "--cookie", "E0001", "--data", "ANN"}, "d|5|P0001|E0001|ANN|"},
      {{"6", "--cookie", "P0001"}, "d|6|P0001|P0001|"},
      {{"7", "--cookie", "G0001", "--data", "2"}, "d|7|P0001|G0001|2|"},
      {{"8", "--data", "//media/a.mxf"}, "d|8|P0001|//media/a.mxf|"},
      {{"RemoveMaterial", "--data", "//media/a.mxf"}, "d|9|P0001|//media/a.mxf|"},
      {{"10", "--target", "<All>", "--data", "hi you"}, "d|10|P0001|ann|<All>|hi you|"},
      {{"11", "--target", "bob", "--cookie", "G0001"}, "d|11|P0001|ann|bob|G0001|"},
      {{"12", "--target", "bob", "--cookie", "E0001"}, "d|12|P0001|ann|bob|E0001|"},
      {{"13", "--target", "12", "--data", "refresh"}, "d|13|P0001|ann|12|refresh|"},
      {{"14", "--cookie", "E0001"}, "d|14|P0001|E0001|"},
      {{"15", "--cookie", "F0001", "--data", "3"}, "d|15|P0001|F0001|3|"},
  };
  const Ear ear;
  for (const auto& row : rows) {
    std::vector<std::string> words{"send",   "--project", "P0001",     "--source",       "ann",
                                   "--port", ear.port(),  "--send-to", "127.255.255.255"};
    words.insert(words.end(), row.words.begin(), row.words.end());
    const ToolRun run = runTool(words);
    EXPECT_EQ(run.status, 0) << row.sent << run.err;
    EXPECT_EQ(run.out.find("sent "), 0u) << row.sent;
    EXPECT_EQ(ear.heard(), wire(row.sent)) << row.sent;
  }
}

TEST(ShareTool, WarnsOfALetterThatTheWireCutsAndSendsItAllTheSame) {
  const Ear ear;
  const ToolRun run = runTool({"send", "10", "--target", "bob", "--data", "5 \u20AC", "--source",
                               "ann", "--port", ear.port(), "--send-to", "127.255.255.255"});
  EXPECT_EQ(run.status, 0);
  EXPECT_NE(run.err.find("arrives cut there"), std::string::npos) << run.err;
  EXPECT_EQ(ear.heard(), wire("d|10||ann|bob|5 \u20AC|"));
}

struct UsageRow {
  std::vector<std::string> words;
  const char* said;
};

TEST(ShareTool, ExplainsWhatMakesNoSense) {
  const UsageRow rows[] = {
      {{}, "kv-share: a command is required; see kv-share help"},
      {{"dcode"}, "there is no command \"dcode\"; did you mean decode?"},
      {{"send"}, "kv-share: TYPE is required; see kv-share help send"},
      {{"send", "edit-savd"}, "no message type \"edit-savd\"; did you mean edit-saved?"},
      {{"send", "xyzzy"}, "no message type \"xyzzy\"; types are"},
      {{"send", "2"}, "EditSaved needs --cookie"},
      {{"send", "10", "--data", "x"}, "UserMessage needs --target"},
      {{"send", "8"}, "AddMaterial needs --data"},
      {{"send", "2", "--cookie", "nonsense"}, "\"nonsense\" is no cookie"},
      {{"send", "2", "--cookie", "E1234", "--send-to", "nowhere"}, "which is no IPv4 address"},
      {{"send", "2", "--cookie", "E1234", "--port", "0"}, "kv-share: --port"},
      {{"completion", "fish"}, "fish not in"},
      {{"help", "dcode"}, "did you mean decode?"},
  };
  for (const auto& row : rows) {
    const ToolRun run = runTool(row.words);
    EXPECT_EQ(run.status, 2) << row.said;
    EXPECT_NE((run.err + run.out).find(row.said), std::string::npos) << row.said << "\n" << run.err;
  }
}

TEST(ShareTool, HelpShowsACommandAsItsOwnOptionDoes) {
  const ToolRun run = runTool({"help", "send"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, runTool({"send", "--help"}).out);
  EXPECT_NE(run.out.find("--port N"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("(27015 unless given)"), std::string::npos) << run.out;
  EXPECT_EQ(run.out.find(" ...\n"), std::string::npos) << run.out;
  EXPECT_NE(runTool({"help"}).out.find("  decode "), std::string::npos);
}

TEST(ShareTool, TellsItsVersionAsTheStationDoes) {
  const ToolRun run = runTool({"--version"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "kv-share " KV_VERSION " (Project Share)\n");
}

TEST(ShareTool, SaysThatATextIsTooLargeForADatagram) {
  const ToolRun run =
      runTool({"send", "8", "--data", std::string(66'000, 'x'), "--send-to", "127.255.255.255"});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("was not sent: a datagram carries 65507 at most"), std::string::npos);
}

TEST(ShareTool, CompletesCommandsAndTypesInBash) {
  const TestFolder folder;
  const std::string script = folder.write("script", runTool({"completion", "bash"}).out + R"(
COMP_WORDS=(kv-share de); COMP_CWORD=1; _kv_share; echo "${COMPREPLY[*]}"
COMP_WORDS=(kv-share send edit-s); COMP_CWORD=2; _kv_share; echo "${COMPREPLY[*]}"
COMP_WORDS=(kv-share send --so); COMP_CWORD=2; _kv_share; echo "${COMPREPLY[*]}"
COMP_WORDS=(kv-station --netw); COMP_CWORD=1; _kv_station; echo "${COMPREPLY[*]}"
COMP_WORDS=(kv-station --network-mode of); COMP_CWORD=2; _kv_station; echo "${COMPREPLY[*]}"
cd / && COMP_WORDS=(kv-station --projects us); COMP_CWORD=2; _kv_station; echo "${COMPREPLY[*]}"
COMP_WORDS=(kv-station --user --); COMP_CWORD=2; _kv_station; echo "${COMPREPLY[*]}."
)");
  const std::string command = "bash '" + script + "' >'" + folder / "out" + "'";
  ASSERT_EQ(std::system(command.c_str()), 0);
  EXPECT_EQ(contentOf(folder / "out"),
            "decode\nedit-saved\n--source\n--network-mode\noff\nusr\n.\n");
}

TEST(ShareTool, WritesACompletionForZsh) {
  const ToolRun run = runTool({"completion", "zsh"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out.find("#compdef kv-share kv-station\n"), 0u);
  EXPECT_NE(run.out.find("decode) words_known=\""), std::string::npos);
}

TEST(ShareTool, TellsThatItsOutputHasNoRoom) {
  const TestFolder folder;
  const std::string errors = folder / "err";
  const std::string command = "'" KV_SHARE "' --help >/dev/full 2>'" + errors + "'";
  EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 1);
  EXPECT_EQ(contentOf(errors),
            "kv-share: standard output takes no more (No space left on device)\n");
}

#ifdef KV_ZSH
TEST(ShareTool, CompletesBothProgramsInZsh) {
  const TestFolder folder;
  const std::string script = folder.write("script", R"(
compdef() { echo "$@" }
compadd() { shift; echo "$@" | tr ' ' '\n' | grep -e "^$begun" }
_files() { echo "files $@" }
)" + runTool({"completion", "zsh"}).out + R"(
begun=de service=kv-share words=(kv-share de) CURRENT=2; _kv_share
begun=--so words=(kv-share send --so) CURRENT=3; _kv_share
begun=--netw service=kv-station words=(kv-station --netw) CURRENT=2; _kv_share
begun=of words=(kv-station --network-mode of) CURRENT=3; _kv_share
words=(kv-station --projects us) CURRENT=3; _kv_share
)");
  const std::string command = KV_ZSH " -f '" + script + "' >'" + folder / "out" + "'";
  ASSERT_EQ(std::system(command.c_str()), 0);
  EXPECT_EQ(contentOf(folder / "out"),
            "_kv_share kv-share kv-station\ndecode\n--source\nfiles \n--network-mode\noff\nfiles "
            "-/\n");
}
#endif

}  // namespace
