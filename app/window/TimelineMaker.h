#pragma once

#include "app/window/Timeline.h"
#include "station/Station.h"
#include "station/base/Json.h"

namespace korvel {

/// Draws up the timeline of an edit or log of the open project, which is loaded for it if need be.
/// Host thread.
TimelinePtr makeTimeline(Station& station, const QString& cookie);

/// Draws up a kept version of it, and marks what became of each part since. Host thread.
TimelinePtr makeTimelineOf(Station& station, const QString& cookie, const QString& version);

/// The tracks of an OpenTimelineIO timeline. A track that does not tell its items' lengths has
/// items of no length; nothing in a file can make this fail.
Timeline timelineOf(const JsonValue& otio);

}  // namespace korvel
