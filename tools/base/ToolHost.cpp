#include "tools/base/ToolHost.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>

#include "app/base/Options.h"
#include "station/base/Log.h"
#include "station/base/StationSettings.h"
#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"
#include "station/project/ProjectFolder.h"
#include "station/seal/AuditLog.h"

namespace korvel {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kTimeToDie = std::chrono::milliseconds(200);

[[noreturn]] void runAndEnd(const std::function<void(int)>& work, int pipe) {
  // Without this, a process that waits for a share would outlive a parent that the user has ended.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  work(pipe);
  // Not exit(): buffered output and exit handlers belong to the parent.
  ::_exit(0);
}

}  // namespace

ChildProcess::ChildProcess(const std::function<void(int)>& work) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return;
  pipe_ = Descriptor(ends[0]);
  // The parent closes its copy of this end, so that read() sees the end of the process. That also
  // holds where fork() fails.
  const Descriptor writeEnd(ends[1]);
  process_ = ::fork();
  if (process_ == 0) runAndEnd(work, writeEnd.get());
}

ChildProcess::~ChildProcess() { kill(); }

void ChildProcess::kill() {
  if (process_ <= 0) return;
  ::kill(process_, SIGKILL);
  const auto deadline = Clock::now() + kTimeToDie;
  // Never waits without a limit: a process within a hanging system call does not die of SIGKILL.
  while (::waitpid(process_, nullptr, WNOHANG) == 0 && Clock::now() < deadline) ::usleep(500);
  process_ = -1;
}

ChildProcess::Reading ChildProcess::read(Clock::time_point deadline, std::string& bytes) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  pollfd readable{pipe_.get(), POLLIN, 0};
  if (left <= 0 || ::poll(&readable, 1, static_cast<int>(left)) == 0) return Reading::eLate;
  char block[4096];
  const ssize_t count = ::read(pipe_.get(), block, sizeof block);
  if (count <= 0) return Reading::eEnded;
  bytes.append(block, static_cast<std::size_t>(count));
  return Reading::eGot;
}

namespace {

/// Installs the settings before the members that read them are made. Called from the initialiser
/// list, it passes the host thread on.
HostThread& withDirectory(const std::string& projectsDirectory, HostThread& hostThread) {
  StationSettings with;
  with.projectsDirectory = projectsDirectory;
  with.cache = cacheFolder();
  installSettings(with);
  return hostThread;
}

}  // namespace

ToolHost::ToolHost(const std::string& projectsDirectory)
    : network_(withDirectory(projectsDirectory, hostThread_)), os_(network_) {}

Result<void> ToolHost::checkDirectory() const {
  const auto names = listFresh(settings().projectsDirectory);
  if (names) return {};
  return names.error();
}

std::string directoryOf(const std::string& word) {
  std::error_code error;
  // Works on the text alone: this runs before the process that may wait for the share, and
  // resolving links would ask the share.
  std::string path = std::filesystem::absolute(word, error).lexically_normal().string();
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

Result<StationSettings> stationOptions(const std::vector<std::string>& words) {
  // toolProblem() puts the name of this program before the text.
  constexpr std::string_view kProgram = "kv-station: ";
  std::vector<const char*> arguments{"kv-share"};
  for (const std::string& word : words) arguments.push_back(word.c_str());
  const auto read = readOptions(static_cast<int>(arguments.size()), arguments.data());
  if (const auto* const options = std::get_if<Options>(&read)) return options->station;
  std::string problem = std::get<ProgramEnd>(read).text;
  if (problem.starts_with(kProgram)) problem.erase(0, kProgram.size());
  return Error{ErrorCode::eUsage, problem, {}};
}

namespace {

using Clock = std::chrono::steady_clock;

// What the process that looks writes to the pipe, a byte each. Statuses are digits, which are
// greater than the other two.
constexpr char kAnswered = '.';
constexpr char kRests = '-';
constexpr char kFirstStatus = '0';
// A byte for each of thousands of files would be a system call for each.
constexpr auto kBetweenAnswers = std::chrono::milliseconds(50);

/// The pipe to the waiting process; set only in the process that looks at the share.
int waiting_ = -1;

void tell(char what) {
  if (waiting_ >= 0) writeAll(waiting_, {&what, 1});
}

ToolStatus lookSafely(const std::function<ToolStatus()>& look) {
  try {
    return look();
  } catch (const std::exception& error) {
    return toolProblem(eToolFinding, std::string("stopped: ") + error.what());
  }
}

void work(const std::function<ToolStatus()>& look, int pipe) {
  waiting_ = pipe;
  const ToolStatus status = lookSafely(look);
  shareRests();
  // _exit() writes no buffers. The share is done: a slow reader of the output has all the time.
  std::cout.flush();
  tell(static_cast<char>(kFirstStatus + status));
}

}  // namespace

std::string secondsText(std::chrono::milliseconds time) {
  char text[32];
  std::snprintf(text, sizeof text, "%g s", static_cast<double>(time.count()) / 1000);
  return text;
}

void declareTimeLimit(CommandOptions& options, ShareRequest& request) {
  options.number("--time-limit", "S", request.timeLimit, 1, 3600,
                 "Seconds that the share may be silent before this gives up");
}

ToolStatus lookAtShare(const std::string& directory, std::chrono::milliseconds limit,
                       const std::function<ToolStatus()>& look) {
  // Otherwise the child would write the buffered text a second time.
  std::cout.flush();
  ChildProcess child([&look](int pipe) { work(look, pipe); });
  std::string told;
  for (;;) {
    const bool isResting = told.ends_with(kRests);
    const auto deadline = Clock::now() + (isResting ? std::chrono::hours(1) : limit);
    const ChildProcess::Reading reading = child.read(deadline, told);
    if (reading == ChildProcess::Reading::eEnded) {
      return toolProblem(eToolFinding, "the look at " + directory + " was ended before its answer");
    }
    if (reading == ChildProcess::Reading::eLate && !isResting) {
      return toolProblem(eToolFinding,
                         directory + " did not answer within " + secondsText(limit) +
                             ": see whether its server is up and reached (kv-share doctor); a "
                             "mount that stays so is ended with umount -f -l and mounted again");
    }
    if (told.empty() || told.back() < kFirstStatus) continue;
    return static_cast<ToolStatus>(told.back() - kFirstStatus);
  }
}

void shareAnswered() {
  static Clock::time_point next;
  const auto now = Clock::now();
  if (waiting_ < 0 || now < next) return;
  next = now + kBetweenAnswers;
  tell(kAnswered);
}

void shareRests() { tell(kRests); }

void declareAudit(CommandOptions& options, std::string& file) {
  options.text("--audit", "FILE", file, "Keep what was changed, and by whom, in an audit log");
}

ToolStatus audited(const std::string& file, std::vector<JsonValue::Member> members) {
  if (file.empty()) return eToolDone;
  JsonValue record =
      JsonValue::object({{"time", timeForRecord()}, textMember("user", loginName())});
  for (auto& [key, value] : members) record.set(key, std::move(value));
  const auto written = AuditLog(file).append(std::move(record));
  if (written) return eToolDone;
  return toolProblem(eToolFinding, "it is not in the audit log: " + written.error().message);
}

}  // namespace korvel
