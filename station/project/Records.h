#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/Cookie.h"
#include "station/base/Json.h"

namespace korvel {

// The small JSON files in a project's folder: <folder>/<cookie>.json, one object a file, whose
// member "name" is what the user calls it. Host thread.

/// The cookie of a record's file name, if its kind letter is one of `kinds`; else the null cookie.
Cookie recordCookie(std::string_view fileName, std::string_view kinds);

/// The file of a record; it need not exist.
std::string recordPath(const std::string& folder, const Cookie& cookie);

/// A record as its file holds it now. A file that holds no JSON object is eBadContent; the messages
/// name the file.
Result<JsonValue> readRecord(const std::string& path);

/// A record of the bytes that its file at `path` held.
Result<JsonValue> parseRecord(const Result<std::string>& bytes, const std::string& path);

/// Calls `take` with each record of these kinds among a folder's `files`, which were listed just
/// now. Those that cannot be read are reported and left as they are.
void readRecords(const std::string& folder, const std::vector<std::string>& files,
                 std::string_view kinds,
                 const std::function<Result<void>(const Cookie&, JsonValue&&)>& take);

}  // namespace korvel
