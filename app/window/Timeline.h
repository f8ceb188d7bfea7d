#pragma once

#include <QCoreApplication>
#include <QMetaType>
#include <QString>
#include <QStringList>
#include <memory>
#include <vector>

#include "station/Station.h"
#include "station/base/Json.h"
#include "station/edit/OtioDocument.h"
#include "station/edit/Timecode.h"

namespace korvel {

/// What stands in a track.
struct TimelineItem {
  enum class Kind { eClip, eGap, eTransition, eNested };
  Kind kind = Kind::eClip;
  QString name;
  QString path;          ///< by which commands name it: "0/2"
  double start = 0;      ///< in seconds from the track's beginning
  double length = 0;     ///< in seconds; of a transition its whole extent
  double from = 0;       ///< the first second shown of the material
  double rate = 0;       ///< frames a second; 0 where none is told
  ClipRange material{};  ///< all that it could show; empty where nothing tells it
  bool canBeTrimmed = false;
  bool hasMaterial = true;  ///< false where the material is missing
  QString change;           ///< of a version: what became of it since; empty for nothing
};

/// What stands in a track now and did not in the version that is drawn.
struct TimelineAddition {
  double at = 0;  ///< in seconds from the track's beginning
  QString change;
};

struct TimelineTrack {
  QString name;
  bool isAudio = false;
  std::vector<TimelineItem> items;
  std::vector<TimelineAddition> added{};
  bool hasTransitions = false;
};

/// A drawing's worth of an edit: its tracks, the lowest first. A plain value, made on the host
/// thread and never changed afterwards.
struct Timeline {
  QString cookie;
  QString name;
  QString version;             ///< which kept version this is; empty for the edit as it is now
  QString problem;             ///< why it cannot be shown; empty when it can
  double length = 0;           ///< in seconds
  double rate = 24;            ///< for the ruler
  unsigned remoteChanges = 0;  ///< as the list had it when this was asked for
  std::vector<TimelineTrack> tracks;
  QStringList changes;  ///< of a version: all that became of it since, in words
};
using TimelinePtr = std::shared_ptr<const Timeline>;

/// Where a clip begins and ends in its material while the user tries other places, in whole frames.
/// What is not touched stays as it is, to a part of a frame. A plain value.
class ClipTrim {
  Q_DECLARE_TR_FUNCTIONS(ClipTrim)

 public:
  explicit ClipTrim(const TimelineItem& clip);

  /// Whether this is the trimming of that clip, as it is still.
  [[nodiscard]] bool isOf(const TimelineItem& clip) const;

  [[nodiscard]] const QString& path() const { return path_; }
  [[nodiscard]] const Timecode& timecode() const { return timecode_; }

  /// The first frame that is shown, and the first that is not any more.
  [[nodiscard]] long in() const { return in_; }
  [[nodiscard]] long out() const { return out_; }
  [[nodiscard]] long length() const { return out_ - in_; }

  /// The same as it was at first.
  [[nodiscard]] long firstIn() const { return firstIn_; }
  [[nodiscard]] long firstOut() const { return firstOut_; }
  [[nodiscard]] bool isChanged() const { return in_ != firstIn_ || out_ != firstOut_; }

  void setIn(long frame) { in_ = frame; }
  void setOut(long frame) { out_ = frame; }

  /// Moves an edge towards a frame, as far as there is material and a frame is left.
  void moveIn(long frame);
  void moveOut(long frame);

  /// Why the clip cannot be so, as a sentence; empty where it can.
  [[nodiscard]] QString problem() const;

  /// "00:00:00:00 to 00:00:08:00, unused 12 frames before and 30 after": what there is of material.
  [[nodiscard]] QString materialText() const;

  /// The command that does it.
  [[nodiscard]] QString line(const QString& cookie) const;

 private:
  [[nodiscard]] bool isBounded() const { return lastFrame_ > firstFrame_; }
  [[nodiscard]] QString text(long frame) const {
    return QString::fromStdString(timecode_.text(frame));
  }

  QString path_;
  Timecode timecode_;
  long firstIn_, firstOut_, in_, out_;
  long firstFrame_, lastFrame_;  ///< of the material, the last not included
};

}  // namespace korvel

Q_DECLARE_METATYPE(korvel::TimelinePtr)

namespace korvel {

/// Draws up the timeline of an edit or log of the open project, which is loaded for it if need be.
/// Host thread.
TimelinePtr makeTimeline(Station& station, const QString& cookie);

/// Draws up a kept version of it, and marks what became of each part since. Host thread.
TimelinePtr makeTimelineOf(Station& station, const QString& cookie, const QString& version);

/// The same timeline with what became of one clip marked at its place in the drawing; as it is
/// where there is none. `path` is the clip's.
TimelinePtr markedAt(const TimelinePtr& timeline, const QString& path, const QString& change);

/// The drawn place of a clip: "0/2" for "0/2/1", since nested clips are drawn as one.
QString drawnPlace(const QString& path);

/// The tracks of an OpenTimelineIO timeline. A track that does not tell its items' lengths has
/// items of no length; nothing in a file can make this fail.
Timeline timelineOf(const JsonValue& otio);

}  // namespace korvel
