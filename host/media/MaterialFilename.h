#pragma once

#include "host/base/HostApi.h"
#include "host/base/LightweightString.h"

/// Where a media file lies on this station. A plain value.
class KV_HOST_API MaterialFilename {
 public:
  MaterialFilename() = default;
  explicit MaterialFilename(const LightweightString<wchar_t>& osPath) : osPath_(osPath) {}

  /// The path as the host writes it, with "/" between components. On this system the same text as
  /// the local path.
  [[nodiscard]] const LightweightString<wchar_t>& getPath() const { return osPath_; }

  /// The path by which the operating system opens the file.
  [[nodiscard]] const LightweightString<wchar_t>& getOsPath() const { return osPath_; }

  friend bool operator==(const MaterialFilename& a, const MaterialFilename& b) {
    return a.osPath_ == b.osPath_;
  }

 private:
  LightweightString<wchar_t> osPath_;
};
