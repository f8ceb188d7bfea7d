#include "station/project/Records.h"

#include <algorithm>
#include <utility>

#include "host/base/Log.h"
#include "station/base/Strings.h"
#include "station/os/FolderListing.h"
#include "station/os/ReadCache.h"
#include "station/os/SharedFiles.h"
#include "station/project/ProjectFolder.h"

namespace korvel {

namespace {

/// How many records are in memory before they are taken up.
constexpr std::size_t kRecordsAtOnce = 64;

/// A record's file as it was listed; without a stamp where it was listed by name alone.
struct ListedRecord {
  Cookie cookie;
  std::string name;
  const FileStamp* stamp = nullptr;
  const std::string_view* kept = nullptr;  ///< what a cache holds of it
};

using Wanted = std::vector<ListedRecord>;

Wanted wantedOf(const OpenProject& project, const std::vector<std::string>& files,
                std::string_view kinds) {
  Wanted wanted;
  for (const std::string& name : files) {
    ListedRecord record{recordCookie(name, kinds), name};
    if (record.cookie.isNull()) continue;
    record.stamp = project.listing->files.find(name);
    if (record.stamp && project.cache) record.kept = project.cache->find(name, *record.stamp);
    wanted.push_back(std::move(record));
  }
  return wanted;
}

/// Any thread.
Result<StampedContent> readOne(const OpenProject& project, const ListedRecord& record) {
  const std::string path = project.folder + '/' + record.name;
  // From the cache: no question to the share at all, which is what makes entering a large project
  // fast.
  if (record.kept) return StampedContent{*record.stamp, std::string(*record.kept)};
  if (record.stamp) return readStamped(path, kLargestRecord);
  auto bytes = readListed(path, kLargestRecord);
  if (!bytes) return bytes.error();
  return StampedContent{{}, std::move(*bytes)};
}

void takeOne(const OpenProject& project, const ListedRecord& record, Result<StampedContent> read,
             const TakeRecord& take) {
  const std::string path = project.folder + '/' + record.name;
  auto bytes = read ? Result<std::string>(read->bytes) : Result<std::string>(read.error());
  auto parsed = parseRecord(bytes, path);
  const Result<void> taken =
      parsed ? take(record.cookie, std::move(*parsed)) : Result<void>(parsed.error());
  if (!taken) return LogBoth("%s\n", taken.error().message);
  // A file that was not at rest may have changed within the same tick of the share's clock: its
  // stamp would not tell, and the cache would keep the old text for good.
  const bool isToBeKept = project.cache && record.stamp && !record.kept &&
                          read->bytes.size() <= kLongestKept &&
                          isAtRest(read->stamp, *project.listing);
  if (isToBeKept) project.cache->put(record.name, read->stamp, read->bytes);
}

}  // namespace

Cookie recordCookie(std::string_view fileName, std::string_view kinds) {
  if (fileName.empty() || kinds.find(fileName.front()) == std::string_view::npos) return {};
  return cookieNamedBy(fileName, kRecordEnding);
}

std::string recordPath(const std::string& folder, const Cookie& cookie) {
  return folder + '/' + utf8Text(cookie.asString()) + std::string(kRecordEnding);
}

Result<JsonValue> parseRecord(const Result<std::string>& bytes, const std::string& path) {
  if (!bytes) return bytes.error();
  Result<JsonValue> value = parseJson(*bytes);
  if (value && value->isObject()) return value;
  if (!value && value.error().code != ErrorCode::eBadContent) {
    return Error{value.error().code,
                 inQuotes(path) + " cannot be read: " + value.error().message + ".", path};
  }
  const std::string why = value ? "it holds no JSON object" : value.error().message;
  return Error{ErrorCode::eBadContent,
               inQuotes(path) + " cannot be understood: " + why +
                   ". It is left as it is; repair it or move it away.",
               path};
}

Result<JsonValue> readRecord(const std::string& path) {
  return parseRecord(readFresh(path, kLargestRecord), path);
}

void readRecords(const std::string& folder, const std::vector<std::string>& files,
                 std::string_view kinds, const TakeRecord& take) {
  OpenProject project;
  project.folder = folder;
  readRecords(project, files, kinds, take);
}

void readRecords(const OpenProject& project, const std::vector<std::string>& files,
                 std::string_view kinds, const TakeRecord& take) {
  const Wanted wanted = wantedOf(project, files, kinds);
  for (std::size_t from = 0; from < wanted.size(); from += kRecordsAtOnce) {
    const std::size_t count = std::min(kRecordsAtOnce, wanted.size() - from);
    std::vector<Result<StampedContent>> read(count, Error());
    // Reading waits for the share and is done by several threads; taking up is the host thread's.
    inFlight(count, [&](std::size_t each) { read[each] = readOne(project, wanted[from + each]); });
    for (std::size_t each = 0; each < count; ++each) {
      takeOne(project, wanted[from + each], std::move(read[each]), take);
    }
  }
}

}  // namespace korvel
