#include "station/edit/OtioDocument.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <functional>

#include "station/base/Strings.h"
#include "station/os/SharedFiles.h"

namespace korvel {

namespace {

constexpr const char* kSchema = "OTIO_SCHEMA";
constexpr const char* kMetadata = "metadata";
constexpr const char* kBlock = "korvel";
constexpr const char* kMetadataWas = "metadataWas";
constexpr const char* kMetadataAdded = "metadataAdded";
constexpr const char* kBlockWas = "blockWas";
constexpr std::string_view kTimeline = "Timeline.";

Error noTimeline(const std::string& why) {
  return {ErrorCode::eBadContent, "it is no OpenTimelineIO timeline: " + why, {}};
}

JsonValue item(const char* schema, const std::string& name) {
  return JsonValue::object({{kSchema, schema}, {kMetadata, JsonValue::object()}, {"name", name}});
}

/// Puts back the metadata that was there before the block was made.
void restoreMetadata(JsonValue& json, const JsonValue& block) {
  if (block.find(kMetadataAdded)) {
    json.remove(kMetadata);
  } else if (const JsonValue* was = block.find(kMetadataWas)) {
    const JsonValue original = *was;
    json.set(kMetadata, original);
  }
}

}  // namespace

Result<OtioDocument> OtioDocument::parse(std::string_view bytes) {
  if (bytes.empty()) return noTimeline("it is empty.");
  auto json = parseJson(bytes, kMostEditMemory);
  if (!json && json.error().code != ErrorCode::eBadContent) return json.error();
  if (!json) return noTimeline(json.error().message);
  if (!json->isObject()) return noTimeline("it is not an object.");
  const std::string& schema = (*json)[kSchema].asString();
  if (schema.compare(0, kTimeline.size(), kTimeline) != 0) {
    return noTimeline(schema.empty() ? "it names no schema." : "its schema is " + schema + ".");
  }
  return OtioDocument(std::move(*json));
}

OtioDocument OtioDocument::blank(const std::string& name) {
  JsonValue stack = item("Stack.1", "tracks");
  stack.set("source_range", JsonValue());
  stack.set("effects", JsonValue::array());
  stack.set("markers", JsonValue::array());
  stack.set("enabled", true);
  stack.set("children", JsonValue::array());
  JsonValue timeline = item("Timeline.1", name);
  timeline.set("global_start_time", JsonValue());
  timeline.set("tracks", std::move(stack));
  return OtioDocument(std::move(timeline));
}

void OtioDocument::adopt(int logType, const std::string& fallbackName) {
  JsonValue block = JsonValue::object({{"logType", logType}});
  if (name().empty()) block.set("name", fallbackName);
  JsonValue* metadata = json_.find(kMetadata);
  if (!metadata) {
    block.set(kMetadataAdded, true);
    metadata = &json_.set(kMetadata, JsonValue::object());
  } else if (!metadata->isObject()) {
    block.set(kMetadataWas, *metadata);
    *metadata = JsonValue::object();
  } else if (const JsonValue* before = metadata->find(kBlock)) {
    block.set(kBlockWas, *before);
  }
  metadata->set(kBlock, std::move(block));
}

std::string OtioDocument::name() const {
  const std::string& own = json_["name"].asString();
  return own.empty() ? block()["name"].asString() : own;
}

int OtioDocument::logType(int otherwise) const {
  return static_cast<int>(block()["logType"].asLong(otherwise));
}

std::string OtioDocument::setting(const std::string& key) const {
  return block()["config"][key].asString();
}

void OtioDocument::setSetting(const std::string& key, const std::string& value) {
  JsonValue& own = ownBlock();
  JsonValue* config = own.find("config");
  if (!config || !config->isObject()) config = &own.set("config", JsonValue::object());
  config->set(key, value);
}

SaveStamp OtioDocument::stamp() const {
  const JsonValue& saved = block()["saved"];
  return {std::max(0L, saved["number"].asLong()), saved["by"].asString(), saved["at"].asString()};
}

void OtioDocument::setStamp(const SaveStamp& stamp) {
  ownBlock().set("saved",
                 JsonValue::object({{"number", stamp.number}, {"by", stamp.by}, {"at", stamp.at}}));
}

bool OtioDocument::hasContentOf(const OtioDocument& other) const {
  OtioDocument own = *this;
  OtioDocument others = other;
  for (OtioDocument* each : {&own, &others}) {
    each->ownBlock().remove("saved");
    each->ownBlock().remove("config");
  }
  return own.json_ == others.json_;
}

std::string OtioDocument::exportedText() const {
  JsonValue plain = json_;
  JsonValue* metadata = plain.find(kMetadata);
  if (!metadata || !metadata->find(kBlock)) return writeJsonIndented(plain);
  // A copy: the block is taken out of the metadata below.
  const JsonValue own = block();
  if (const JsonValue* before = own.find(kBlockWas)) {
    metadata->set(kBlock, *before);
  } else {
    metadata->remove(kBlock);
  }
  restoreMetadata(plain, own);
  return writeJsonIndented(plain);
}

const JsonValue& OtioDocument::block() const { return json_[kMetadata][kBlock]; }

JsonValue& OtioDocument::ownBlock() {
  JsonValue* metadata = json_.find(kMetadata);
  JsonValue* own = metadata ? metadata->find(kBlock) : nullptr;
  if (own && own->isObject()) return *own;
  adopt(logType(0), {});
  // A file that names no log type keeps none: the type follows from the cookie.
  json_.find(kMetadata)->find(kBlock)->remove("logType");
  return *json_.find(kMetadata)->find(kBlock);
}

namespace {

// Beyond 2^53 a double does not hold every whole number.
constexpr double kLargestExactInteger = 9007199254740992.0;

Error noClip(const std::string& wanted) {
  return {ErrorCode::eNotFound,
          "The edit has no clip " + inQuotes(wanted) + "; \"edit show\" lists its clips.",
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

const JsonValue& mediaOf(const JsonValue& clip) {
  const JsonValue* single = clip.find("media_reference");
  if (single) return *single;
  return clip["media_references"][clip["active_media_reference_key"].asString()];
}

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
  // After the names: a clip may be called "0/2".
  if (const JsonValue* item = walk(timeline, nameOrPath); item && isClip(*item)) return nameOrPath;
  if (paths.empty()) return noClip(nameOrPath);
  std::string all;
  for (const std::string& path : paths) all += " " + path;
  return Error{
      ErrorCode::eUsage,
      "Several clips are called " + inQuotes(nameOrPath) + "; name one by its path:" + all + ".",
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
