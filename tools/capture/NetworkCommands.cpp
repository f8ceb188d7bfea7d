#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <utility>

#include "station/net/HeardList.h"
#include "station/os/SharedFiles.h"
#include "tools/base/ShareTimeout.h"
#include "tools/base/Tool.h"
#include "tools/capture/Monitor.h"
#include "tools/capture/Record.h"
#include "tools/capture/Replay.h"

namespace korvel {

namespace {

/// Refuses "nan", which no range leaves out.
const CLI::Validator kIsNumber(
    [](std::string& word) {
      return std::string(std::isnan(std::strtod(word.c_str(), nullptr)) ? "must be a number" : "");
    },
    "");

void addList(CLI::App& command, const char* name, std::vector<std::string>& words,
             const char* value, const char* help) {
  command.add_option(name, words, help)->delimiter(',')->allow_extra_args(false)->type_name(value);
}

void addFilters(CLI::App& command, FilterWords& filter) {
  addList(command, "--type", filter.types, "TYPE[,TYPE]",
          "Only these: numbers, or names like edit-saved");
  addList(command, "--project", filter.projects, "COOKIE[,COOKIE]", "Only those of these projects");
  addList(command, "--user", filter.users, "USER[,USER]",
          "Only those from, for or about these users");
  addList(command, "--sender", filter.senders, "ADDR[,ADDR]",
          "Only those of these: addresses, address:port, or networks like 10.0.0.0/8");
}

void addHearing(CLI::App& command, ListenRequest& what) {
  addFilters(command, what.filter);
  command.add_option("--port", what.hearing.port, "The stations' UDP port")
      ->check(CLI::Range(1, 65535))
      ->type_name("N")
      ->capture_default_str();
  command
      .add_option(
          "--listen", what.hearing.listen,
          "A multicast group, a broadcast address, or this machine's address in one network")
      ->type_name("ADDR");
  command.add_flag_callback(
      "--capture", [&what] { what.hearing.way = Hearing::Way::eCapture; },
      "Capture the packets rather than share the port: also shows those to one station");
  command.add_option("--count", what.count, "End after so many messages")
      ->check(CLI::PositiveNumber)
      ->type_name("N");
  command.add_option("--for", what.seconds, "End after so many seconds")
      ->check(CLI::Range(0.001, 1e8))
      ->check(kIsNumber)
      ->type_name("S");
}

/// Whether lists can be kept in a folder; a line says why not.
ToolStatus checkHeardFolder(const std::string& folder) {
  if (folder.empty()) return eToolDone;
  return lookAtShare(folder, std::chrono::seconds(kShareSeconds), [&folder] {
    const auto names = listFresh(folder);
    return names ? eToolDone : toolProblem(eToolUsage, names.error().message);
  });
}

/// Lets a monitor keep a list of whom it hears, as stations do; null without a folder.
std::shared_ptr<HeardList> keepHeardList(const std::string& folder, MonitorRequest& request) {
  if (folder.empty()) return nullptr;
  char host[256] = {};
  ::gethostname(host, sizeof host - 1);
  HeardList::Keeper keeper{folder, std::string("monitor at ") + host, host,
                           request.what.hearing.port, 0};
  auto list = std::make_shared<HeardList>(std::move(keeper));
  request.heard = [list](const HeardMessage& message, const SenderCount&) {
    list->heard(message.sender, message.senderPort);
  };
  return list;
}

constexpr const char* kBesideStations =
    "Shares the port with the stations of this machine and takes nothing from them: a datagram to\n"
    "this machine alone goes to one program, a station where there is one, and is not heard here\n"
    "without --capture. Where another program holds the port, packets are captured.\n";

void addFaults(CLI::App& command, WayFaults& faults) {
  const auto addChance = [&command](const char* name, double& chance, const char* help) {
    command.add_option(name, chance, help)
        ->check(CLI::Range(0.0, 1.0))
        ->check(kIsNumber)
        ->type_name("P");
  };
  addChance("--loss", faults.loss, "Lose each message with this chance, 0 to 1");
  addChance("--duplicate", faults.duplicate, "Send it twice with this chance");
  addChance("--reorder", faults.reorder, "Send it behind the next one with this chance");
  command.add_option("--delay", faults.delay, "Send it up to MS milliseconds later")
      ->check(CLI::Range(0, 3'600'000))
      ->type_name("MS");
  command.add_option("--seed", faults.seed, "The same number gives the same faults")
      ->type_name("N")
      ->capture_default_str();
}

/// "max" as fast as it goes, or how many times as fast.
void addSpeed(CLI::App& command, ReplayRequest& request) {
  command
      .add_option_function<std::string>(
          "--speed",
          [&request](const std::string& word) {
            char* end = nullptr;
            request.speed = std::strtod(word.c_str(), &end);
            if (word == "max") request.speed = std::numeric_limits<double>::infinity();
            if (word != "max" && (*end != '\0' || !(request.speed > 0))) {
              throw CLI::ValidationError("--speed", "must be a number above 0, or max");
            }
          },
          "So many times as fast as it was recorded; max for as fast as it goes")
      ->type_name("X");
}

}  // namespace

void addMonitorCommand(CLI::App& tool, ToolStatus& status) {
  auto* const command =
      tool.add_subcommand("monitor", "Show the messages on the network as they come");
  const auto request = std::make_shared<MonitorRequest>();
  command->add_flag("--json", request->asJson, "One JSON object a line");
  command->add_flag("--stats", request->onlyCounts,
                    "Counts and rates alone, every ten seconds and at the end");
  const auto folder = std::make_shared<std::string>();
  command
      ->add_option("--share-heard", *folder,
                   "Keep a list of the senders that are shown in DIR, for kv-share mesh")
      ->type_name("DIR");
  addHearing(*command, request->what);
  command->footer(
      std::string(kBesideStations) +
      "Exit status: 0; 1 when nothing can be heard, or fewer came than --count asks for.");
  command->callback([=, &status] {
    if (status = checkHeardFolder(*folder); status != eToolDone) return;
    const auto list = keepHeardList(*folder, *request);
    status = monitor(*request);
  });
}

void addRecordCommand(CLI::App& tool, ToolStatus& status) {
  auto* const command =
      tool.add_subcommand("record", "Record messages to a capture that network tools open");
  const auto request = std::make_shared<RecordRequest>();
  command->add_option("FILE", request->file, "The capture, pcapng; - for standard output")
      ->required();
  command->add_flag("--force", request->replacesFile, "Replace a file that is there");
  command->add_flag("--json", request->asJson, "What was recorded as one JSON object, at the end");
  addHearing(*command, request->what);
  command->footer(
      std::string(kBesideStations) +
      "Exit status: 0; 1 when messages were missed, the disk is full, or fewer came than\n"
      "--count asks for; what was recorded can be read in every case.");
  command->callback([=, &status] { status = record(*request); });
}

void addReplayCommand(CLI::App& tool, ToolStatus& status) {
  auto* const command = tool.add_subcommand("replay", "Send the messages of a capture again");
  const auto request = std::make_shared<ReplayRequest>();
  command->add_option("FILE", request->file, "The capture, pcapng or pcap; - for standard input")
      ->required();
  addSpeed(*command, *request);
  command->add_option("--from", request->from, "Begin S seconds after its first message")
      ->check(CLI::NonNegativeNumber)
      ->check(kIsNumber)
      ->type_name("S");
  command->add_option("--to", request->to, "End S seconds after its first message")
      ->check(CLI::NonNegativeNumber)
      ->check(kIsNumber)
      ->type_name("S");
  addFilters(*command, request->filter);
  command->add_option("--port", request->port, "The port to send to; as captured by default")
      ->check(CLI::Range(1, 65535))
      ->type_name("N");
  addList(*command, "--send-to", request->sendTo, "ADDR[,ADDR]",
          "Addresses of this machine's own network; 127.255.255.255 by default");
  addList(*command, "--onto", request->onto, "ADDR[,ADDR]",
          "Addresses beyond this machine, in earnest: stations there take the messages for true");
  addFaults(*command, request->faults);
  command->add_flag("--json", request->asJson, "What was sent as one JSON object, at the end");
  command->footer(
      "Exit status: 0; 1 when the capture is cut, holds no messages or some could not be sent;\n"
      "2 when it cannot be read.");
  command->callback([=, &status] { status = replay(*request); });
}

}  // namespace korvel
