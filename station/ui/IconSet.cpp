#include "host/ui/IconSet.h"

#include <set>
#include <string>

#include "host/base/Log.h"
#include "station/base/Strings.h"
#include "station/ui/Resources.h"

using namespace korvel;

namespace korvel {

namespace {

std::string doubleName(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos ? name + "@2x" : name.substr(0, dot) + "@2x" + name.substr(dot);
}

/// The path of a picture of the host's; empty, and reported once, when it cannot be used.
std::string findPicture(const std::string& name, std::optional<Size>& size) {
  static std::set<std::string> reported;
  const std::string path = resourceDirectory() + "/" + name;
  size = pngSize(path);
  if (size) return path;
  if (reported.insert(path).second) {
    LogBoth("The icon \"%s\" is missing or is no PNG picture: put it back, or install again\n",
            path);
  }
  return {};
}

}  // namespace

}  // namespace korvel

IconSet::IconSet(const LightweightString<char>& fileName) : fileName_(fileName) {
  std::optional<Size> size;
  path_ = wideText(findPicture(fileName.str(), size));
  if (size) size_ = *size;
  doublePath_ = wideText(findPicture(doubleName(fileName.str()), size));
}

const LightweightString<wchar_t>& IconSet::path(double scale) const {
  const bool wantsLarge = scale > 1 && !doublePath_.empty();
  return wantsLarge || path_.empty() ? doublePath_ : path_;
}
