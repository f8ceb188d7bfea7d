#include "app/window/Timeline.h"

#include <algorithm>
#include <cmath>

#include "app/window/ActionTable.h"
#include "app/window/Texts.h"
#include "station/base/Strings.h"
#include "station/edit/EditHistory.h"
#include "station/edit/Edits.h"

namespace korvel {

namespace {

constexpr double kLongestTime = 1e7;  // seconds; a length beyond it is a mistake in the file

double seconds(const JsonValue& time) {
  const double rate = time["rate"].asDouble();
  const double value = time["value"].asDouble() / rate;
  return rate > 0 && std::isfinite(value) ? std::clamp(value, -kLongestTime, kLongestTime) : 0;
}

bool isSchema(const JsonValue& item, const char* name) {
  return item["OTIO_SCHEMA"].asString().rfind(std::string(name) + ".", 0) == 0;
}

const JsonValue& rangeOf(const JsonValue& item) {
  const JsonValue& own = item["source_range"];
  return own.isObject() ? own : mediaOf(item)["available_range"];
}

double lengthOf(const JsonValue& item);

/// One after the other, for a track; side by side, for a stack.
double lengthOfChildren(const JsonValue& parent) {
  double sum = 0;
  double longest = 0;
  for (const JsonValue& child : parent["children"].elements()) {
    const double length = lengthOf(child);
    sum += length;
    longest = std::max(longest, length);
  }
  return isSchema(parent, "Track") ? sum : longest;
}

double lengthOf(const JsonValue& item) {
  if (isSchema(item, "Transition")) return 0;
  const JsonValue& range = rangeOf(item);
  if (range.isObject()) return std::max(0.0, seconds(range["duration"]));
  return lengthOfChildren(item);
}

ClipRange stretchOf(const JsonValue& range) {
  const double start = seconds(range["start_time"]);
  return {start, start + std::max(0.0, seconds(range["duration"]))};
}

TimelineItem itemOf(const JsonValue& json, const QString& path, double at) {
  TimelineItem item;
  item.name = readableText(shownText(json["name"].asString()));
  item.path = path;
  item.start = at;
  if (isSchema(json, "Transition")) {
    item.kind = TimelineItem::Kind::eTransition;
    const double in = std::max(0.0, seconds(json["in_offset"]));
    // A transition takes no time of its own: it overlaps the ends of its neighbours.
    item.start = at - in;
    item.length = in + std::max(0.0, seconds(json["out_offset"]));
    return item;
  }
  item.length = lengthOf(json);
  item.from = seconds(rangeOf(json)["start_time"]);
  item.rate = rangeOf(json)["duration"]["rate"].asDouble();
  if (isSchema(json, "Gap")) item.kind = TimelineItem::Kind::eGap;
  if (isSchema(json, "Stack") || isSchema(json, "Track")) item.kind = TimelineItem::Kind::eNested;
  item.hasMaterial = !isSchema(mediaOf(json), "MissingReference");
  item.material = stretchOf(mediaOf(json)["available_range"]);
  const bool isOne = isSchema(json, "Clip") || isSchema(json, "Gap");
  item.canBeTrimmed = item.rate > 0 && (isOne || json["source_range"].isObject());
  return item;
}

TimelineTrack trackOf(const JsonValue& json, const QString& path) {
  TimelineTrack track;
  track.name = readableText(shownText(json["name"].asString()));
  track.isAudio = json["kind"].asString() == "Audio";
  double at = 0;
  int index = 0;
  for (const JsonValue& child : json["children"].elements()) {
    track.items.push_back(itemOf(child, path + QString::number(index++), at));
    const bool isTransition = track.items.back().kind == TimelineItem::Kind::eTransition;
    track.hasTransitions = track.hasTransitions || isTransition;
    at += isTransition ? 0 : track.items.back().length;
  }
  return track;
}

/// The rate of the first clip that has one; 24 without any.
double rateOf(const Timeline& timeline) {
  for (const TimelineTrack& track : timeline.tracks) {
    for (const TimelineItem& item : track.items) {
      if (item.rate > 0) return item.rate;
    }
  }
  return 24;
}

QString partOf(const std::string& path) { return drawnPlace(readableText(path)); }

TimelineItem* itemAt(Timeline& timeline, const QString& path) {
  for (TimelineTrack& track : timeline.tracks) {
    const auto found = std::ranges::find(track.items, path, &TimelineItem::path);
    if (found != track.items.end()) return &*found;
  }
  return nullptr;
}

/// Marks the place of an item that exists in `now` only.
void markAddition(Timeline& drawn, Timeline& now, const QString& path, const QString& words) {
  const TimelineItem* const added = itemAt(now, path);
  const std::size_t track = path.section(QLatin1Char('/'), 0, 0).toULong();
  if (!added || drawn.tracks.empty()) return;
  TimelineTrack& shown = drawn.tracks[std::min(track, drawn.tracks.size() - 1)];
  shown.added.push_back({std::min(added->start, drawn.length), words});
}

void markChanges(Timeline& drawn, const OtioDocument& before, const OtioDocument& after) {
  Timeline now = timelineOf(after.json());
  for (const ClipChange& change : clipChangesOf(before, after)) {
    const QString words = readableText(change.words);
    if (change.kind == ClipChange::Kind::eAdded) {
      markAddition(drawn, now, partOf(change.after), words);
    } else if (TimelineItem* item = itemAt(drawn, partOf(change.before))) {
      item->change += (item->change.isEmpty() ? QString() : QStringLiteral("\n")) + words;
    }
  }
  for (const std::string& each : differencesOf(before, after)) {
    drawn.changes.append(readableText(each));
  }
}

/// The edit as it is shown, unsaved changes included.
Result<OtioDocument> shownDocument(Station& station, const Cookie& cookie) {
  const auto edit = station.edits().hold(cookie);
  if (!edit) return edit.error();
  // A copy: once released, the edit may be closed.
  OtioDocument document = (*edit)->document();
  station.edits().release(*edit);
  return document;
}

}  // namespace

QString drawnPlace(const QString& path) { return path.section(QLatin1Char('/'), 0, 1); }

TimelinePtr markedAt(const TimelinePtr& timeline, const QString& path, const QString& change) {
  auto marked = std::make_shared<Timeline>(*timeline);
  TimelineItem* const item = itemAt(*marked, drawnPlace(path));
  if (!item || path.isEmpty()) return timeline;
  item->change = change;
  return marked;
}

Timeline timelineOf(const JsonValue& otio) {
  Timeline timeline;
  int index = 0;
  for (const JsonValue& child : otio["tracks"]["children"].elements()) {
    const QString path = QString::number(index++);
    if (isSchema(child, "Track")) {
      timeline.tracks.push_back(trackOf(child, path + QLatin1Char('/')));
    } else {  // an item directly in the stack gets a track of its own
      TimelineTrack track;
      track.items.push_back(itemOf(child, path, 0));
      timeline.tracks.push_back(std::move(track));
    }
    for (const TimelineItem& item : timeline.tracks.back().items) {
      // A transition may reach beyond the end; it makes no edit longer.
      if (item.kind == TimelineItem::Kind::eTransition) continue;
      timeline.length = std::max(timeline.length, item.start + item.length);
    }
  }
  timeline.rate = rateOf(timeline);
  return timeline;
}

namespace {

/// What is left out of rounding to the nearest frame, so that only whole frames of the material
/// count: nearly half a frame, in seconds. A file's times are not exact.
double partOfFrame(double rate) { return rate > 0 ? 0.4999 / rate : 0; }

}  // namespace

ClipTrim::ClipTrim(const TimelineItem& clip)
    : path_(clip.path),
      timecode_(clip.rate),
      firstIn_(timecode_.frameAt(clip.from)),
      firstOut_(timecode_.frameAt(clip.from + clip.length)),
      in_(firstIn_),
      out_(firstOut_),
      firstFrame_(timecode_.frameAt(clip.material.start + partOfFrame(clip.rate))),
      lastFrame_(timecode_.frameAt(clip.material.end - partOfFrame(clip.rate))) {}

bool ClipTrim::isOf(const TimelineItem& clip) const {
  const ClipTrim other(clip);
  return clip.canBeTrimmed && other.path_ == path_ && other.firstIn_ == firstIn_ &&
         other.firstOut_ == firstOut_ && other.firstFrame_ == firstFrame_ &&
         other.lastFrame_ == lastFrame_;
}

void ClipTrim::moveIn(long frame) {
  if (isBounded()) frame = std::max(frame, std::min(firstFrame_, firstIn_));
  in_ = std::min(frame, out_ - 1);
}

void ClipTrim::moveOut(long frame) {
  if (isBounded()) frame = std::min(frame, std::max(lastFrame_, firstOut_));
  out_ = std::max(frame, in_ + 1);
}

namespace {

constexpr long kSecondsADay = 86'400;

}  // namespace

QString ClipTrim::problem() const {
  if (out_ <= in_) return tr("Nothing would be left: out must come after in.");
  // Without known material a slip of the hand could make it any length; nobody cuts days.
  const long longest = std::max(timecode_.firstFrameOf(kSecondsADay), firstOut_ - firstIn_);
  if (!isBounded() && length() > longest) return tr("A clip is 24 hours long at most.");
  if (!isBounded()) return {};
  // An edge that is not touched stays where it is.
  if (in_ < std::min(firstFrame_, firstIn_))
    return tr("The material begins at %1.").arg(text(firstFrame_));
  if (out_ > std::max(lastFrame_, firstOut_))
    return tr("The material ends at %1.").arg(text(lastFrame_));
  return {};
}

QString ClipTrim::materialText() const {
  if (!isBounded()) return tr("Nothing tells how much material there is.");
  return tr("%1 to %2, unused %3 before and %4 after")
      .arg(text(firstFrame_), text(lastFrame_), text(in_ - firstFrame_), text(lastFrame_ - out_));
}

// A frame before the material's zero is written as a step: a minus in front means one.
QString ClipTrim::line(const QString& cookie) const {
  const auto word = [](long frame, long first) {
    const long step = frame - first;
    if (step != 0 && frame >= 0) return QStringLiteral("%1f").arg(frame);
    return QStringLiteral("%1%2f").arg(step < 0 ? QString() : QStringLiteral("+")).arg(step);
  };
  return QStringLiteral("edit trim %1 %2 %3 %4")
      .arg(quoted(cookie), quoted(path_), word(in_, firstIn_), word(out_, firstOut_));
}

TimelinePtr makeTimeline(Station& station, const QString& cookie) {
  auto timeline = std::make_shared<Timeline>();
  const auto document = shownDocument(station, Cookie(cookie.toStdString().c_str(), false));
  if (document) {
    *timeline = timelineOf(document->json());
    timeline->name = readableText(shownText(document->name()));
  } else {
    timeline->problem = shownError(document.error());
  }
  timeline->cookie = cookie;
  return timeline;
}

TimelinePtr makeTimelineOf(Station& station, const QString& cookie, const QString& version) {
  auto timeline = std::make_shared<Timeline>();
  const Cookie object(cookie.toStdString().c_str(), false);
  const auto kept = EditHistory::read(object, version.toStdString());
  if (kept) {
    *timeline = timelineOf(kept->json());
    timeline->name = readableText(shownText(kept->name()));
    if (const auto now = shownDocument(station, object)) markChanges(*timeline, *kept, *now);
  } else {
    timeline->problem = shownError(kept.error());
  }
  timeline->cookie = cookie;
  timeline->version = version;
  return timeline;
}

}  // namespace korvel
