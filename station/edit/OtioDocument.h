#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "station/base/Json.h"
#include "station/base/Result.h"

namespace korvel {

/// Which save an object's file is, who made it, and when by that station's clock.
struct SaveStamp {
  long number = 0;  ///< 0 for what no station saved
  std::string by;
  std::string at;  ///< "2024-05-31T12:00:00Z"

  bool operator==(const SaveStamp&) const = default;
};

/// An edit or log as an OpenTimelineIO timeline. Schemas, keys and numbers that this station does
/// not know are kept unchanged. The station's own data is one block of the timeline's metadata:
///
///     "metadata": { "korvel": { "logType": 2,              what kind of log it is
///                               "name": "Reel 1",          only where the timeline has no name
///                               "config": { "OWNER": "ANNA" },
///                               "saved": { "number": 7, "by": "anna",
///                                          "at": "2024-05-31T12:00:00Z" },
///                               "metadataWas": null,       what stood in the place of "metadata",
///                                                          or "metadataAdded": true for nothing
///                               "blockWas": {} },          what stood in the place of this block
///                   ... }
///
/// so that an export gives back exactly what was imported. A plain value.
class OtioDocument {
 public:
  /// Reads a timeline (schema "Timeline", any version). Failure: eBadContent, and what is wrong.
  static Result<OtioDocument> parse(std::string_view bytes);

  /// An empty timeline.
  static OtioDocument blank(const std::string& name);

  /// Begins the station's own block in a timeline that comes from elsewhere, with `logType`; a
  /// timeline without a name is known under `fallbackName`.
  void adopt(int logType, const std::string& fallbackName);

  /// The timeline's name, else the one it was adopted with.
  [[nodiscard]] std::string name() const;
  void rename(const std::string& name) { json_.set("name", name); }

  /// The stored log type, else `otherwise`.
  [[nodiscard]] int logType(int otherwise) const;

  /// A value of the object's own configuration, empty where there is none.
  [[nodiscard]] std::string setting(const std::string& key) const;
  void setSetting(const std::string& key, const std::string& value);

  /// Which save it was read from, or is to be.
  [[nodiscard]] SaveStamp stamp() const;
  void setStamp(const SaveStamp& stamp);

  /// Whether another document differs from this one in settings and stamp alone.
  [[nodiscard]] bool hasContentOf(const OtioDocument& other) const;

  /// The text of its file, with the station's block.
  [[nodiscard]] std::string text() const { return writeJsonIndented(json_); }

  /// The text for other programs, without it.
  [[nodiscard]] std::string exportedText() const;

  [[nodiscard]] const JsonValue& json() const { return json_; }
  [[nodiscard]] JsonValue& json() { return json_; }

 private:
  explicit OtioDocument(JsonValue json) : json_(std::move(json)) {}

  [[nodiscard]] const JsonValue& block() const;
  JsonValue& ownBlock();

  JsonValue json_;
};

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

/// The media reference that a clip uses, the only one or the active one of several; null where it
/// has none.
const JsonValue& mediaOf(const JsonValue& clip);

/// What is known of the clip at a path; eNotFound when there is none.
Result<ClipInfo> clipAt(const JsonValue& timeline, const std::string& path);

/// The stretch of material that the clip could show; `hasRange` false where nothing tells it.
ClipInfo availableMaterial(const JsonValue& timeline, const std::string& path);

/// Makes the clip show another stretch. Times that fall on a frame (to a millionth) are stored as
/// that frame, and numbers keep their kind (whole or not). Failure, with nothing changed: no such
/// clip, a clip without a frame rate, a range that is empty, reversed or not finite.
Result<void> trimClip(JsonValue& timeline, const std::string& path, const ClipRange& range);

}  // namespace korvel
