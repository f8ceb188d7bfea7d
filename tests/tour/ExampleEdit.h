#pragma once

namespace korvel {

/// A short edit in OpenTimelineIO JSON: one video track with two shots and a dissolve between them,
/// 24 frames a second.
inline constexpr const char* kExampleEdit = R"json({
  "OTIO_SCHEMA": "Timeline.1",
  "metadata": {},
  "name": "Harbour at dawn",
  "tracks": {
    "OTIO_SCHEMA": "Stack.1",
    "name": "tracks",
    "children": [
      {
        "OTIO_SCHEMA": "Track.1",
        "name": "V1",
        "kind": "Video",
        "children": [
          {
            "OTIO_SCHEMA": "Clip.1",
            "name": "Crane",
            "source_range": {
              "OTIO_SCHEMA": "TimeRange.1",
              "duration": { "OTIO_SCHEMA": "RationalTime.1", "rate": 24, "value": 72 },
              "start_time": { "OTIO_SCHEMA": "RationalTime.1", "rate": 24, "value": 0 }
            }
          },
          {
            "OTIO_SCHEMA": "Transition.1",
            "name": "dissolve",
            "transition_type": "SMPTE_Dissolve",
            "in_offset": { "OTIO_SCHEMA": "RationalTime.1", "rate": 24, "value": 6 },
            "out_offset": { "OTIO_SCHEMA": "RationalTime.1", "rate": 24, "value": 6 }
          },
          {
            "OTIO_SCHEMA": "Clip.1",
            "name": "Ferry",
            "source_range": {
              "OTIO_SCHEMA": "TimeRange.1",
              "duration": { "OTIO_SCHEMA": "RationalTime.1", "rate": 24, "value": 96 },
              "start_time": { "OTIO_SCHEMA": "RationalTime.1", "rate": 24, "value": 24 }
            }
          }
        ]
      }
    ]
  }
}
)json";

}  // namespace korvel
