#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/Cookie.h"
#include "station/base/Json.h"
#include "station/project/iProjectPart.h"

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

/// Takes up a record, or says why it is none of its kind.
using TakeRecord = std::function<Result<void>(const Cookie&, JsonValue&&)>;

/// Calls `take` with each record of these kinds among a folder's `files`, which were listed just
/// now. Those that cannot be read are reported and left as they are.
void readRecords(const std::string& folder, const std::vector<std::string>& files,
                 std::string_view kinds, const TakeRecord& take);

/// The same for a project that is entered: what the cache knows of its files is not read again.
void readRecords(const OpenProject& project, const std::vector<std::string>& files,
                 std::string_view kinds, const TakeRecord& take);

/// The longest record that a cache of what was read holds, in bytes. It holds them as they are.
inline constexpr std::size_t kLongestKept = 4096;

}  // namespace korvel
