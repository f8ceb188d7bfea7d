#include "tests/share/ProgramRun.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "tests/fakes/ScratchFolder.h"

namespace korvel {

namespace {

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void redirect(const std::string& path, int flags, int descriptor) {
  const int file = ::open(path.c_str(), flags, 0600);
  ::dup2(file, descriptor);
  ::close(file);
}

int waitForEnd(pid_t process, std::chrono::duration<double> limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  int status = 0;
  while (::waitpid(process, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) ::kill(process, SIGKILL);
    ::usleep(2000);
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

ProgramRun runProgram(const std::vector<std::string>& words, const std::string& input,
                      std::chrono::duration<double> limit) {
  const ScratchFolder folder;
  std::ofstream(folder / "input", std::ios::binary) << input;
  std::vector<char*> arguments;
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  const std::string in = folder / "input";
  const std::string out = folder / "output";
  const std::string errors = folder / "errors";
  const pid_t process = ::fork();
  // Another thread may have held the lock of the memory: nothing takes memory here.
  if (process == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    redirect(in, O_RDONLY, STDIN_FILENO);
    redirect(out, O_WRONLY | O_CREAT, STDOUT_FILENO);
    redirect(errors, O_WRONLY | O_CREAT, STDERR_FILENO);
    ::execvp(arguments[0], arguments.data());
    ::_exit(127);
  }
  ProgramRun run;
  run.status = waitForEnd(process, limit);
  run.output = contentOf(out);
  run.errors = contentOf(errors);
  return run;
}

}  // namespace korvel
