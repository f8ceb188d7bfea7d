#include "app/window/ObjectRows.h"

#include <algorithm>

#include "app/window/Texts.h"
#include "station/containers/Bins.h"
#include "station/containers/Filters.h"
#include "station/containers/Racks.h"
#include "station/media/MediaCache.h"

namespace korvel {

namespace {

ObjectRow named(const JsonValue& value) {
  ObjectRow row;
  row.cookie = readableText(value["cookie"].asString());
  row.key = row.cookie;
  row.name = readableText(value["name"].asString());
  return row;
}

ObjectRow listRow(const JsonValue& value) {
  ObjectRow row = named(value);
  for (const JsonValue& each : value["contents"].elements()) {
    row.contents.append(readableText(each.asString()));
  }
  row.detail = row.contents.size() == 1 ? QStringLiteral("1 object")
                                        : QStringLiteral("%1 objects").arg(row.contents.size());
  return row;
}

ObjectRow filterRow(const JsonValue& value) {
  ObjectRow row = named(value);
  row.detail = readableText(value["filter"].asString());
  return row;
}

ObjectRow mediaRow(const JsonValue& value) {
  ObjectRow row = named(value);
  row.detail = readableText(value["file"].asString());
  row.key += QLatin1Char(' ') + row.detail;
  row.extra = readableText(value["proxy_of"].asString());
  return row;
}

ObjectRows rowsFrom(const JsonValue& state, ObjectRow (*make)(const JsonValue&)) {
  ObjectRows rows;
  for (const JsonValue& value : state.elements()) rows.push_back(make(value));
  return rows;
}

}  // namespace

ObjectRow editRow(const JsonValue& line) {
  if (line.isNull()) return {};
  ObjectRow row = named(line);
  row.owner = readableText(line["owner"].asString());
  row.problem = readableText(line["problem"].asString());
  row.isLog = line["kind"].asString() == "log";
  row.isOpen = line["open"].asBool();
  row.isDirty = line["dirty"].asBool();
  row.isDeleted = line["deleted"].asBool();
  return row;
}

ObjectRows rowsOf(Station& station, ObjectKind kind) {
  switch (kind) {
    case ObjectKind::eBins:
      return rowsFrom(station.bins().state(), listRow);
    case ObjectKind::eRacks:
      return rowsFrom(station.racks().state(), listRow);
    case ObjectKind::eFilters:
      return rowsFrom(station.filters().state(), filterRow);
    case ObjectKind::eMedia:
      return rowsFrom(station.media().state(), mediaRow);
    case ObjectKind::eEdits:
      break;
  }
  return {};
}

std::string familyOf(ObjectKind kind) {
  constexpr std::array<const char*, kObjectKinds> kFamilies{"edit", "bin", "rack", "filter",
                                                            "media"};
  return kFamilies[static_cast<std::size_t>(kind)];
}

void sortByKey(ObjectRows& rows) { std::ranges::sort(rows, {}, &ObjectRow::key); }

void putRow(ObjectRows& rows, const QString& key, ObjectRow row) {
  const auto at = std::ranges::lower_bound(rows, key, {}, &ObjectRow::key);
  const bool isKnown = at != rows.end() && at->key == key;
  if (row.key.isEmpty()) {
    if (isKnown) rows.erase(at);
  } else if (isKnown) {
    *at = std::move(row);
  } else {
    rows.insert(at, std::move(row));
  }
}

}  // namespace korvel
