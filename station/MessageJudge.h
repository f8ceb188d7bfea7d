#pragma once

#include <string>
#include <vector>

#include "host/project/CommandMap.h"
#include "station/base/HostParts.h"
#include "station/net/NetworkHooks.h"

namespace korvel {

/// What becomes of another station's message before the plug-in sees it. A message that announces a
/// file which is not there yet is held back. One about the owner of an object that does not exist
/// is dropped. Only the open project and the one that the message names are looked at. Host thread.
MessageGate judgeMessage(const ReceivedMessage& message);

/// Does about a delivered message what the plug-in leaves to its host: lists read the file of an
/// edit that was saved elsewhere and that is not open here again when they are next shown. Host
/// thread.
void noteDelivered(const ReceivedMessage& message);

/// The commands that another machine may ask this station to run:
///
///     identify   shows that this station was asked for, so that people find the machine
///     refresh    reads the open project's containers, filters and rooms again
///
/// None touches the operating system. The configuration's "remote_commands" names those that may be
/// asked for; the others are refused, with a line in the log. Building an object makes it the
/// host's command map. Host thread.
class RemoteCommands : public CommandMap {
 public:
  RemoteCommands();
  RemoteCommands(const RemoteCommands&) = delete;
  RemoteCommands& operator=(const RemoteCommands&) = delete;
  ~RemoteCommands() override;

  [[nodiscard]] Index findCommand(const LightweightString<char>& name) const override;
  void callCommand(Index index, const CommandContext& context) override;

  /// The names of all commands.
  [[nodiscard]] static std::vector<std::string> names();

 private:
  const std::vector<std::string> allowed_;
  const HostEntry<RemoteCommands> entry_{&HostParts::commands, *this};
};

}  // namespace korvel
