#include "tests/support/StationProcess.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <utility>

namespace korvel {

namespace {

struct Pipe {
  std::array<int, 2> ends{-1, -1};
  Pipe() {
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) std::abort();
  }
  [[nodiscard]] int reading() const { return ends[0]; }
  [[nodiscard]] int writing() const { return ends[1]; }
};

std::vector<std::string> commandLine(const StationProcess::Options& options) {
  std::vector<std::string> words = options.prefix;
  words.insert(words.end(),
               {options.program, "--projects", options.projects, "--script", "-", "--keep-going"});
  const auto add = [&words](const std::string& option, const std::string& value) {
    words.push_back(option);
    words.push_back(value);
  };
  if (!options.user.empty()) add("--user", options.user);
  if (!options.host.empty()) add("--host", options.host);
  if (options.machine != 0) add("--machine", std::to_string(options.machine));
  if (options.port != 0) add("--port", std::to_string(options.port));
  const auto isGiven = [&options](const char* option) {
    return std::find(options.more.begin(), options.more.end(), option) != options.more.end();
  };
  if (!isGiven("--events")) add("--events", "-");
  if (!options.sendTo.empty() && !isGiven("--send-to")) add("--send-to", options.sendTo);
  words.insert(words.end(), options.more.begin(), options.more.end());
  return words;
}

/// What exec() takes; of words that live longer.
std::vector<char*> argumentsOf(std::vector<std::string>& words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  return arguments;
}

/// In the child of a process that has threads: one of them may have held the lock of the memory
/// when it was copied, so nothing here takes memory.
[[noreturn]] void become(char* const* arguments, int input, int output, int errors) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::dup2(input, STDIN_FILENO);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(errors, STDERR_FILENO);
  ::execvp(arguments[0], arguments);
  ::_exit(127);
}

/// A value as it is compared with a script's text: strings as they stand, all else as JSON.
std::string asText(const JsonValue& value) {
  return value.isString() ? value.asString() : writeJson(value);
}

bool hasKeys(const JsonValue& event, const StationProcess::Keys& keys) {
  for (const auto& [key, value] : keys) {
    const JsonValue* found = event.find(key);
    if (!found || asText(*found) != value) return false;
  }
  return true;
}

}  // namespace

StationProcess::StationProcess(Options options) : options_(std::move(options)) { start(); }

StationProcess::~StationProcess() {
  kill9();
  if (eventReader_.joinable()) eventReader_.join();
  if (errorReader_.joinable()) errorReader_.join();
}

void StationProcess::start() {
  const Pipe input;
  const Pipe output;
  const Pipe errors;
  std::vector<std::string> words = commandLine(options_);
  const std::vector<char*> arguments = argumentsOf(words);
  pid_ = ::fork();
  if (pid_ == 0) become(arguments.data(), input.reading(), output.writing(), errors.writing());
  ::close(input.reading());
  ::close(output.writing());
  ::close(errors.writing());
  input_ = input.writing();
  ::signal(SIGPIPE, SIG_IGN);  // a station that died shows by its exit status
  eventReader_ = std::thread([this, from = output.reading()] { readEvents(from); });
  errorReader_ = std::thread([this, from = errors.reading()] { readErrors(from); });
}

void StationProcess::readEvents(int descriptor) {
  std::string pending;
  std::array<char, 65536> block;
  for (ssize_t count; (count = ::read(descriptor, block.data(), block.size())) > 0;) {
    pending.append(block.data(), static_cast<std::size_t>(count));
    std::size_t begin = 0;
    for (std::size_t end; (end = pending.find('\n', begin)) != std::string::npos; begin = end + 1) {
      Result<JsonValue> event = parseJson(std::string_view(pending).substr(begin, end - begin));
      if (!event) continue;
      const std::lock_guard lock(mutex_);
      seen_.push_back(std::make_unique<Seen>(Seen{std::move(*event), false}));
      arrived_.notify_all();
    }
    pending.erase(0, begin);
  }
  ::close(descriptor);
}

void StationProcess::readErrors(int descriptor) {
  std::array<char, 4096> block;
  for (ssize_t count; (count = ::read(descriptor, block.data(), block.size())) > 0;) {
    const std::lock_guard lock(mutex_);
    errors_.append(block.data(), static_cast<std::size_t>(count));
  }
  ::close(descriptor);
}

bool StationProcess::waitUntilReady(Seconds limit) {
  if (waitFor("ready", {}, limit)) return true;
  std::cerr << options_.user << " is not ready: " << errorText() << '\n';
  return false;
}

void StationProcess::type(const std::string& line) {
  const std::string text = line + "\n";
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t count = ::write(input_, text.data() + written, text.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    written += static_cast<std::size_t>(count);
  }
}

JsonValue StationProcess::command(const std::string& line, Seconds limit) {
  type(line);
  const std::optional<JsonValue> reply = waitFor("reply", {}, limit);
  return reply ? *reply : JsonValue();
}

StationProcess::Seen* StationProcess::findNew(const std::string& event, const Keys& keys,
                                              std::size_t& from) {
  for (; from < seen_.size(); ++from) {
    Seen& seen = *seen_[from];
    if (seen.taken || seen.event["event"].asString() != event) continue;
    if (hasKeys(seen.event, keys)) return &seen;
  }
  return nullptr;
}

std::optional<JsonValue> StationProcess::waitFor(const std::string& event, const Keys& keys,
                                                 Seconds limit) {
  std::unique_lock lock(mutex_);
  Seen* found = nullptr;
  std::size_t from = 0;  // what was looked at once is not looked at again while more arrives
  arrived_.wait_for(lock, limit * options_.pace,
                    [&] { return (found = findNew(event, keys, from)) != nullptr; });
  if (!found) return std::nullopt;
  found->taken = true;
  return found->event;
}

std::vector<JsonValue> StationProcess::events(const std::string& name) const {
  const std::lock_guard lock(mutex_);
  std::vector<JsonValue> found;
  for (const std::unique_ptr<Seen>& seen : seen_) {
    if (name.empty() || seen->event["event"].asString() == name) found.push_back(seen->event);
  }
  return found;
}

std::string StationProcess::errorText() const {
  const std::lock_guard lock(mutex_);
  return errors_;
}

void StationProcess::signal(int number) {
  if (!exitStatus_) ::kill(pid_, number);
}

// The input stays open until the process is gone: its end would be a gentle end.
void StationProcess::kill9() {
  signal(SIGKILL);
  waitForExit();
  endInput();
}

void StationProcess::endInput() {
  if (input_ >= 0) ::close(std::exchange(input_, -1));
}

std::optional<int> StationProcess::waitForExit(Seconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit * options_.pace;
  while (!exitStatus_) {
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
      exitStatus_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    } else if (std::chrono::steady_clock::now() >= deadline) {
      return std::nullopt;
    } else {
      ::usleep(2000);
    }
  }
  return exitStatus_;
}

std::optional<int> StationProcess::quit() {
  type("quit --discard");
  endInput();
  return waitForExit();
}

int freeUdpPort() {
  const int probe = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  const bool known = ::bind(probe, generic, size) == 0 && ::getsockname(probe, generic, &size) == 0;
  ::close(probe);
  return known ? ntohs(address.sin_port) : 0;
}

}  // namespace korvel
