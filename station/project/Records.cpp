#include "station/project/Records.h"

#include <utility>

#include "host/base/Log.h"
#include "station/base/Strings.h"
#include "station/os/SharedFiles.h"

namespace korvel {

namespace {

constexpr std::string_view kEnding = ".json";

}  // namespace

Cookie recordCookie(std::string_view fileName, std::string_view kinds) {
  if (fileName.empty() || kinds.find(fileName.front()) == std::string_view::npos) return {};
  if (!fileName.ends_with(kEnding)) return {};
  const std::string stem(fileName.substr(0, fileName.size() - kEnding.size()));
  Cookie cookie(stem.c_str(), false);
  return utf8Text(cookie.asString()) == stem ? cookie : Cookie();
}

std::string recordPath(const std::string& folder, const Cookie& cookie) {
  return folder + '/' + utf8Text(cookie.asString()) + std::string(kEnding);
}

Result<JsonValue> parseRecord(const Result<std::string>& bytes, const std::string& path) {
  if (!bytes) return bytes.error();
  Result<JsonValue> value = parseJson(*bytes);
  if (value && value->isObject()) return value;
  if (!value && value.error().code != ErrorCode::eBadContent) {
    return Error{value.error().code,
                 "\"" + shownText(path) + "\" cannot be read: " + value.error().message + ".",
                 path};
  }
  const std::string why = value ? "it holds no JSON object" : value.error().message;
  return Error{ErrorCode::eBadContent,
               "\"" + shownText(path) + "\" cannot be understood: " + why +
                   ". It is left as it is; repair it or move it away.",
               path};
}

Result<JsonValue> readRecord(const std::string& path) {
  return parseRecord(readFresh(path, kLargestRecord), path);
}

void readRecords(const std::string& folder, const std::vector<std::string>& files,
                 std::string_view kinds,
                 const std::function<Result<void>(const Cookie&, JsonValue&&)>& take) {
  for (const std::string& file : files) {
    const Cookie cookie = recordCookie(file, kinds);
    if (cookie.isNull()) continue;
    const std::string path = recordPath(folder, cookie);
    Result<JsonValue> record = parseRecord(readListed(path, kLargestRecord), path);
    const Result<void> taken =
        record ? take(cookie, std::move(*record)) : Result<void>(record.error());
    if (!taken) LogBoth("%s\n", taken.error().message);
  }
}

}  // namespace korvel
