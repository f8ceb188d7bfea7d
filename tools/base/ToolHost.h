#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "station/base/HostThread.h"
#include "station/base/Json.h"
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

  /// kill -9. Waits until the process is gone, 200 ms at most. A process that the system does not
  /// let die, because its mount hangs, is left behind.
  void kill();

  enum class Reading { eGot, eEnded, eLate };

  /// Waits for a piece of the answer and appends it to `bytes`.
  Reading read(std::chrono::steady_clock::time_point deadline, std::string& bytes);

 private:
  Descriptor pipe_;
  pid_t process_ = -1;
};

/// A station without a plug-in and without documents: the file manager with which a projects
/// directory is read. One instance at a time.
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

/// The absolute path of a DIR on the command line, without a separator at its end. Does not ask the
/// share.
std::string directoryOf(const std::string& word);

/// The settings of a kv-station that is started here with these options; its configuration file
/// counts, too. The failure is a text for the user of kv-share.
Result<StationSettings> stationOptions(const std::vector<std::string>& words);

/// Seconds that a share may be silent before a command gives up, unless told otherwise.
inline constexpr int kShareSeconds = 20;

/// A time as people read it, "0.5 s".
std::string secondsText(std::chrono::milliseconds time);

/// Runs a function that reads a share in a process of its own. Gives up when the share has been
/// silent for the limit: "DIR did not answer within 20 s", a finding. A process that a hanging
/// mount keeps from dying is left behind. No thread may have been started before: the process is a
/// fork.
ToolStatus lookAtShare(const std::string& directory, std::chrono::milliseconds limit,
                       const std::function<ToolStatus()>& look);

/// The options that all commands about a share have in common.
struct ShareRequest {
  std::string path;  ///< the word DIR or PATH, as it was given
  bool asJson = false;
  int timeLimit = kShareSeconds;
};

/// Declares `--time-limit S`.
void declareTimeLimit(CommandOptions& options, ShareRequest& request);

/// Adds a command that runs within lookAtShare(), with --time-limit. Its Request is a ShareRequest.
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

/// Declares `--audit FILE`, the audit log in which a change of the share is kept.
void declareAudit(CommandOptions& options, std::string& file);

/// Keeps a change that was just made, `members` with the time and the user's login name, in the
/// audit log; nothing where no file was named. What cannot be kept is told, and makes the status a
/// finding.
ToolStatus audited(const std::string& file, std::vector<JsonValue::Member> members);

// For code that runs within lookAtShare(); elsewhere they do nothing.

/// The share has answered: the time limit starts anew.
void shareAnswered();

/// Suspends the time limit until the next shareAnswered(): the command waits for a reader of its
/// output or for an answer of the user.
void shareRests();

}  // namespace korvel
