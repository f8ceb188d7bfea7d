#pragma once

// The host's settings, and the settings of its objects.
//
// config_int answers from the host's configuration: the file and the command line that the
// application was started with. The plug-in asks for three keys:
//
//     "Administrator"              1: this user may change what others own; asked once, while the
//                                  library is loaded
//     "shared_projects_udp_port"   the port of the datagrams
//     "log_incoming_net_messages"  other than 0: each received message is written to the log
//
// configb is one object's own small dictionary. It travels with the object's file, so all stations
// see the same values once the file is written. The key "OWNER" holds the name of the object's
// owner.

#include "host/base/HostApi.h"
#include "host/base/LightweightString.h"

/// The host configuration's integer under `key`, or `defaultValue` where the key is absent or holds
/// no whole number. The configuration is complete before any plug-in is loaded and does not change
/// afterwards. Any thread.
KV_HOST_API int config_int(const char* key, int defaultValue);

/// A stored object's own configuration: text values under text keys, both UTF-8. Host thread.
class KV_HOST_API configb {
 public:
  virtual ~configb() = default;

  /// Sets a value in memory; it reaches the object's file when the host saves or flushes the
  /// object.
  virtual void set(const LightweightString<char>& key, const LightweightString<char>& value) = 0;

  /// The value under `key`, or the empty string.
  [[nodiscard]] virtual LightweightString<char> get(const LightweightString<char>& key) const = 0;
};
