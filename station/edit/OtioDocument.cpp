#include "station/edit/OtioDocument.h"

#include <algorithm>

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

/// Puts back what stood in the place of the metadata before the block was made.
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
  auto json = parseJson(bytes);
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
  json_.find(kMetadata)->find(kBlock)->remove("logType");
  return *json_.find(kMetadata)->find(kBlock);
}

}  // namespace korvel
