#include "station/edit/OtioClips.h"

#include <charconv>
#include <cmath>
#include <functional>

#include "station/base/Strings.h"

namespace korvel {

namespace {

constexpr double kLargestExactInteger = 9007199254740992.0;

Error noClip(const std::string& wanted) {
  return {ErrorCode::eNotFound,
          "The edit has no clip \"" + shownText(wanted) + "\"; \"edit show\" lists its clips.",
          {}};
}

/// Whether the item shows a stretch of material of its own (transitions do not).
bool isClip(const JsonValue& item) {
  const std::string& schema = item["OTIO_SCHEMA"].asString();
  return schema.rfind("Clip.", 0) == 0 || schema.rfind("Gap.", 0) == 0 ||
         item["source_range"].isObject();
}

bool readRange(const JsonValue& json, ClipInfo& info) {
  const JsonValue& start = json["start_time"];
  const JsonValue& duration = json["duration"];
  const double startRate = start["rate"].asDouble();
  const double rate = duration["rate"].asDouble();
  if (!(startRate > 0) || !(rate > 0)) return false;
  info.hasRange = true;
  info.rate = rate;
  info.range.start = start["value"].asDouble() / startRate;
  info.range.end = info.range.start + duration["value"].asDouble() / rate;
  return true;
}

/// The media reference that the clip uses: the only one, or the active one of several.
const JsonValue& mediaOf(const JsonValue& clip) {
  const JsonValue* single = clip.find("media_reference");
  if (single) return *single;
  return clip["media_references"][clip["active_media_reference_key"].asString()];
}

ClipInfo infoOf(const JsonValue& item, const std::string& path) {
  ClipInfo info{path, item["name"].asString(), item["OTIO_SCHEMA"].asString(), false, {}, 0};
  if (!readRange(item["source_range"], info)) {
    readRange(mediaOf(item)["available_range"], info);
  }
  return info;
}

using Visitor = std::function<void(const JsonValue&, const std::string&)>;

void visitChildren(const JsonValue& parent, const std::string& prefix, const Visitor& visit) {
  const std::vector<JsonValue>& children = parent["children"].elements();
  for (std::size_t index = 0; index < children.size(); ++index) {
    const std::string path = prefix + std::to_string(index);
    if (isClip(children[index])) visit(children[index], path);
    visitChildren(children[index], path + "/", visit);
  }
}

/// Goes down a path of child indices; null when it leads nowhere.
template <typename Json>
Json* walk(Json& timeline, const std::string& path) {
  Json* item = timeline.find("tracks");
  const char* at = path.data();
  const char* const end = at + path.size();
  while (item) {
    std::size_t index = 0;
    const auto [stopped, problem] = std::from_chars(at, end, index);
    Json* children = item->find("children");
    if (problem != std::errc{} || !children || index >= children->elements().size()) return nullptr;
    item = &children->elements()[index];
    if (stopped == end) return item;
    if (*stopped != '/') return nullptr;
    at = stopped + 1;
  }
  return nullptr;
}

/// `value` as a number of the kind that `old` is: whole where both are.
JsonValue likeBefore(const JsonValue* old, double value) {
  const double nearest = std::round(value);
  const bool isFrame = std::abs(value - nearest) < 1e-6 && std::abs(nearest) < kLargestExactInteger;
  if (!isFrame) return {value};
  const bool wasWhole =
      old && old->isNumber() && old->spelling().find_first_of(".eEnN") == std::string::npos;
  return wasWhole ? JsonValue(static_cast<long>(nearest)) : JsonValue(nearest);
}

void setTime(JsonValue& range, const char* key, double seconds, double rate) {
  JsonValue* time = range.find(key);
  if (!time || !time->isObject()) {
    time = &range.set(key, JsonValue::object({{"OTIO_SCHEMA", "RationalTime.1"}, {"rate", rate}}));
  }
  const double own = (*time)["rate"].asDouble();
  if (!(own > 0)) time->set("rate", rate);
  time->set("value", likeBefore(time->find("value"), seconds * (own > 0 ? own : rate)));
}

Result<void> checkRange(const ClipRange& range, double rate) {
  if (!std::isfinite(range.start * rate) || !std::isfinite(range.end * rate)) {
    return Error{ErrorCode::eUsage, "The range is not of finite times.", {}};
  }
  if (!(range.end > range.start)) {
    return Error{ErrorCode::eUsage, "The range ends before it has begun, or is empty.", {}};
  }
  return {};
}

}  // namespace

std::vector<ClipInfo> listClips(const JsonValue& timeline) {
  std::vector<ClipInfo> clips;
  visitChildren(timeline["tracks"], {}, [&clips](const JsonValue& item, const std::string& path) {
    clips.push_back(infoOf(item, path));
  });
  return clips;
}

Result<std::string> findClip(const JsonValue& timeline, const std::string& nameOrPath) {
  std::vector<std::string> paths;
  visitChildren(timeline["tracks"], {}, [&](const JsonValue& item, const std::string& path) {
    if (item["name"].asString() == nameOrPath && !nameOrPath.empty()) paths.push_back(path);
  });
  if (paths.size() == 1) return paths.front();
  if (const JsonValue* item = walk(timeline, nameOrPath); item && isClip(*item)) return nameOrPath;
  if (paths.empty()) return noClip(nameOrPath);
  std::string all;
  for (const std::string& path : paths) all += " " + path;
  return Error{ErrorCode::eUsage,
               "Several clips are called \"" + shownText(nameOrPath) +
                   "\"; name one by its path:" + all + ".",
               {}};
}

Result<ClipInfo> clipAt(const JsonValue& timeline, const std::string& path) {
  const JsonValue* item = walk(timeline, path);
  if (!item || !isClip(*item)) return noClip(path);
  return infoOf(*item, path);
}

ClipInfo availableMaterial(const JsonValue& timeline, const std::string& path) {
  ClipInfo info;
  if (const JsonValue* item = walk(timeline, path)) {
    readRange(mediaOf(*item)["available_range"], info);
  }
  return info;
}

Result<void> trimClip(JsonValue& timeline, const std::string& path, const ClipRange& range) {
  JsonValue* item = walk(timeline, path);
  if (!item || !isClip(*item)) return noClip(path);
  const double rate = infoOf(*item, path).rate;
  if (!(rate > 0)) {
    return Error{ErrorCode::eRefused, "The clip tells no frame rate, so it cannot be trimmed.", {}};
  }
  if (auto checked = checkRange(range, rate); !checked) return checked;
  JsonValue* stored = item->find("source_range");
  if (!stored || !stored->isObject()) {
    stored = &item->set("source_range", JsonValue::object({{"OTIO_SCHEMA", "TimeRange.1"}}));
  }
  setTime(*stored, "start_time", range.start, rate);
  setTime(*stored, "duration", range.end - range.start, rate);
  return {};
}

}  // namespace korvel
