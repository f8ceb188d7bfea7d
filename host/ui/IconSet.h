#pragma once

// Pictures of tools and buttons. They lie beside the host's library, in one file for each scale,
// and are looked for when the set is built; drawing reads them.

#include "host/base/HostApi.h"
#include "host/base/LightweightString.h"
#include "host/ui/Geometry.h"

/// One picture in the scales that the host's resources hold: "name.png" and "name@2x.png".
///
/// A plain value. A picture that is not there, or is no PNG, is reported in the log once for each
/// file name; its icon is then drawn as an empty frame.
class KV_HOST_API IconSet {
 public:
  IconSet() = default;

  /// Looks the files of this name up among the host's resources.
  explicit IconSet(const LightweightString<char>& fileName);

  /// The name as it was asked for, whether it was found or not.
  [[nodiscard]] const LightweightString<char>& fileName() const { return fileName_; }

  /// Whether the picture in its own size was found.
  [[nodiscard]] bool isValid() const { return !path_.empty(); }

  /// The picture's size in unscaled pixels; 0 by 0 when it was not found.
  [[nodiscard]] const Size& size() const { return size_; }

  /// The file to draw from on a screen of a scale (1, 1.5, 2 ...): the larger picture beyond 1,
  /// where there is one. Empty when there is none at all.
  [[nodiscard]] const LightweightString<wchar_t>& path(double scale) const;

 private:
  LightweightString<char> fileName_;
  LightweightString<wchar_t> path_;
  LightweightString<wchar_t> doublePath_;
  Size size_;
};
