#pragma once

#include <string>

#include "app/window/Snapshot.h"
#include "station/Station.h"
#include "station/base/Json.h"

namespace korvel {

// The rows of the window's lists, made from what the station tells of its objects. Host thread.

/// The row of an edit or log from its line in the station's list; without a cookie for null.
ObjectRow editRow(const JsonValue& line);

/// The rows of all bins, racks, filters or media files, in any order.
ObjectRows rowsOf(Station& station, ObjectKind kind);

/// "bin", "rack", "filter", "media": how events and commands call a kind; "edit" for edits.
std::string familyOf(ObjectKind kind);

void sortByKey(ObjectRows& rows);

/// Replaces a row, adds it, or takes it out when `row` has no cookie; the order by key stays.
void putRow(ObjectRows& rows, const QString& key, ObjectRow row);

}  // namespace korvel
