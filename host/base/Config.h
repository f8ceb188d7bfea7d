#pragma once

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
