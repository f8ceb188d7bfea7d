#pragma once

// Commands by name, for machines that are operated from another one.
//
// A message asks this machine, by its number, to run a command. The plug-in looks the name up and
// calls what it finds; it knows no command itself. What is in the map is the host's decision, and
// therefore the limit of what anybody on the network can have this machine do:
//
//     message "run render_pause on machine 7" -> findCommand("render_pause") -> callCommand(index)
//                                                kNotFound: nothing happens

#include <cstdint>

#include "host/base/HostApi.h"
#include "host/base/LightweightString.h"

/// What a command runs with; a remote command's is empty.
class KV_HOST_API CommandContext {};

/// The host's named commands: those that another machine may ask for. None of them touches the
/// operating system. Each run is logged and told to the local user. Host thread.
class KV_HOST_API CommandMap {
 public:
  using Index = std::uint32_t;

  /// findCommand's answer for a name that is no command: all ones.
  static constexpr Index kNotFound = ~Index{0};

  virtual ~CommandMap() = default;

  static CommandMap& theCommandMap();

  /// The index of the command of exactly this name, or kNotFound.
  [[nodiscard]] virtual Index findCommand(const LightweightString<char>& name) const = 0;

  /// Runs a command; `index` must come from findCommand.
  virtual void callCommand(Index index, const CommandContext& context) = 0;
};
