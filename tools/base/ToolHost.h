#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "station/base/HostThread.h"
#include "station/base/Result.h"
#include "station/base/StationSettings.h"
#include "station/net/NetworkService.h"
#include "station/os/HostOS.h"
#include "station/os/Posix.h"
#include "tools/base/CommandLine.h"

namespace korvel {

/// A process that runs a function, and a pipe by which it answers. It ends with the function, with
/// its parent, with kill() or when this is destroyed.
class ChildProcess {
 public:
  /// `work` gets the descriptor to write answers to.
  explicit ChildProcess(const std::function<void(int pipe)>& work);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  /// kill -9. Waits until the process is gone, a fifth of a second at most: one that the system
  /// does not let die, since its mount hangs, is left to itself.
  void kill();

  enum class Reading { eGot, eEnded, eLate };

  /// Waits for a piece of the answer and appends it to `bytes`.
  Reading read(std::chrono::steady_clock::time_point deadline, std::string& bytes);

 private:
  Descriptor pipe_;
  pid_t process_ = -1;
};

/// As much of a station as looking at a projects directory needs: its file manager, without a
/// plug-in and without documents. One at a time.
class ToolHost {
 public:
  explicit ToolHost(const std::string& projectsDirectory);

  /// Whether the directory can be read; the failure says why not.
  [[nodiscard]] Result<void> checkDirectory() const;

 private:
  HostThread hostThread_;
  NetworkService network_;
  HostOS os_;
};

/// What a command line's DIR means: an absolute path without a separator at its end.
std::string directoryOf(const std::string& word);

/// What a kv-station would be started with here by these words of its command line; its
/// configuration file counts, too. The failure is one for the user of kv-share.
Result<StationSettings> stationOptions(const std::vector<std::string>& words);

/// How long a share may be silent before a command gives up, unless told otherwise.
inline constexpr int kShareSeconds = 20;

/// Runs a look at a share in a process of its own, and gives it up when the share has been silent
/// for so long: "DIR did not answer within 20 s", a finding. (A mount whose server is gone keeps
/// even kill -9 waiting: such a process is left to itself.) No thread may have been started before.
ToolStatus lookAtShare(const std::string& directory, std::chrono::milliseconds limit,
                       const std::function<ToolStatus()>& look);

/// What every command that looks at a share is asked for.
struct ShareRequest {
  std::string path;  ///< the word DIR or PATH, as it was given
  bool asJson = false;
  int timeLimit = kShareSeconds;
};

/// Declares `--time-limit S`.
void declareTimeLimit(CommandOptions& options, ShareRequest& request);

/// Adds a command that looks at a share: with --time-limit, and within lookAtShare(). Its Request
/// is a ShareRequest.
template <typename Request>
void addShareCommand(CommandLine& line, Command<Request> command) {
  command.declare = [declare = std::move(command.declare)](CommandOptions& options,
                                                           Request& request) {
    declare(options, request);
    declareTimeLimit(options, request);
  };
  command.run = [look = std::move(command.run)](const Request& request) {
    return lookAtShare(directoryOf(request.path), std::chrono::seconds(request.timeLimit),
                       [&] { return look(request); });
  };
  line.add(std::move(command));
}

// Within such a look; elsewhere they do nothing.

/// The share has answered, and is asked for more.
void shareAnswered();

/// From here to the next shareAnswered() it is not the share that takes its time, but a reader of
/// the output, or someone who is asked.
void shareRests();

}  // namespace korvel
