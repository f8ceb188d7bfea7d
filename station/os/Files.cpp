#include "host/os/Files.h"

#include <string>
#include <string_view>

#include "host/base/Log.h"
#include "host/base/Text.h"
#include "station/base/StationSettings.h"
#include "station/os/SharedFiles.h"

using namespace korvel;

namespace korvel {

namespace {

constexpr wchar_t kSeparator = L'/';

/// Cuts the first line and its end (LF, CR LF or CR) off the head of `rest`.
std::string_view takeLine(std::string_view& rest) {
  const std::string_view line = rest.substr(0, rest.find_first_of("\r\n"));
  rest.remove_prefix(line.size());
  const bool twoBytes = rest.substr(0, 2) == "\r\n";
  rest.remove_prefix(rest.empty() ? 0 : twoBytes ? 2 : 1);
  return line;
}

}  // namespace

}  // namespace korvel

bool fileExists(const LightweightString<wchar_t>& path) {
  const std::string bytes = toUTF8(path).str();
  return bytes.find('\0') == std::string::npos && existsFresh(bytes);
}

LightweightString<wchar_t> getPath(const LightweightString<wchar_t>& path) {
  const std::size_t separator = path.view().rfind(kSeparator);
  if (separator == std::wstring_view::npos) return getProjectsBaseDirectory();
  return LightweightString<wchar_t>(path.view().substr(0, separator + 1));
}

LightweightString<wchar_t> stripPath(const LightweightString<wchar_t>& path) {
  return LightweightString<wchar_t>(path.view().substr(path.view().rfind(kSeparator) + 1));
}

LightweightString<wchar_t> getProjectsBaseDirectory() {
  std::string folder = settings().projectsDirectory;
  if (folder.empty() || folder.back() != '/') folder += '/';
  return fromUTF8(LightweightString<char>(std::string_view(folder)));
}

TextFile::TextFile(const LightweightString<wchar_t>& path, bool keepEmptyLines) {
  const auto content = readFresh(toUTF8(path).str(), kLargestList);
  if (!content) {
    if (content.error().code == ErrorCode::eBadContent) LogBoth("%s\n", content.error().message);
    return;
  }
  std::string_view rest = *content;
  while (!rest.empty()) {
    const std::string_view line = takeLine(rest);
    if (keepEmptyLines || !line.empty()) lines_.emplace_back(line);
  }
}
