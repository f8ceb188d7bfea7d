#include "tests/support/ToolRun.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

namespace korvel {

namespace {

void redirect(int stream, const std::string& path, int flags) {
  const int file = ::open(path.c_str(), flags, 0600);
  ::dup2(file, stream);
  ::close(file);
}

struct Streams {
  std::string in;
  std::string out;
  std::string errors;
};

/// In the child of a process that has threads: one of them may have held the lock of the memory
/// when it was copied, so nothing here takes memory.
[[noreturn]] void become(char* const* arguments, const Streams& streams) {
  redirect(STDIN_FILENO, streams.in, O_RDONLY);
  redirect(STDOUT_FILENO, streams.out, O_WRONLY | O_CREAT);
  redirect(STDERR_FILENO, streams.errors, O_WRONLY | O_CREAT);
  ::execv(KV_SHARE, arguments);
  ::_exit(127);
}

}  // namespace

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

ToolRun runTool(const std::vector<std::string>& words, const std::string& input) {
  return BackgroundTool(words, input).finish();
}

BackgroundTool::BackgroundTool(const std::vector<std::string>& words, const std::string& input) {
  static_cast<void>(folder_.write("in", input));
  std::vector<char*> arguments{const_cast<char*>(KV_SHARE)};
  for (const auto& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  const std::string folder = folder_.path();
  const Streams streams{folder + "/in", folder + "/out", folder + "/err"};
  child_ = ::fork();
  if (child_ == 0) become(arguments.data(), streams);
}

BackgroundTool::~BackgroundTool() {
  if (child_ <= 0) return;
  signal(SIGKILL);
  ::waitpid(child_, nullptr, 0);
}

bool BackgroundTool::hasWritten(const std::string& text) const {
  for (int tries = 0; tries < 3000; ++tries) {
    for (const char* const name : {"out", "err"}) {
      if (contentOf(folder_ / name).find(text) != std::string::npos) return true;
    }
    ::usleep(10'000);
  }
  return false;
}

void BackgroundTool::signal(int number) const { ::kill(child_, number); }

ToolRun BackgroundTool::finish() {
  int status = 0;
  ::waitpid(std::exchange(child_, -1), &status, 0);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
          contentOf(folder_ / "out"), contentOf(folder_ / "err")};
}

TestFolder::TestFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "kv-share-test-XXXXXX").string();
  path_ = ::mkdtemp(name.data()) ? name : std::string();
}

TestFolder::~TestFolder() {
  std::error_code ignored;
  if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

std::string TestFolder::write(const std::string& name, const std::string& bytes) const {
  const std::filesystem::path path = *this / name;
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
  return path.string();
}

}  // namespace korvel
