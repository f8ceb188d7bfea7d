#pragma once

#include <string>
#include <vector>

#include "station/base/Json.h"
#include "station/base/Result.h"

namespace korvel {

// The clips of an OpenTimelineIO timeline. A clip is named by its path of child indices from the
// timeline's stack of tracks, "0/2/1": the first track's third child, a stack, and that one's
// second child.

/// A stretch of a clip's material, in seconds of the material's own time.
struct ClipRange {
  double start = 0;
  double end = 0;
};

/// What a list of clips shows of one.
struct ClipInfo {
  std::string path;
  std::string name;
  std::string schema;
  bool hasRange = false;
  ClipRange range;
  double rate = 0;  ///< frames a second; 0 where the clip tells none
};

/// All items that show a stretch of material (clips, gaps, nested stacks and tracks with a range),
/// depth first.
std::vector<ClipInfo> listClips(const JsonValue& timeline);

/// The path of the clip that a user means by a path or an unambiguous name.
Result<std::string> findClip(const JsonValue& timeline, const std::string& nameOrPath);

/// What is known of the clip at a path; eNotFound when there is none.
Result<ClipInfo> clipAt(const JsonValue& timeline, const std::string& path);

/// The stretch of material that the clip could show; `hasRange` false where nothing tells it.
ClipInfo availableMaterial(const JsonValue& timeline, const std::string& path);

/// Makes the clip show another stretch. Times that fall on a frame (to a millionth) are stored as
/// that frame, and numbers keep their kind (whole or not). Failure, with nothing changed: no such
/// clip, a clip without a frame rate, a range that is empty, reversed or not finite.
Result<void> trimClip(JsonValue& timeline, const std::string& path, const ClipRange& range);

}  // namespace korvel
