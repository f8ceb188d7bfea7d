#include "tests/fakes/FakeOs.h"

#include <algorithm>
#include <string>

#include "host/base/Text.h"
#include "host/os/Files.h"
#include "tests/fakes/FakeHost.h"

using namespace korvel;

namespace korvel {

iFileManager& FakeOs::fileManager() { return files_; }
iNetworkService& FakeOs::networkService() { return network_; }

void FakeOs::sleepMilliseconds(unsigned milliseconds) {
  journal_.did("OS::sleepMilliseconds", {milliseconds});
}

}  // namespace korvel

iOS& OS() { return FakeHost::current().os; }
iOSPrivate& OSPrivate() { return FakeHost::current().os; }

bool fileExists(const LightweightString<wchar_t>& path) {
  FakeHost& host = FakeHost::current();
  host.journal.asked("fileExists", {path});
  return host.files.has(toUTF8(path).str());
}

LightweightString<wchar_t> getPath(const LightweightString<wchar_t>& path) {
  const std::size_t last = path.view().rfind(L'/');
  if (last == std::wstring_view::npos) return getProjectsBaseDirectory();
  return LightweightString<wchar_t>(path.view().substr(0, last + 1));
}

LightweightString<wchar_t> stripPath(const LightweightString<wchar_t>& path) {
  const std::size_t last = path.view().rfind(L'/');
  return LightweightString<wchar_t>(path.view().substr(last == path.view().npos ? 0 : last + 1));
}

LightweightString<wchar_t> getProjectsBaseDirectory() {
  return FakeHost::current().os.projectsDirectory;
}

TextFile::TextFile(const LightweightString<wchar_t>& path, bool keepEmptyLines) {
  FakeHost& host = FakeHost::current();
  host.journal.asked("TextFile", {path, keepEmptyLines});
  const std::string text = host.files.content(toUTF8(path).str());
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find_first_of("\r\n", begin), text.size());
    if (end > begin || keepEmptyLines)
      lines_.push_back(LightweightString<char>(text.data() + begin, end - begin));
    begin = end + (text.compare(end, 2, "\r\n") == 0 ? 2 : 1);
  }
}
